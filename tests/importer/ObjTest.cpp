// Reading Wavefront OBJ.

#include "HostileBytes.h"
#include "ImporterTest.h"

#include <set>

namespace kel::importer::test {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class Obj : public ImporterTest {
protected:
    ImportResult read(const std::string& text, const ImportOptions& options = {}) const {
        return import("a.obj", text, options);
    }
    ImportError refusal(const std::string& text) const {
        return errorOf([&] { read(text); });
    }
};

const std::string CORNERS = "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\n";

std::vector<std::string> namesOf(const ImportResult& result, const char* key = "name") {
    std::vector<std::string> names;
    for (std::size_t m = 0; m < result.input.meshes.size(); ++m)
        names.push_back(metadataOf(result, m, key));
    return names;
}

} // namespace

TEST_F(Obj, GroupsAndObjectsAreNodesWithAMeshEach) {
    const auto result = read(CORNERS + "o Big Wheel\nf 1 2 3\ng rim\nf 2 3 4\ng rim\nf 1 3 4\ng\nf 1 2 4\n");
    EXPECT_THAT(namesOf(result), ElementsAre("\"Big Wheel\"", "\"rim\"", ""));
    EXPECT_THAT(namesOf(result, "node"),
                ElementsAre("\"a.obj\\/Big Wheel\"", "\"a.obj\\/rim\"", "\"a.obj\\/\""));
    EXPECT_THAT(indicesOf(*result.input.meshes[1]).size(), 6u) << "a group that is named again goes on";
}

TEST_F(Obj, AnObjectThatIsNamedAgainGoesOn) {
    EXPECT_THAT(namesOf(read(CORNERS + "o a\nf 1 2 3\no a\nf 2 3 4\no b\nf 1 2 4\n")),
                ElementsAre("\"a\"", "\"b\""));
}

TEST_F(Obj, FacesBelowNoName) {
    EXPECT_THAT(namesOf(read(CORNERS + "f 1 2 3\n")), ElementsAre("\"defaultobject\""));
}

TEST_F(Obj, AChangeOfMaterialBeginsAMeshOfItsName) {
    const auto result =
        read(CORNERS + "g part\nf 1 2 3\nusemtl red\nf 2 3 4\nusemtl red\nf 1 3 4\nusemtl blue\n"
                       "g other\nf 1 2 4\n");
    EXPECT_THAT(namesOf(result), ElementsAre("\"part\"", "\"red\"", "\"other\""));
    EXPECT_THAT(namesOf(result, "node"),
                ElementsAre("\"a.obj\\/part\"", "\"a.obj\\/part\"", "\"a.obj\\/other\""));
    EXPECT_EQ(materialOf(result, 0), nullptr) << "no material had been named up to there";
    EXPECT_EQ(materialOf(result, 1)->identifier, 1u);
    EXPECT_EQ(materialOf(result, 2)->identifier, 2u);
}

TEST_F(Obj, IndicesFromTheEndAndAhead) {
    const auto result = read("f 1 2 3\n" + CORNERS + "f -4 -2 -1\n");
    EXPECT_THAT(cornersOf(*result.input.meshes[0], "position"),
                ElementsAre(ElementsAre(0, 0, 0), ElementsAre(1, 0, 0), ElementsAre(1, 1, 0),
                            ElementsAre(0, 0, 0), ElementsAre(1, 1, 0), ElementsAre(0, 1, 0)));
}

