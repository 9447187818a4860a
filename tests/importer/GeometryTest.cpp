#include "GltfText.h"
#include "ImporterTest.h"

#include <cmath>
#include <map>
#include <set>

namespace kel::importer::test {

using testing::ElementsAre;
using testing::FloatNear;
using testing::IsEmpty;
using testing::SizeIs;

class Geometry : public ImporterTest {};

const char* const SQUARE = "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\n";

TEST_F(Geometry, CornersWithEqualAttributesAreOneVertex) {
    const auto result = import("square.obj", std::string(SQUARE) + "f 1 2 3\nf 1 3 4\n");
    ASSERT_THAT(result.input.meshes, SizeIs(1));
    const auto& mesh = *result.input.meshes[0];
    EXPECT_EQ(mesh.getPrimitiveType(), kel::mesh::TRIANGLES);
    EXPECT_THAT(indicesOf(mesh), ElementsAre(0, 1, 2, 0, 2, 3));
    EXPECT_THAT(numbersOf(mesh, "position"), ElementsAre(0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0));
}

TEST_F(Geometry, CornersWithDifferentTextureCoordinatesStayApart) {
    const auto result = import("seam.obj", std::string(SQUARE) + "vt 0 0\nvt 1 0\nvt 0.5 1\n" +
                                               "f 1/1 2/2 3/3\nf 1/2 3/3 4/1\n");
    // Corner 1 has two texture coordinates; corner 3 has the same one twice.
    EXPECT_EQ(result.report.vertices, 5u);
}

TEST_F(Geometry, NegativeZeroIsZero) {
    const auto result =
        import("zero.obj", "v -0 0 0\nv 1 0 0\nv 1 1 0\nv 0 0 0\nv 0 1 0\nf 1 2 3\nf 4 3 5\n");
    EXPECT_EQ(result.report.vertices, 4u);
    EXPECT_FALSE(std::signbit(numbersOf(*result.input.meshes[0], "position")[0]));
}

TEST_F(Geometry, PolygonsBecomeTrianglesThatCoverThem) {
    // An arrow head with a reflex corner at (1, 1): a fan from the first corner would cover too much.
    const auto result = import("concave.obj", "v 0 3 0\nv 0 0 0\nv 3 0 0\nv 1 1 0\nf 1 2 3 4\n");
    EXPECT_EQ(result.report.triangles, 2u);
    const auto corners = cornersOf(*result.input.meshes[0], "position");
    double area = 0.0;
    for (std::size_t t = 0; t < corners.size(); t += 3) {
        const auto &a = corners[t], &b = corners[t + 1], &c = corners[t + 2];
        const double twice = (b[0] - a[0]) * (c[1] - a[1]) - (c[0] - a[0]) * (b[1] - a[1]);
        EXPECT_GT(twice, 0.0) << "counter-clockwise, as the polygon";
        area += 0.5 * twice;
    }
    EXPECT_DOUBLE_EQ(area, 3.0); // two triangles of 3 * 1 / 2
}

TEST_F(Geometry, AMeshUsedByTwoNodesBecomesTwoMeshes) {
    GltfText gltf = oneTriangle(R"({"mesh":0,"translation":[10,0,0]})");
    gltf.nodes.push_back(R"({"mesh":0,"scale":[2,2,2],"children":[2],"name":"parent"})");
    gltf.nodes.push_back(R"({"mesh":0,"translation":[0,0,5]})");
    gltf.roots = "0,1";
    const auto result = import("twice.gltf", gltf.json());
    ASSERT_THAT(result.input.meshes, SizeIs(3));
    EXPECT_THAT(numbersOf(*result.input.meshes[0], "position"), ElementsAre(10, 0, 0, 11, 0, 0, 10, 1, 0));
    EXPECT_THAT(numbersOf(*result.input.meshes[1], "position"), ElementsAre(0, 0, 0, 2, 0, 0, 0, 2, 0));
    EXPECT_THAT(numbersOf(*result.input.meshes[2], "position"), ElementsAre(0, 0, 10, 2, 0, 10, 0, 2, 10));
    EXPECT_EQ(result.report.triangles, 3u);
}

TEST_F(Geometry, MirroringKeepsTheFrontInFront) {
    GltfText gltf = oneTriangle(R"({"mesh":0,"scale":[-1,1,1]})");
    const auto normal = gltf.addVec3({0, 0, 1, 0, 0, 1, 0, 0, 1});
    gltf.meshes[0] =
        R"({"primitives":[{"attributes":{"POSITION":0,"NORMAL":)" + std::to_string(normal) + "}}]}";
    const auto result = import("mirror.gltf", gltf.json());
    const auto& mesh = *result.input.meshes[0];
    const auto corners = cornersOf(mesh, "position");
    // Still counter-clockwise seen from +z, and the normals still point there.
    EXPECT_THAT(corners, ElementsAre(ElementsAre(0, 0, 0), ElementsAre(0, 1, 0), ElementsAre(-1, 0, 0)));
    EXPECT_THAT(cornersOf(mesh, "normal"), testing::Each(ElementsAre(0, 0, 1)));
}

TEST_F(Geometry, TwoMirrorsAreNone) {
    const auto result = import("twice.gltf", oneTriangle(R"({"mesh":0,"scale":[-1,-1,1]})").json());
    EXPECT_THAT(cornersOf(*result.input.meshes[0], "position"),
                ElementsAre(ElementsAre(0, 0, 0), ElementsAre(-1, 0, 0), ElementsAre(0, -1, 0)));
}

TEST_F(Geometry, NormalsFollowTheInverseTranspose) {
    GltfText gltf;
    // The slope z = x: its normal is (-1, 0, 1). Stretched by 2 along x it is z = x / 2: (-1, 0, 2).
    const auto position = gltf.addVec3({0, 0, 0, 1, 0, 1, 0, 1, 0});
    const float h = std::sqrt(0.5f);
    const auto normal = gltf.addVec3({-h, 0, h, -h, 0, h, -h, 0, h});
    gltf.addMesh("\"POSITION\":" + std::to_string(position) + ",\"NORMAL\":" + std::to_string(normal));
    gltf.nodes.push_back(R"({"mesh":0,"scale":[2,1,1]})");
    const auto result = import("slope.gltf", gltf.json());
    const auto normals = numbersOf(*result.input.meshes[0], "normal");
    ASSERT_THAT(normals, SizeIs(9));
    EXPECT_NEAR(normals[0], -1.0 / std::sqrt(5.0), 1e-6);
    EXPECT_NEAR(normals[1], 0.0, 1e-6);
    EXPECT_NEAR(normals[2], 2.0 / std::sqrt(5.0), 1e-6);
}

TEST_F(Geometry, AFlatteningTransformKeepsUsableNormals) {
    GltfText gltf = oneTriangle(R"({"mesh":0,"scale":[1,1,0]})");
    const auto result = import("flat.gltf", gltf.json());
    EXPECT_THAT(cornersOf(*result.input.meshes[0], "normal"), testing::Each(ElementsAre(0, 0, 1)));
}

TEST_F(Geometry, TransformsAreMultipliedInDoublePrecision) {
    // In single precision 1e8 + 1 - 1e8 is 0.
    GltfText gltf = oneTriangle(R"({"mesh":0,"translation":[-100000000,0,0]})");
    gltf.nodes.push_back(R"({"children":[2],"translation":[100000000,0,0]})");
    gltf.nodes.push_back(R"({"children":[0],"translation":[1,0,0]})");
    gltf.roots = "1";
    const auto result = import("far.gltf", gltf.json());
    EXPECT_THAT(numbersOf(*result.input.meshes[0], "position"), ElementsAre(1, 0, 0, 2, 0, 0, 1, 1, 0));
}

TEST_F(Geometry, ACubeWithoutNormalsGetsSharpEdges) {
    const auto result =
        import("cube.obj", "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 0 0 1\nv 1 0 1\nv 1 1 1\nv 0 1 1\n"
                           "f 1 4 3 2\nf 5 6 7 8\nf 1 2 6 5\nf 2 3 7 6\nf 3 4 8 7\nf 4 1 5 8\n");
    EXPECT_EQ(result.report.vertices, 24u);
    const auto& mesh = *result.input.meshes[0];
    const auto positions = cornersOf(mesh, "position");
    const auto normals = cornersOf(mesh, "normal");
    for (std::size_t t = 0; t < positions.size(); t += 3) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const bool flat =
                positions[t][axis] == positions[t + 1][axis] && positions[t][axis] == positions[t + 2][axis];
            const float outwards = positions[t][axis] == 0.0f ? -1.0f : 1.0f;
            for (std::size_t c = t; c < t + 3; ++c)
                EXPECT_EQ(normals[c][axis], flat ? outwards : 0.0f);
        }
    }
}

