// The public writer through the real builder library, judged by the file.
#include "support/LogCapture.h"
#include "support/Meshes.h"
#include "support/SrcFile.h"

#include <kel/src/SrcWriter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <stdexcept>

namespace {

using kel::src::SrcWriter;
using kel::src::SrcWriterInput;
using kel::tests::LogCapture;
using kel::tests::SrcFile;
using testing::ElementsAre;
using Element = SrcFile::Element;

std::string bytesOf(const SrcWriterInput& input, SrcWriter::Compression mode = SrcWriter::UNCOMPRESSED) {
    std::ostringstream out;
    SrcWriter::write(input, out, mode);
    return out.str();
}

SrcFile fileOf(const SrcWriterInput& input, SrcWriter::Compression mode = SrcWriter::UNCOMPRESSED) {
    return SrcFile(bytesOf(input, mode));
}

/// One mesh with an empty metadata map.
SrcWriterInput inputOf(const kel::mesh::MeshPtr& mesh) {
    SrcWriterInput input;
    input.meshes = {mesh};
    input.metaData[mesh] = std::make_shared<std::map<std::string, std::string>>();
    return input;
}

class AnyMode : public testing::TestWithParam<SrcWriter::Compression> {};
INSTANTIATE_TEST_SUITE_P(Modes, AnyMode,
                         testing::Values(SrcWriter::UNCOMPRESSED, SrcWriter::POSITION_COMPRESSED,
                                         SrcWriter::POSITION_NORMAL_COMPRESSED));

TEST(SrcWriter, ModesHaveTheirNumbers) {
    EXPECT_EQ(static_cast<int>(SrcWriter::UNCOMPRESSED), 0);
    EXPECT_EQ(static_cast<int>(SrcWriter::POSITION_COMPRESSED), 1);
    EXPECT_EQ(static_cast<int>(SrcWriter::POSITION_NORMAL_COMPRESSED), 2);
}

TEST(SrcWriter, RefusesAnUnknownModeAndWritesNothing) {
    for (const int mode : {3, -1}) {
        std::ostringstream out;
        try {
            SrcWriter::write({}, out, static_cast<SrcWriter::Compression>(mode));
            ADD_FAILURE() << "mode " << mode << " was taken";
        } catch (const std::invalid_argument& error) {
            EXPECT_STREQ(error.what(), "Unknown compression parameter!!!");
        }
        EXPECT_EQ(out.str(), "");
    }
}

TEST_P(AnyMode, AnEmptySceneIsADocumentWithTheTechnique) {
    const SrcFile file = fileOf({}, GetParam());
    EXPECT_EQ(
        file.header,
        R"({"accessors":{"attributeViews":{},"indexViews":{}},"bufferChunks":{},"bufferViews":{},)"
        R"("materials":{},"meshes":{},"meta":{},"techniques":{"x3dStandardMaterialTechnique":)"
        R"({"parameters":{"ambientIntensity":{"value":0.20000000000000001},)"
        R"("diffuseColor":{"value":[0.80000000000000004,0.80000000000000004,0.80000000000000004]},)"
        R"("emissiveColor":{"value":[0,0,0]},"shininess":{"value":0.20000000000000001},)"
        R"("specularColor":{"value":[0,0,0]},"transparency":{"value":0}}}},"textureViews":{},"textures":{}})");
    EXPECT_EQ(file.data, "");
}

TEST_P(AnyMode, MeshesAreNamedAfterTheirPlace) {
    SrcWriterInput input;
    for (int i = 0; i < 12; ++i)
        input.meshes.push_back(fixture::unitSquare());
    const SrcFile file = fileOf(input, GetParam());
    EXPECT_THAT(file.meshIds(), ElementsAre("mesh0", "mesh1", "mesh10", "mesh11", "mesh2", "mesh3", "mesh4",
                                            "mesh5", "mesh6", "mesh7", "mesh8", "mesh9"));
}

TEST_P(AnyMode, IndicesAreWrittenIn16Bits) {
    const SrcFile file = fileOf(inputOf(fixture::unitSquare()), GetParam());
    EXPECT_THAT(file.indices("mesh0"), ElementsAre(0, 1, 2, 0, 2, 3));
    EXPECT_EQ(file.at("accessors", "indexViews", "indexView0"),
              R"({"bufferView":"bufferView0","byteOffset":0,"componentType":5123,"count":6})");
}

TEST_P(AnyMode, EqualInputGivesEqualBytes) {
    EXPECT_EQ(bytesOf(inputOf(fixture::unitSquare()), GetParam()),
              bytesOf(inputOf(fixture::unitSquare()), GetParam()));
}

TEST(SrcWriter, UncompressedKeepsEveryAttribute) {
    const SrcFile file = fileOf(inputOf(fixture::unitSquare()));
    EXPECT_THAT(file.attributeNames("mesh0"), ElementsAre("normal", "position", "texcoord"));
    const auto positions = file.attribute("mesh0", "position");
    EXPECT_EQ(positions.type, "VEC3");
    EXPECT_EQ(positions.componentType, 5126u);
    EXPECT_THAT(positions.decoded,
                ElementsAre(Element{0, 0, 0}, Element{1, 0, 0}, Element{1, 1, 0}, Element{0, 1, 0}));
    EXPECT_EQ(file.attribute("mesh0", "texcoord").type, "VEC2");
    EXPECT_EQ(file.at("meshes", "mesh0", "bboxCenter"), "[0.5,0.5,0]");
    EXPECT_EQ(file.at("meshes", "mesh0", "bboxSize"), "[1,1,0]");
}

TEST(SrcWriter, PositionCompressedStaysWithinOneStep) {
    const auto mesh = fixture::sphere(24, 12);
    const SrcWriterInput input = inputOf(mesh);
    const auto exact = fileOf(input).attribute("mesh0", "position").decoded;
    const SrcFile file = fileOf(input, SrcWriter::POSITION_COMPRESSED);
    const auto positions = file.attribute("mesh0", "position");
    EXPECT_EQ(positions.type, "VEC3");
    EXPECT_EQ(positions.componentType, 5123u);
    ASSERT_EQ(positions.decoded.size(), exact.size());
    for (std::size_t i = 0; i < exact.size(); ++i) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            // The box has sides of 2; a code names the lower end of its step.
            EXPECT_NEAR(positions.decoded[i][axis], exact[i][axis] - 1.0 / 65535, 1.01 / 65535);
        }
    }
    EXPECT_EQ(file.at("meshes", "mesh0", "bboxSize"), "[2,2,2]");
    EXPECT_EQ(file.attribute("mesh0", "normal").componentType, 5126u);
}