TEST_F(Obj, CornersOfEveryForm) {
    const std::string lists = CORNERS + "vt 0 0\nvt 1 0.5\nvn 0 0 1\nvn 0 0.6 0.8\n";
    const auto result = read(lists + "f 1/1/1 2/2/1 3/2/2\n");
    const auto& mesh = *result.input.meshes[0];
    EXPECT_THAT(numbersOf(mesh, "texcoord"), ElementsAre(0, 0, 1, 0.5, 1, 0.5));
    EXPECT_THAT(numbersOf(mesh, "normal"), ElementsAre(0, 0, 1, 0, 0, 1, 0, 0.6f, 0.8f));
    EXPECT_THAT(numbersOf(*read(lists + "f 1//2 2//2 3//2\n").input.meshes[0], "texcoord"), IsEmpty());
    EXPECT_THAT(numbersOf(*read(lists + "f 1/2 2/2 3/2/\n").input.meshes[0], "texcoord"),
                ElementsAre(1, 0.5, 1, 0.5, 1, 0.5));
}

TEST_F(Obj, VerticesThatLackWhatOthersOfTheMeshHave) {
    const auto result = read(CORNERS + "vt 1 1\nf 1/1 2 3/1\n");
    EXPECT_THAT(numbersOf(*result.input.meshes[0], "texcoord"), ElementsAre(1, 1, 0, 0, 1, 1));
}

TEST_F(Obj, PolygonsOfAnyShape) {
    // An L of area 5, whose first corners make no fan.
    const auto result = read("v 0 3 0\nv 0 0 0\nv 3 0 0\nv 3 1 0\nv 1 1 0\nv 1 3 0\nf 1 2 3 4 5 6\n");
    double area = 0.0;
    const auto corners = cornersOf(*result.input.meshes[0], "position");
    ASSERT_EQ(corners.size(), 12u);
    for (std::size_t t = 0; t < 12; t += 3) {
        const auto &a = corners[t], &b = corners[t + 1], &c = corners[t + 2];
        const float twice = (b[0] - a[0]) * (c[1] - a[1]) - (b[1] - a[1]) * (c[0] - a[0]);
        EXPECT_GT(twice, 0.0f);
        area += 0.5 * static_cast<double>(twice);
    }
    EXPECT_EQ(area, 5.0);
}

TEST_F(Obj, LinesAndPoints) {
    const auto result = read(CORNERS + "l 1 2 3\np 4 1\n");
    EXPECT_EQ(result.report.lines, 2u);
    EXPECT_EQ(result.report.points, 2u);
    EXPECT_THAT(
        cornersOf(*result.input.meshes[0], "position"),
        ElementsAre(ElementsAre(0, 0, 0), ElementsAre(1, 0, 0), ElementsAre(1, 0, 0), ElementsAre(1, 1, 0)));
    EXPECT_THAT(cornersOf(*result.input.meshes[1], "position"),
                ElementsAre(ElementsAre(0, 1, 0), ElementsAre(0, 0, 0)));
}

TEST_F(Obj, VerticesWithoutAnythingElseAreACloudOfPoints) {
    const auto result = read("vn 0 0 1\nv 0 0 0\nvn 0 1 0\nv 1 0 0\n");
    EXPECT_EQ(result.report.points, 2u);
    EXPECT_EQ(metadataOf(result, 0, "node"), "\"a.obj\"");
    EXPECT_THAT(numbersOf(*result.input.meshes[0], "normal"), ElementsAre(0, 0, 1, 0, 1, 0));
}

TEST_F(Obj, ColoursOfVertices) {
    const auto result = read("v 0 0 0 1 0 0.5\nv 1 0 0\nv 1 1 0 0 1 0 0.5\nf 1 2 3\n");
    EXPECT_THAT(numbersOf(*result.input.meshes[0], "color"), ElementsAre(1, 0, 0.5, 1, 1, 1, 0, 1, 0));
    EXPECT_EQ(droppedOf(result, "alpha channels"), 1u);
}

TEST_F(Obj, AFourthCoordinateDivides) {
    const auto result = read("v 0 0 0 1\nv 2 0 0 2\nv 0 4 8 4\nf 1 2 3\n");
    EXPECT_THAT(numbersOf(*result.input.meshes[0], "position"), ElementsAre(0, 0, 0, 1, 0, 0, 0, 1, 2));
}