TEST_F(Geometry, ABentSurfaceWithoutNormalsIsSmooth) {
    // Two squares that meet in the y axis, each sloping down by 45 degrees / 2 on its side.
    const auto result = import("roof.obj", "v 0 0 0\nv 0 1 0\nv 2 0 -1\nv 2 1 -1\nv -2 0 -1\nv -2 1 -1\n"
                                           "f 1 3 4 2\nf 1 2 6 5\n");
    EXPECT_EQ(result.report.vertices, 6u);
    const auto& mesh = *result.input.meshes[0];
    const auto positions = cornersOf(mesh, "position");
    const auto normals = cornersOf(mesh, "normal");
    for (std::size_t c = 0; c < positions.size(); ++c) {
        if (positions[c][0] != 0.0f) continue;
        EXPECT_THAT(normals[c],
                    ElementsAre(FloatNear(0.0f, 1e-6f), FloatNear(0.0f, 1e-6f), FloatNear(1.0f, 1e-6f)));
    }
}

TEST_F(Geometry, SmoothNormalsIgnoreSeamsOfTextureCoordinates) {
    const auto result = import(
        "seam.obj", "v 0 0 0\nv 0 1 0\nv 2 0 -1\nv -2 0 -1\nvt 0 0\nvt 1 1\nf 1/1 3/1 2/1\nf 1/2 2/2 4/2\n");
    const auto& mesh = *result.input.meshes[0];
    const auto positions = cornersOf(mesh, "position");
    const auto normals = cornersOf(mesh, "normal");
    std::set<std::vector<float>> atOrigin;
    for (std::size_t c = 0; c < positions.size(); ++c) {
        if (positions[c] == std::vector<float>{0, 0, 0}) atOrigin.insert(normals[c]);
    }
    EXPECT_THAT(atOrigin, SizeIs(1));
}