TEST(SrcWriter, PositionAndNormalCompressedIsOneInterleavedAttribute) {
    const auto mesh = fixture::sphere(24, 12);
    const SrcWriterInput input = inputOf(mesh);
    const auto exact = fileOf(input).attribute("mesh0", "normal").decoded;
    const auto positions =
        fileOf(input, SrcWriter::POSITION_COMPRESSED).attribute("mesh0", "position").decoded;
    const SrcFile file = fileOf(input, SrcWriter::POSITION_NORMAL_COMPRESSED);
    EXPECT_THAT(file.attributeNames("mesh0"), ElementsAre("pos3us_nor2ub_oct"));
    const auto vertices = file.attribute("mesh0", "pos3us_nor2ub_oct");
    EXPECT_EQ(vertices.type, "VEC4");
    ASSERT_EQ(vertices.decoded.size(), exact.size());
    for (std::size_t i = 0; i < exact.size(); ++i) {
        const Element& vertex = vertices.decoded[i];
        EXPECT_EQ(Element(vertex.begin(), vertex.begin() + 3), positions[i]);
        // The fourth number is the two octahedral bytes.
        const auto code = static_cast<unsigned>(vertex[3]);
        double x = (static_cast<double>(code & 255) - 127) / 127,
               y = (static_cast<double>(code >> 8) - 127) / 127;
        const double z = 1 - std::fabs(x) - std::fabs(y);
        if (z < 0) {
            const double foldedX = (1 - std::fabs(y)) * (x < 0 ? -1 : 1);
            y = (1 - std::fabs(x)) * (y < 0 ? -1 : 1);
            x = foldedX;
        }
        const double cosine =
            (x * exact[i][0] + y * exact[i][1] + z * exact[i][2]) / std::sqrt(x * x + y * y + z * z);
        EXPECT_GT(cosine, std::cos(0.65 * 3.14159265 / 180)) << i;
    }
}

TEST(SrcWriter, PositionAndNormalCompressedDropsTextureCoordinates) {
    EXPECT_THAT(
        fileOf(inputOf(fixture::unitSquare()), SrcWriter::POSITION_NORMAL_COMPRESSED).attributeNames("mesh0"),
        ElementsAre("pos3us_nor2ub_oct"));
}

TEST_P(AnyMode, IndicesAbove65535Wrap) {
    const auto mesh = fixture::unitSquare();
    mesh->setIndices(std::vector<std::uint32_t>{0, 65535, 70000});
    SrcWriterInput input; // without metadata, whose area would follow the indices
    input.meshes = {mesh};
    const LogCapture quiet;
    EXPECT_THAT(fileOf(input, GetParam()).indices("mesh0"), ElementsAre(0, 65535, 4464));
}