TEST_F(Obj, LinesJoinedByABackslashAndComments) {
    const auto result =
        read("# a part\nv 0 0 0 # the first\nv 1 \\\n0 0\r\nv 1 1 0\r\nf 1 2 \\\r\n 3 # done\n");
    EXPECT_EQ(result.report.triangles, 1u);
}

TEST_F(Obj, TextInUtf16AndWithAByteOrderMark) {
    const std::string text = CORNERS + "g tür\nf 1 2 3\n";
    EXPECT_THAT(namesOf(read("\xEF\xBB\xBF" + text)), ElementsAre("\"tür\""));
    for (const bool isBigEndian : {false, true}) {
        std::string wide;
        for (const char32_t unit : U"\xFEFFv 0 0 0\nv 1 0 0\nv 0 1 0\ng tür\nf 1 2 3\n") {
            const char high = static_cast<char>(unit >> 8), low = static_cast<char>(unit & 0xff);
            wide += isBigEndian ? high : low;
            wide += isBigEndian ? low : high;
        }
        wide.resize(wide.size() - 2); // the zero that ends a literal
        EXPECT_THAT(namesOf(read(wide)), ElementsAre("\"tür\""));
    }
}

TEST_F(Obj, NumbersAreTheNearestFloats) {
    const auto result = read("v 0.1 -.5 +2.\nv 1E-3 3.3e1 16777217\nv 1e-60 0 0\n"
                             "vn 0.6 0 0.8\nf 1//1 2//1 3//1\n");
    EXPECT_THAT(numbersOf(*result.input.meshes[0], "position"),
                ElementsAre(0.1f, -0.5f, 2.0f, 0.001f, 33.0f, 16777216.0f, 0.0f, 0.0f, 0.0f));
}

TEST_F(Obj, ATerrainKeepsItsSteps) {
    std::string text;
    for (std::size_t step = 0; step < 81; ++step) {
        const std::string cents[] = {".00", ".25", ".50", ".75"};
        text += "v " + std::to_string(500123 + step) + " " + std::to_string(5400321 + step / 4) +
                cents[step % 4] + " 10\n";
    }
    ImportOptions options;
    options.origin.choice = Origin::AUTO;
    const auto result = read(text, options);
    EXPECT_EQ(result.report.positionError, 0.0);
    const std::vector<float> positions = numbersOf(*result.input.meshes[0], "position");
    std::set<float> different;
    for (std::size_t i = 1; i < positions.size(); i += 3)
        different.insert(positions[i]);
    EXPECT_EQ(different.size(), 81u);
    EXPECT_EQ(result.report.origin[1] + static_cast<double>(positions[4]), 5400321.25);

    options.origin.choice = Origin::KEEP;
    EXPECT_EQ(read(text, options).report.positionError, 0.25) << "floats there are 0.5 apart";
}

TEST_F(Obj, AVertexThatNothingUsesTakesNoPrecisionFromOthers) {
    // From zero to the triangle is so far that floats would be as good as any number.
    ImportOptions options;
    options.origin.choice = Origin::AUTO;
    const auto result =
        read("v 0 0 0\nv 0 5400321.25 0\nv 1 5400321.25 0\nv 0 5400322 0\nf 2 3 4\n", options);
    EXPECT_EQ(result.report.positionError, 0.0);
    EXPECT_EQ(result.report.origin[1] +
                  static_cast<double>(numbersOf(*result.input.meshes[0], "position")[1]),
              5400321.25);
}

TEST_F(Obj, VerticesBelowANameWithoutFacesAreACloudToo) {
    EXPECT_EQ(read("o cloud\nv 0 0 0\nv 1 0 0\n").report.points, 2u);
}