TEST_F(Geometry, GivenNormalsAreKept) {
    const auto result = import("tilted.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nvn 0.6 0 0.8\nf 1//1 2//1 3//1\n");
    EXPECT_THAT(cornersOf(*result.input.meshes[0], "normal"),
                testing::Each(ElementsAre(FloatNear(0.6f, 1e-6f), 0.0f, FloatNear(0.8f, 1e-6f))));
}

TEST_F(Geometry, ZeroNormalsAreReplacedAndReported) {
    const auto result = import("zero.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nvn 0 0 0\nf 1//1 2//1 3//1\n");
    EXPECT_THAT(cornersOf(*result.input.meshes[0], "normal"), testing::Each(ElementsAre(0, 0, 1)));
    EXPECT_THAT(result.report.notes, testing::Contains(testing::HasSubstr("normals that were zero")));
}

TEST_F(Geometry, LinesStayLines) {
    const auto result = import("line.obj", "v 0 0 0\nv 1 0 0\nv 1 1 0\nl 1 2 3\n");
    ASSERT_THAT(result.input.meshes, SizeIs(1));
    const auto& mesh = *result.input.meshes[0];
    EXPECT_EQ(mesh.getPrimitiveType(), kel::mesh::LINES);
    EXPECT_THAT(cornersOf(mesh, "position"), ElementsAre(ElementsAre(0, 0, 0), ElementsAre(1, 0, 0),
                                                         ElementsAre(1, 0, 0), ElementsAre(1, 1, 0)));
    EXPECT_THAT(numbersOf(mesh, "normal"), IsEmpty());
    EXPECT_EQ(result.report.lines, 2u);
}

