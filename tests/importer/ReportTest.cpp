#include "GltfText.h"
#include "ImporterTest.h"

#include <set>

namespace kel::importer::test {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

class Report : public ImporterTest {};

TEST_F(Report, APlainModelLosesNothing) {
    const auto result = import("plain.gltf", oneTriangle().json());
    EXPECT_THAT(result.report.dropped, IsEmpty());
    EXPECT_THAT(result.report.notes, IsEmpty());
    EXPECT_EQ(result.report.meshes, 1u);
    EXPECT_EQ(result.report.vertices, 3u);
    EXPECT_EQ(result.report.format, "glTF2");
}

TEST_F(Report, TexturesAreCountedOncePerFile) {
    file("m.mtl", "newmtl a\nmap_Kd wood.png\nmap_Ks wood.png\nnewmtl b\nmap_Kd steel.png\n");
    const auto result =
        import("m.obj", "mtllib m.mtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\nusemtl a\nf 1 2 3\nusemtl b\nf 1 3 2\n");
    EXPECT_EQ(droppedOf(result, "textures"), 2u);
}

TEST_F(Report, AlphaOfVertexColoursIsCountedWhereItMatters) {
    const auto ply = [](const char* alpha) {
        return std::string("ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
                           "property float z\nproperty uchar red\nproperty uchar green\nproperty uchar blue\n"
                           "property uchar alpha\nelement face 1\nproperty list uchar int vertex_indices\n"
                           "end_header\n0 0 0 255 0 0 255\n1 0 0 255 0 0 ") +
               alpha + "\n0 1 0 255 0 0 255\n3 0 1 2\n";
    };
    EXPECT_EQ(droppedOf(import("half.ply", ply("128")), "alpha channels"), 1u);
    EXPECT_EQ(droppedOf(import("full.ply", ply("255")), "alpha channels"), 0u);
}

TEST_F(Report, ColoursWithoutAlphaHaveNoneToLose) {
    GltfText gltf = oneTriangle();
    gltf.addVec3({1, 0, 0, 0, 1, 0, 0, 0, 1});
    gltf.meshes[0] = R"({"primitives":[{"attributes":{"POSITION":0,"COLOR_0":1}}]})";
    EXPECT_EQ(droppedOf(import("rgb.gltf", gltf.json()), "alpha channels"), 0u);
}

TEST_F(Report, CamerasLightsAnimationsAndBones) {
    const auto fbx = importModel("/usr/share/assimp/models/FBX/spider.fbx");
    EXPECT_EQ(droppedOf(fbx, "cameras"), 1u);
    EXPECT_EQ(droppedOf(fbx, "lights"), 1u);
    const auto skin = importModel("/usr/share/assimp/models/glTF2/simple_skin/simple_skin.gltf");
    EXPECT_EQ(droppedOf(skin, "bones"), 2u);
    EXPECT_EQ(droppedOf(skin, "animations"), 1u);
    EXPECT_EQ(skin.report.triangles, 8u);
}

TEST_F(Report, BonesOfABinaryGltfLeaveItsGeometryAlone) {
    GltfText gltf = oneTriangle(R"({"mesh":0,"skin":0})");
    gltf.nodes.push_back(R"({"name":"joint"})");
    gltf.roots = "0,1";
    // A skin without matrices of its own is allowed and stands for identity.
    gltf.more = R"(,"skins":[{"joints":[1]}])";
    const auto result = import("skin.glb", gltf.glb());
    EXPECT_EQ(droppedOf(result, "bones"), 1u);
    EXPECT_THAT(numbersOf(*result.input.meshes[0], "position"),
                testing::ElementsAre(0, 0, 0, 1, 0, 0, 0, 1, 0));
}

TEST_F(Report, MorphTargetsAndTangents) {
    GltfText gltf = oneTriangle();
    gltf.addVec3({0, 0, 1, 0, 0, 1, 0, 0, 1});
    gltf.add(std::vector<float>{1, 0, 0, 1, 1, 0, 0, 1, 1, 0, 0, 1}, 5126, "VEC4", 4);
    gltf.meshes[0] = R"({"primitives":[{"attributes":{"POSITION":0,"NORMAL":1,"TANGENT":2},)"
                     R"("targets":[{"POSITION":1},{"POSITION":1}]}]})";
    const auto result = import("morph.gltf", gltf.json());
    EXPECT_EQ(droppedOf(result, "morph targets"), 2u);
    EXPECT_EQ(droppedOf(result, "tangents"), 1u);
}

TEST_F(Report, WhatNoNodeUses) {
    GltfText gltf = oneTriangle();
    gltf.meshes.push_back(gltf.meshes[0]);
    gltf.nodes.push_back(R"({"extras":{"kept":"nowhere"}})");
    gltf.roots = "0,1";
    const auto result = import("unused.gltf", gltf.json());
    EXPECT_EQ(droppedOf(result, "meshes that no node uses"), 1u);
    EXPECT_EQ(droppedOf(result, "extras of nodes without a mesh"), 1u);
}

TEST_F(Report, CustomAttributesOfAGltfAreKeptUnlessTheyAreMatrices) {
    GltfText gltf = oneTriangle();
    gltf.add(std::vector<float>{1, 2, 3}, 5126, "SCALAR", 1);
    gltf.add(std::vector<float>(48), 5126, "MAT4", 16);
    gltf.meshes[0] = R"({"primitives":[{"attributes":{"POSITION":0,"_WEAR":1,"_FRAME":2}}]})";
    const auto result = import("more.gltf", gltf.json());
    EXPECT_EQ(droppedOf(result, "custom attributes"), 1u);
    EXPECT_THAT(numbersOf(*result.input.meshes.at(0), "_WEAR"), testing::ElementsAre(1, 2, 3));
}

TEST_F(Report, FreeFormSurfacesOfAWavefrontFile) {
    const auto result =
        import("surf.obj",
               "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\ncstype bezier\ndeg 1 1\nsurf 0 1 0 1 1 2 3 1\nend\n");
    EXPECT_EQ(droppedOf(result, "free-form curves and surfaces"), 1u);
}

TEST_F(Report, AMaterialFileThatIsNotThereIsNamed) {
    const auto result = import("m.obj", "mtllib nowhere.mtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
    EXPECT_THAT(result.report.notes, Contains(HasSubstr("nowhere.mtl")));
}

TEST_F(Report, EveryKindComesOnce) {
    const auto result = importModel("/usr/share/assimp/models/FBX/spider.fbx");
    std::set<std::string> kinds;
    for (const Dropped& dropped : result.report.dropped) {
        EXPECT_TRUE(kinds.insert(dropped.kind).second) << dropped.kind;
        EXPECT_GT(dropped.count, 0u);
    }
}

} // namespace kel::importer::test