TEST_F(Obj, MaterialsAreFoundWithAndWithoutBlanks) {
    file("my colours.mtl", "newmtl red\nKd 1 0 0\nmap_Kd -s 2 2 2 -o 1 wall paper.png\n");
    file("b.mtl", "newmtl blue\nKd 0 0 1\nbump -bm 0.5 wall.png\nmap_Ka wall.png\n");
    const auto one = read("mtllib my colours.mtl\nusemtl red\n" + CORNERS + "f 1 2 3\n");
    EXPECT_EQ(materialOf(one, 0)->getDiffuse(), glm::vec3(1, 0, 0));
    ASSERT_EQ(one.report.dropped.size(), 2u); // and a vertex without a face
    EXPECT_EQ(one.report.dropped[0].detail, "wall paper.png");
    const auto two = read("mtllib none.mtl b.mtl\nusemtl blue\n" + CORNERS + "f 1 2 3\n");
    EXPECT_EQ(materialOf(two, 0)->getDiffuse(), glm::vec3(0, 0, 1));
    EXPECT_EQ(droppedOf(two, "textures"), 1u);
    ASSERT_EQ(two.report.notes.size(), 1u);
    EXPECT_THAT(two.report.notes[0], HasSubstr("none.mtl"));
}

TEST_F(Obj, AMissingMaterialFileIsTold) {
    const auto result = read("mtllib gone.mtl\nusemtl grey\n" + CORNERS + "f 1 2 3\n");
    ASSERT_EQ(result.report.notes.size(), 1u);
    EXPECT_THAT(result.report.notes[0], HasSubstr((folder / "gone.mtl").string()));
    EXPECT_EQ(materialOf(result, 0)->getDiffuse(), glm::vec3(0.6f));
}

TEST_F(Obj, MaterialsOfTheModelsOwnNameStandIn) {
    file("a.mtl", "newmtl red\nKd 1 0 0\nTr 0.25\n");
    const auto result = read("mtllib old.mtl\nusemtl red\n" + CORNERS + "f 1 2 3\n");
    EXPECT_EQ(materialOf(result, 0)->getDiffuse(), glm::vec3(1, 0, 0));
    EXPECT_EQ(materialOf(result, 0)->getTransparency(), 0.25f);
    EXPECT_EQ(result.report.notes.size(), 1u);
}

TEST_F(Obj, WhatIsLeftOutIsTold) {
    const auto result =
        read(CORNERS + "v 5 5 5\nvt 0 0 0.5\nf 1/1 2/1 3/1\nf 3/1 4/1 1/1\nsurf 0 1 0 1 1 2\n");
    EXPECT_EQ(droppedOf(result, "vertices that no primitive uses"), 1u);
    EXPECT_EQ(droppedOf(result, "third texture coordinates"), 1u);
    EXPECT_EQ(droppedOf(result, "free-form curves and surfaces"), 1u);
}

TEST_F(Obj, WhatIsNoNumberIsAnErrorWithItsLine) {
    EXPECT_EQ(refusal("v 0 0 0\nv 1 0 zero\n").place(), "line 2");
    EXPECT_EQ(refusal("v 0 0 0\nv 1 0\n").place(), "line 2");
    EXPECT_EQ(refusal(CORNERS + "f 1 2 x\n").place(), "line 5");
    EXPECT_EQ(refusal(CORNERS + "f 1 2 3-\n").place(), "line 5");
    EXPECT_EQ(refusal(CORNERS + "f 0 1 2\n").code(), ImportCode::INDEX_OUT_OF_RANGE);
    EXPECT_EQ(refusal(CORNERS + "f 1 2 99999999999999999999\n").code(), ImportCode::INVALID_MODEL);
    EXPECT_EQ(refusal(CORNERS + "\n\nf 1 2 5\n").place(), "line 7");
}

TEST_F(Obj, DamagedFilesAreErrorsOrModels) {
    expectErrorsOrModels("a.obj", "mtllib a.mtl\no a\n" + CORNERS +
                                      "vt 0 0\nvn 0 0 1\nusemtl m\nf 1/1/1 2/1/1 3//1 \\\n4\nl 1 2\np 1\n");
}

} // namespace kel::importer::test