TEST_F(Geometry, PointsStayPoints) {
    const auto result =
        import("cloud.ply", "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\n"
                            "property float y\nproperty float z\nend_header\n0 0 0\n1 0 0\n0 2 0\n");
    ASSERT_THAT(result.input.meshes, SizeIs(1));
    const auto& mesh = *result.input.meshes[0];
    EXPECT_EQ(mesh.getPrimitiveType(), kel::mesh::POINTS);
    EXPECT_THAT(indicesOf(mesh), ElementsAre(0, 1, 2));
    EXPECT_THAT(numbersOf(mesh, "position"), ElementsAre(0, 0, 0, 1, 0, 0, 0, 2, 0));
    EXPECT_EQ(result.report.points, 3u);
}

TEST_F(Geometry, MixedPrimitivesAreSplitByType) {
    const auto result =
        import("mixed.obj", std::string("o part\n") + SQUARE + "v 5 5 5\nf 1 2 3\nl 3 4\np 5\n");
    std::multiset<int> types;
    for (const auto& mesh : result.input.meshes)
        types.insert(mesh->getPrimitiveType());
    EXPECT_THAT(types, ElementsAre(kel::mesh::POINTS, kel::mesh::LINES, kel::mesh::TRIANGLES));
    EXPECT_EQ(result.report.triangles, 1u);
    EXPECT_EQ(result.report.lines, 1u);
    EXPECT_EQ(result.report.points, 1u);
}

TEST_F(Geometry, AttributesHaveTheirNamesAndWidths) {
    GltfText gltf = oneTriangle();
    const auto first = gltf.addVec2({0, 0, 1, 0, 0, 1});
    const auto second = gltf.addVec2({0.25f, 0.5f, 0.25f, 0.5f, 0.25f, 0.5f});
    const auto color = gltf.addVec3({1, 0, 0, 0, 1, 0, 0, 0, 1});
    gltf.meshes[0] = R"({"primitives":[{"attributes":{"POSITION":0,"TEXCOORD_0":)" + std::to_string(first) +
                     R"(,"TEXCOORD_1":)" + std::to_string(second) + R"(,"COLOR_0":)" + std::to_string(color) +
                     "}}]}";
    const auto result = import("attributes.gltf", gltf.json());
    const auto& mesh = *result.input.meshes[0];
    std::map<std::string, std::size_t> widths;
    for (std::size_t i = 0; i < mesh.getNumAttributeBuffers(); ++i) {
        const auto buffer = mesh.getAttributeBuffer(i);
        widths[buffer->getAttributeName()] = buffer->getComponentCountPerElement();
        EXPECT_EQ(buffer->getComponentType(), kel::mesh::FLOAT);
    }
    EXPECT_THAT(widths, ElementsAre(testing::Pair("color", 3), testing::Pair("normal", 3),
                                    testing::Pair("position", 3), testing::Pair("texcoord", 2),
                                    testing::Pair("texcoord1", 2)));
    EXPECT_THAT(cornersOf(mesh, "color"),
                ElementsAre(ElementsAre(1, 0, 0), ElementsAre(0, 1, 0), ElementsAre(0, 0, 1)));
    // v counts from the bottom here and from the top in glTF.
    EXPECT_THAT(cornersOf(mesh, "texcoord"),
                ElementsAre(ElementsAre(0, 1), ElementsAre(1, 1), ElementsAre(0, 0)));
}

class IndexWidth : public ImporterTest, public testing::WithParamInterface<std::pair<int, std::size_t>> {};

TEST_P(IndexWidth, IsShortAsLongAsTheRestartIndexIsFree) {
    const auto [vertices, bytes] = GetParam();
    std::string ply = "ply\nformat ascii 1.0\nelement vertex " + std::to_string(vertices) +
                      "\nproperty float x\nproperty float y\nproperty float z\nend_header\n";
    for (int i = 0; i < vertices; ++i)
        ply += std::to_string(i) + " 0 0\n";
    const auto result = import("cloud.ply", ply);
    const auto indices = result.input.meshes[0]->getIndexBuffer();
    ASSERT_EQ(indices->getElementCount(), static_cast<std::size_t>(vertices));
    EXPECT_EQ(indices->getElementSizeInBytes(), bytes);
    EXPECT_EQ(indices->getIndex(indices->getElementCount() - 1), static_cast<std::size_t>(vertices - 1));
}
INSTANTIATE_TEST_SUITE_P(Around65535, IndexWidth,
                         testing::Values(std::pair<int, std::size_t>{65534, 2},
                                         std::pair<int, std::size_t>{65535, 2},
                                         std::pair<int, std::size_t>{65536, 4},
                                         std::pair<int, std::size_t>{65537, 4}));