TEST_P(AnyMode, MetadataAndStatisticsAreTheMeshsMeta) {
    const auto mesh = fixture::unitSquare();
    SrcWriterInput input = inputOf(mesh);
    (*input.metaData[mesh])["zone"] = "{\"floor\" : [1, 2.50]}";
    EXPECT_EQ(
        fileOf(input, GetParam()).at("meshes", "mesh0", "meta"),
        R"({"numOriginalTriangles":2,"numOriginalVertices":4,"surfaceArea":1,"zone":{"floor":[1,2.5]}})");
    EXPECT_EQ(input.metaData[mesh]->at("surfaceArea"), "1.000000");
}

TEST(SrcWriter, PlainTextMetadataNeitherStopsNorSpoilsTheFile) {
    const auto mesh = fixture::unitSquare();
    SrcWriterInput input = inputOf(mesh);
    (*input.metaData[mesh])["zone"] = "the roof";
    const LogCapture log;
    const SrcFile file = fileOf(input);
    EXPECT_EQ(file.meshEntry("mesh0").get("meta").get<std::string>(),
              "{\"numOriginalTriangles\" : 2,\"numOriginalVertices\" : 4,\"surfaceArea\" : 1.000000,\"zone\" "
              ": the roof}");
    ASSERT_EQ(log.records().size(), 1u);
    EXPECT_EQ(log.records()[0].severity, 3);
    EXPECT_THAT(log.records()[0].message,
                testing::AllOf(testing::HasSubstr("mesh0"), testing::HasSubstr("byte 88")));
    EXPECT_THAT(file.indices("mesh0"), ElementsAre(0, 1, 2, 0, 2, 3));
}

TEST_P(AnyMode, PositionsThatAreNotFiniteAreRefusedBeforeAnythingIsWritten) {
    const auto mesh = fixture::noNormals();
    mesh->setIndices(std::vector<std::uint16_t>{0, 1, 0});
    mesh->addAttribute("position", 3, std::vector<float>{0, 0, 0, 1, INFINITY, 1});
    if (GetParam() == SrcWriter::POSITION_NORMAL_COMPRESSED)
        mesh->addAttribute("normal", 3, std::vector<float>{0, 0, 1, 0, 0, 1});
    std::ostringstream out;
    try {
        SrcWriter::write(inputOf(mesh), out, GetParam());
        ADD_FAILURE() << "written";
    } catch (const std::overflow_error& error) {
        // With one infinite side the diagonal is infinite, and with it every side of the quantizing box.
        EXPECT_STREQ(error.what(),
                     GetParam() == SrcWriter::UNCOMPRESSED
                         ? "Mesh \"mesh0\", bounds of its positions: bboxCenter[1] is infinite, which "
                           "no file can hold. Make the numbers it comes from finite."
                     : GetParam() == SrcWriter::POSITION_COMPRESSED
                         ? "Mesh \"mesh0\", attribute \"position\": decodeOffset[0] is not a number, "
                           "which no file can hold. Make the numbers it comes from finite."
                         : "Mesh \"mesh0\", attribute \"pos3us_nor2ub_oct\": decodeOffset[0] is not a "
                           "number, which no file can hold. Make the numbers it comes from finite.");
    }
    EXPECT_EQ(out.str(), "");
}

TEST(SrcWriter, NaNAmongThePositionsIsDataNotBounds) {
    const auto mesh = fixture::noNormals();
    mesh->setIndices(std::vector<std::uint16_t>{0, 1, 0});
    mesh->addAttribute("position", 3, std::vector<float>{NAN, 0, 0, 1, 1, 1});
    const SrcFile file = fileOf(inputOf(mesh));
    EXPECT_TRUE(std::isnan(file.attribute("mesh0", "position").codes[0][0]));
    EXPECT_EQ(file.at("meshes", "mesh0", "bboxCenter"), "[1,0.5,0.5]");
}

TEST_P(AnyMode, MaterialsAreThoseOfTheirMeshes) {
    SrcWriterInput input;
    for (int i = 0; i < 3; ++i) {
        const auto mesh = fixture::unitSquare();
        const auto material = std::make_shared<kel::material::MaterialClassic>(3); // all of one name
        material->setShininess(static_cast<float>(i));
        input.meshes.push_back(mesh);
        input.materials.insert(material);
        input.meshMaterials[mesh] = material;
    }
    input.materials.insert(nullptr);
    const LogCapture quiet;
    const SrcFile file = fileOf(input, GetParam());
    for (int i = 0; i < 3; ++i) {
        const std::string id = file.meshEntry("mesh" + std::to_string(i)).get("material").get<std::string>();
        EXPECT_EQ(file.at("materials", id, "instanceTechnique", "values", "shininess"),
                  "[" + std::to_string(i) + "]");
    }
    EXPECT_EQ(file.json.get("materials").get<picojson::object>().size(), 3u);
    EXPECT_EQ(file.at("materials", "mat3", "instanceTechnique", "values", "transparency"), "[0]");
}

} // namespace
