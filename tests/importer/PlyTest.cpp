// Reading PLY.

#include "HostileBytes.h"
#include "ImporterTest.h"

#include <algorithm>
#include <set>

namespace kel::importer::test {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class Ply : public ImporterTest {
protected:
    /// A text, of a header without its first lines, and elements.
    ImportResult read(const std::string& header, const std::string& elements,
                      const ImportOptions& options = {}) const {
        return import("a.ply", "ply\nformat ascii 1.0\n" + header + "end_header\n" + elements, options);
    }
    ImportError refusal(const std::string& header, const std::string& elements) const {
        return errorOf([&] { read(header, elements); });
    }
};

const std::string XYZ = "property float x\nproperty float y\nproperty float z\n";
const std::string FACES = "property list uchar int vertex_indices\n";
const std::string TRIANGLE = "0 0 0\n1 0 0\n0 1 0\n";

/// The bytes of a number, in the order that the file states.
template<typename Number>
void append(std::string& bytes, Number number, bool isBigEndian) {
    char raw[sizeof number];
    std::memcpy(raw, &number, sizeof raw);
    if (isBigEndian) std::reverse(raw, raw + sizeof raw);
    bytes.append(raw, sizeof raw);
}

/// A triangle whose coordinates and indices are of one type, with lists whose counts are of another.
template<typename Number, typename Count>
std::string binaryTriangle(const std::string& type, const std::string& countType, bool isBigEndian) {
    std::string bytes = std::string("ply\nformat binary_") + (isBigEndian ? "big" : "little") +
                        "_endian 1.0\n" + "element vertex 3\n";
    for (const char* axis : {"x", "y", "z"})
        bytes += "property " + type + " " + axis + "\n";
    bytes += "element face 1\nproperty list " + countType + " " + type + " vertex_indices\nend_header\n";
    for (const int number : {1, 2, 3, 101, 2, 3, 1, 102, 3})
        append(bytes, static_cast<Number>(number), isBigEndian);
    append(bytes, static_cast<Count>(3), isBigEndian);
    for (const int index : {0, 1, 2})
        append(bytes, static_cast<Number>(index), isBigEndian);
    return bytes;
}

/// Points in steps of 0.25 along y, as a survey in metres of a map states them, and what AUTO makes of them.
constexpr std::size_t STEPS = 81;
ImportOptions automatic() {
    ImportOptions options;
    options.origin.choice = Origin::AUTO;
    return options;
}
void expectTerrain(const ImportResult& result) {
    EXPECT_EQ(result.report.positionError, 0.0);
    const std::vector<float> positions = numbersOf(*result.input.meshes.at(0), "position");
    ASSERT_EQ(positions.size(), 3 * STEPS);
    std::set<float> different;
    for (std::size_t step = 0; step < STEPS; ++step) {
        different.insert(positions[3 * step + 1]);
        EXPECT_EQ(result.report.origin[1] + static_cast<double>(positions[3 * step + 1]),
                  5400321.0 + 0.25 * static_cast<double>(step));
    }
    EXPECT_EQ(different.size(), STEPS);
}

} // namespace

TEST_F(Ply, PropertiesInAnyOrder) {
    const auto result =
        read("element vertex 3\nproperty float nz\nproperty double z\nproperty float y\nproperty float nx\n"
             "property int x\nproperty float ny\nelement face 1\n" +
                 FACES,
             "1 7 0 0 0 0\n1 7 0 0 1 0\n1 7 1 0 0 0\n3 0 1 2\n");
    const auto& mesh = *result.input.meshes[0];
    EXPECT_THAT(numbersOf(mesh, "position"), ElementsAre(0, 0, 7, 1, 0, 7, 0, 1, 7));
    EXPECT_THAT(numbersOf(mesh, "normal"), ElementsAre(0, 0, 1, 0, 0, 1, 0, 0, 1));
    EXPECT_THAT(result.report.dropped, IsEmpty());
}