TEST_F(Geometry, EqualInputGivesEqualMeshesInEqualOrder) {
    const std::string model = "/usr/share/assimp/models/OBJ/spider.obj";
    if (!std::filesystem::exists(model)) GTEST_FAIL() << "install assimp-testmodels";
    const auto one = importModel(model);
    const auto two = importModel(model);
    ASSERT_EQ(one.input.meshes.size(), two.input.meshes.size());
    for (std::size_t m = 0; m < one.input.meshes.size(); ++m) {
        EXPECT_EQ(metadataOf(one, m, "name"), metadataOf(two, m, "name"));
        EXPECT_EQ(indicesOf(*one.input.meshes[m]), indicesOf(*two.input.meshes[m]));
        for (const char* name : {"position", "normal", "texcoord"}) {
            EXPECT_EQ(numbersOf(*one.input.meshes[m], name), numbersOf(*two.input.meshes[m], name));
        }
    }
}

TEST_F(Geometry, BytesImportLikeTheFile) {
    const std::string text = std::string(SQUARE) + "f 1 2 3 4\n";
    const auto result = importModel(text.data(), text.size(), "input.obj");
    EXPECT_EQ(result.report.triangles, 2u);
    EXPECT_EQ(result.report.vertices, 4u);
    EXPECT_THAT(metadataOf(result, 0, "source"), testing::HasSubstr("\"file\":\"input.obj\""));
}

TEST_F(Geometry, BytesWithoutAnExtensionAreKnownByTheirContent) {
    const std::string glb = oneTriangle().glb();
    EXPECT_EQ(importModel(glb.data(), glb.size(), "-").report.triangles, 1u);
}

TEST_F(Geometry, NamesOutsideAsciiArePaths) {
    EXPECT_EQ(import("modèle 模型.obj", std::string(SQUARE) + "f 1 2 3\n").report.triangles, 1u);
}

TEST_F(Geometry, FilesBesideAGltfAreNamedByUri) {
    GltfText gltf = oneTriangle();
    file("with space.bin", gltf.bytes);
    std::string json = gltf.json(false);
    const std::string buffer = R"("buffers":[{)";
    json.insert(json.find(buffer) + buffer.size(), R"("uri":"with%20space.bin",)");
    EXPECT_EQ(import("beside.gltf", json).report.triangles, 1u);
}

TEST_F(Geometry, ProgressNeverRunsBackwards) {
    std::map<std::string, double> last;
    std::vector<std::string> stages;
    ImportOptions options;
    options.progress = [&](const char* stage, double done) {
        if (stages.empty() || stages.back() != stage) stages.push_back(stage);
        EXPECT_GE(done, last[stage]);
        EXPECT_LE(done, 1.0);
        last[stage] = done;
        return true;
    };
    import("square.obj", std::string(SQUARE) + "f 1 2 3\n", options);
    EXPECT_THAT(stages, ElementsAre("checking", "reading", "converting"));
    EXPECT_EQ(last["converting"], 1.0);
}

class Cancelling : public ImporterTest, public testing::WithParamInterface<const char*> {};

TEST_P(Cancelling, EndsTheImport) {
    ImportOptions options;
    options.progress = [](const char* stage, double) { return std::string(stage) != GetParam(); };
    const auto error = errorOf([&] { import("square.obj", std::string(SQUARE) + "f 1 2 3\n", options); });
    EXPECT_EQ(error.code(), ImportCode::CANCELLED);
}
INSTANTIATE_TEST_SUITE_P(EachStage, Cancelling, testing::Values("checking", "reading", "converting"));

} // namespace kel::importer::test