TEST_F(Ply, EveryTypeInBothByteOrders) {
    for (const bool isBigEndian : {false, true}) {
        for (const std::string& bytes :
             {binaryTriangle<std::int8_t, std::uint8_t>("char", "uchar", isBigEndian),
              binaryTriangle<std::uint8_t, std::int8_t>("uint8", "int8", isBigEndian),
              binaryTriangle<std::int16_t, std::uint16_t>("short", "ushort", isBigEndian),
              binaryTriangle<std::uint16_t, std::int16_t>("uint16", "int16", isBigEndian),
              binaryTriangle<std::int32_t, std::uint32_t>("int", "uint", isBigEndian),
              binaryTriangle<std::uint32_t, std::int32_t>("uint32", "int32", isBigEndian),
              binaryTriangle<float, std::uint8_t>("float", "uchar", isBigEndian),
              binaryTriangle<double, std::uint8_t>("float64", "uchar", isBigEndian)}) {
            const auto result = import("types.ply", bytes);
            EXPECT_THAT(numbersOf(*result.input.meshes[0], "position"),
                        ElementsAre(1, 2, 3, 101, 2, 3, 1, 102, 3));
            EXPECT_THAT(indicesOf(*result.input.meshes[0]), ElementsAre(0, 1, 2));
        }
    }
}

TEST_F(Ply, ATerrainKeepsItsStepsInTextAndInDoubles) {
    std::string text = "ply\nformat ascii 1.0\nelement vertex 81\nproperty double x\nproperty double y\n"
                       "property double z\nend_header\n";
    std::string binary = "ply\nformat binary_little_endian 1.0\nelement vertex 81\nproperty double x\n"
                         "property double y\nproperty double z\nend_header\n";
    for (std::size_t step = 0; step < STEPS; ++step) {
        const std::string cents[] = {".00", ".25", ".50", ".75"};
        text += std::to_string(500123 + step) + " " + std::to_string(5400321 + step / 4) + cents[step % 4] +
                " 10\n";
        for (const double number :
             {500123.0 + static_cast<double>(step), 5400321.0 + 0.25 * static_cast<double>(step), 10.0})
            append(binary, number, false);
    }
    expectTerrain(import("text.ply", text, automatic()));
    expectTerrain(import("binary.ply", binary, automatic()));
}

TEST_F(Ply, DecimalsNearZeroAreTheNearestFloats) {
    const auto result = read("element vertex 3\n" + XYZ, "0.1 0.2 0.3\n1 0 0\n0 1e-3 -7.7\n");
    EXPECT_THAT(numbersOf(*result.input.meshes[0], "position"),
                ElementsAre(0.1f, 0.2f, 0.3f, 1.0f, 0.0f, 0.0f, 0.0f, 0.001f, -7.7f));
    EXPECT_EQ(result.report.positionError, 0.0);
}

TEST_F(Ply, AVertexThatNothingUsesTakesNoPrecisionFromOthers) {
    const auto result = read("element vertex 4\n" + XYZ + "element face 1\n" + FACES,
                             "0 0 0\n0 5400321.25 0\n1 5400321.25 0\n0 5400322 0\n3 1 2 3\n", automatic());
    EXPECT_EQ(result.report.positionError, 0.0);
    EXPECT_EQ(result.report.origin[1] +
                  static_cast<double>(numbersOf(*result.input.meshes[0], "position")[1]),
              5400321.25);
}

TEST_F(Ply, ColoursAreFromZeroToOne) {
    const auto colors = [&](const std::string& type, const std::string& color) {
        const auto result = read("element vertex 3\n" + XYZ + "property " + type + " red\nproperty " + type +
                                     " green\nproperty " + type + " blue\n",
                                 "0 0 0 " + color + "\n1 0 0 " + color + "\n0 1 0 " + color + "\n");
        std::vector<float> all = numbersOf(*result.input.meshes[0], "color");
        all.resize(3);
        return all;
    };
    EXPECT_THAT(colors("uchar", "255 51 0"), ElementsAre(1.0f, 0.2f, 0.0f));
    EXPECT_THAT(colors("ushort", "65535 13107 0"), ElementsAre(1.0f, 0.2f, 0.0f));
    EXPECT_THAT(colors("int", "255 51 0"), ElementsAre(1.0f, 0.2f, 0.0f));
    EXPECT_THAT(colors("float", "1 0.25 0"), ElementsAre(1.0f, 0.25f, 0.0f));
}

TEST_F(Ply, AlphaIsToldWhereItMatters) {
    const std::string header =
        "element vertex 3\n" + XYZ +
        "property uchar red\nproperty uchar green\nproperty uchar blue\nproperty uchar alpha\n";
    EXPECT_EQ(
        droppedOf(read(header, "0 0 0 9 9 9 255\n1 0 0 9 9 9 255\n0 1 0 9 9 9 254\n"), "alpha channels"), 1u);
    EXPECT_THAT(read(header, "0 0 0 9 9 9 255\n1 0 0 9 9 9 255\n0 1 0 9 9 9 255\n").report.dropped,
                IsEmpty());
}

TEST_F(Ply, TextureCoordinatesByAllTheirNames) {
    for (const auto& [u, v] :
         {std::pair("s", "t"), std::pair("u", "v"), std::pair("texture_u", "texture_v")}) {
        const auto result = read("element vertex 3\n" + XYZ + "property float " + u + "\nproperty float " +
                                     v + "\nelement face 1\n" + FACES,
                                 "0 0 0 0 0.25\n1 0 0 1 0.25\n0 1 0 0 1\n3 0 1 2\n");
        EXPECT_THAT(numbersOf(*result.input.meshes[0], "texcoord"), ElementsAre(0, 0.25, 1, 0.25, 0, 1));
    }
}

TEST_F(Ply, TextureCoordinatesOfFacesSplitVertices) {
    // Two triangles share an edge, and at vertex 0 the place in the picture, not so at vertex 2.
    const auto result =
        read("element vertex 4\n" + XYZ + "element face 2\n" + FACES + "property list uchar float texcoord\n",
             "0 0 0\n1 0 0\n1 1 0\n0 1 0\n3 0 1 2 6 0 0 1 0 1 1\n3 0 2 3 6 0 0 0.5 0.5 0 1\n");
    const auto& mesh = *result.input.meshes[0];
    EXPECT_EQ(result.report.vertices, 5u);
    EXPECT_THAT(cornersOf(mesh, "texcoord"),
                ElementsAre(ElementsAre(0, 0), ElementsAre(1, 0), ElementsAre(1, 1), ElementsAre(0, 0),
                            ElementsAre(0.5, 0.5), ElementsAre(0, 1)));
    EXPECT_THAT(cornersOf(mesh, "position")[4], ElementsAre(1, 1, 0));
}

TEST_F(Ply, FacesOfAnySize) {
    // An L of six corners, and a triangle, an edge and a point that are written as faces.
    const auto result =
        read("element vertex 6\n" + XYZ + "element face 4\n" + FACES,
             "0 0 0\n3 0 0\n3 1 0\n1 1 0\n1 3 0\n0 3 0\n6 0 1 2 3 4 5\n3 0 1 2\n2 4 5\n1 3\n");
    EXPECT_EQ(result.report.triangles, 5u);
    EXPECT_EQ(result.report.lines, 1u);
    EXPECT_EQ(result.report.points, 1u);
}

TEST_F(Ply, EdgesAreLines) {
    const auto result =
        read("element vertex 3\n" + XYZ + "element edge 2\nproperty int vertex1\nproperty int vertex2\n",
             TRIANGLE + "0 1\n2 0\n");
    EXPECT_EQ(result.input.meshes[0]->getPrimitiveType(), kel::mesh::LINES);
    EXPECT_THAT(
        cornersOf(*result.input.meshes[0], "position"),
        ElementsAre(ElementsAre(0, 0, 0), ElementsAre(1, 0, 0), ElementsAre(0, 1, 0), ElementsAre(0, 0, 0)));
}

TEST_F(Ply, StripsAreTakenApart) {
    // Two strips in one list: the second begins anew.
    const auto result =
        read("element vertex 5\n" + XYZ + "element tristrips 1\nproperty list int int vertex_indices\n",
             "0 0 0\n1 0 0\n0 1 0\n1 1 0\n2 0 0\n8 0 1 2 3 -1 1 4 3\n");
    EXPECT_THAT(cornersOf(*result.input.meshes[0], "position"),
                ElementsAre(ElementsAre(0, 0, 0), ElementsAre(1, 0, 0), ElementsAre(0, 1, 0),
                            ElementsAre(1, 0, 0), ElementsAre(1, 1, 0), ElementsAre(0, 1, 0),
                            ElementsAre(1, 0, 0), ElementsAre(2, 0, 0), ElementsAre(1, 1, 0)));
}

TEST_F(Ply, WhatHasNoMeaningIsToldOncePerName) {
    const auto result =
        read("element camera 2\nproperty float view_px\nproperty list uchar int seen\nelement vertex 3\n" +
                 XYZ + "property float quality\nelement face 2\n" + FACES + "property uchar flags\n",
             "1 2 8 9\n1 0\n0 0 0 5\n1 0 0 5\n0 1 0 5\n3 0 1 2 0\n3 2 1 0 0\n");
    EXPECT_EQ(result.report.triangles, 2u);
    ASSERT_EQ(result.report.dropped.size(), 2u);
    EXPECT_EQ(result.report.dropped[0].detail, "camera");
    EXPECT_EQ(result.report.dropped[1].detail, "vertex.quality, face.flags");
    EXPECT_EQ(result.report.dropped[1].count, 2u);
}

TEST_F(Ply, ATextureNamedInACommentIsTold) {
    const auto result = read("comment TextureFile my wall.jpg\nelement vertex 3\n" + XYZ, TRIANGLE);
    ASSERT_EQ(result.report.dropped.size(), 1u);
    EXPECT_EQ(result.report.dropped[0].detail, "my wall.jpg");
}

TEST_F(Ply, LinesOfTextMayLackAListOrHaveMore) {
    // As Blender 2.77 wrote clouds of points, and as others write colours that the header does not know.
    EXPECT_EQ(read("element vertex 3\n" + XYZ + FACES, TRIANGLE).report.points, 3u);
    const auto result = read("element vertex 3\n" + XYZ, "0 0 0 255 0 0\n1 0 0 255 0 0\n0 1 0 0 0 255\n");
    EXPECT_EQ(droppedOf(result, "ends of lines beyond the properties of their element"), 3u);
}

TEST_F(Ply, HeadersThatSayNothingUseful) {
    EXPECT_EQ(refusal("element vertex 3\nproperty quux x\n", TRIANGLE).place(), "line 4");
    EXPECT_EQ(refusal("property float x\n", TRIANGLE).code(), ImportCode::INVALID_MODEL);
    EXPECT_EQ(refusal("element vertex many\n", TRIANGLE).code(), ImportCode::INVALID_MODEL);
    EXPECT_EQ(refusal("element vertex 3\nproperty float x\nproperty float y\n", TRIANGLE).code(),
              ImportCode::INVALID_MODEL);
    EXPECT_EQ(refusal("element face 0\n" + FACES, "").code(), ImportCode::NO_MESH);
    EXPECT_EQ(refusal("element vertex 3\n" + XYZ + "element face 1\nproperty list float int vertex_index\n",
                      TRIANGLE + "3 0 1 2\n")
                  .code(),
              ImportCode::INVALID_MODEL);
}

TEST_F(Ply, IndicesThatNoVertexHas) {
    const std::string header = "element vertex 3\n" + XYZ + "element face 1\n" + FACES;
    for (const char* face : {"3 0 1 3", "3 0 1 -1", "3 0 1 4294967296", "3 0 1 0.5", "3 0 1 nan"})
        EXPECT_EQ(refusal(header, TRIANGLE + face + "\n").code(), ImportCode::INDEX_OUT_OF_RANGE) << face;
}

TEST_F(Ply, ListsThatTheFileHasNoRoomFor) {
    const std::string header = "element vertex 3\n" + XYZ + "element face 1\n" + FACES;
    EXPECT_EQ(refusal(header, TRIANGLE + "4000000000 0 1 2\n").code(), ImportCode::IMPOSSIBLE_COUNT);
    EXPECT_EQ(refusal(header, TRIANGLE + "-3 0 1 2\n").code(), ImportCode::INVALID_MODEL);
    EXPECT_EQ(refusal(header, TRIANGLE + "three 0 1 2\n").place(), "line 13");
    EXPECT_EQ(refusal(header, TRIANGLE + "3 0 100").code(), ImportCode::TRUNCATED);
}

TEST_F(Ply, DamagedFilesAreErrorsOrModels) {
    for (const bool isBigEndian : {false, true})
        expectErrorsOrModels("a.ply",
                             binaryTriangle<std::int16_t, std::uint8_t>("short", "uchar", isBigEndian));
    expectErrorsOrModels("a.ply",
                         "ply\nformat ascii 1.0\ncomment TextureFile a\nelement vertex 3\n" + XYZ +
                             "property uchar red\nelement face 1\n" + FACES +
                             "property list uchar float texcoord\nelement edge 1\nproperty int vertex1\n"
                             "property int vertex2\nend_header\n0 0 0 1\n1 0 0 1\n0 1 0 1\n"
                             "3 0 1 2 6 0 0 1 0 1 1\n0 1\n");
}

} // namespace kel::importer::test
