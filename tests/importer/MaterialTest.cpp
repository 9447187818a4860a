#include "GltfText.h"
#include "ImporterTest.h"

namespace kel::importer::test {

using kel::material::MaterialClassic;
using testing::IsEmpty;
using testing::SizeIs;

class Materials : public ImporterTest {
protected:
    static void expectColor(const glm::vec3& color, float r, float g, float b) {
        EXPECT_NEAR(color.r, r, 1e-6f);
        EXPECT_NEAR(color.g, g, 1e-6f);
        EXPECT_NEAR(color.b, b, 1e-6f);
    }
    std::shared_ptr<MaterialClassic> gltfMaterial(const std::string& material) const {
        GltfText gltf = oneTriangle();
        gltf.meshes[0] = R"({"primitives":[{"attributes":{"POSITION":0},"material":0}]})";
        gltf.more = ",\"materials\":[" + material + "]";
        return materialOf(import("material.gltf", gltf.json()), 0);
    }
    std::shared_ptr<MaterialClassic> mtlMaterial(const std::string& lines) const {
        file("m.mtl", "newmtl m\n" + lines);
        return materialOf(import("m.obj", "mtllib m.mtl\nusemtl m\nv 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n"), 0);
    }
};

TEST_F(Materials, ClassicColoursAreTakenAsTheyAre) {
    const auto m = mtlMaterial("Kd 0.4 0.6 0.2\nKs 0.25 0.5 0.75\nKe 0.1 0 0\nNs 32\nd 0.25\n");
    ASSERT_TRUE(m);
    expectColor(m->getDiffuse(), 0.4f, 0.6f, 0.2f);
    expectColor(m->getSpecular(), 0.25f, 0.5f, 0.75f);
    expectColor(m->getEmissive(), 0.1f, 0.0f, 0.0f);
    EXPECT_FLOAT_EQ(m->getShininess(), 0.25f); // 32 of 128
    EXPECT_FLOAT_EQ(m->getTransparency(), 0.75f);
}

TEST_F(Materials, AmbientBecomesAnIntensityOfTheDiffuseColour) {
    EXPECT_FLOAT_EQ(mtlMaterial("Ka 0.2 0.3 0.1\nKd 0.4 0.6 0.2\n")->getAmbient(), 0.5f);
    EXPECT_FLOAT_EQ(mtlMaterial("Ka 1 1 1\nKd 0.4 0.6 0.2\n")->getAmbient(), 1.0f) << "at most 1";
    EXPECT_FLOAT_EQ(mtlMaterial("Ka 0.3 0.3 0.3\nKd 0 0 0\n")->getAmbient(), 0.3f) << "nothing to relate to";
}

TEST_F(Materials, LargeExponentsAreTheLargestShininess) {
    EXPECT_FLOAT_EQ(mtlMaterial("Ns 900\n")->getShininess(), 1.0f);
}

TEST_F(Materials, MetallicRoughnessFollowsTheRule) {
    const auto m = gltfMaterial(R"({"pbrMetallicRoughness":{"baseColorFactor":[0.5,0.25,1,0.5],)"
                                R"("metallicFactor":0.25,"roughnessFactor":0.5},)"
                                R"("emissiveFactor":[0,0.5,0],"alphaMode":"BLEND"})");
    ASSERT_TRUE(m);
    expectColor(m->getDiffuse(), 0.375f, 0.1875f, 0.75f);
    // 0.04 * 0.75 + c * 0.25
    expectColor(m->getSpecular(), 0.155f, 0.0925f, 0.28f);
    expectColor(m->getEmissive(), 0.0f, 0.5f, 0.0f);
    EXPECT_FLOAT_EQ(m->getAmbient(), 0.2f);
    EXPECT_FLOAT_EQ(m->getShininess(), 30.0f / 128.0f); // 2 / 0.0625 - 2
    EXPECT_FLOAT_EQ(m->getTransparency(), 0.5f);
}

TEST_F(Materials, AlphaCountsOnlyWhereBlendingIsAskedFor) {
    EXPECT_FLOAT_EQ(
        gltfMaterial(R"({"pbrMetallicRoughness":{"baseColorFactor":[1,1,1,0.5]}})")->getTransparency(), 0.0f);
}

TEST_F(Materials, ShininessStaysBetween0And1) {
    EXPECT_FLOAT_EQ(gltfMaterial(R"({"pbrMetallicRoughness":{"roughnessFactor":0}})")->getShininess(), 1.0f);
    EXPECT_FLOAT_EQ(gltfMaterial(R"({"pbrMetallicRoughness":{"roughnessFactor":1}})")->getShininess(), 0.0f);
}

TEST_F(Materials, AnUnlitMaterialGlows) {
    GltfText gltf = oneTriangle();
    gltf.meshes[0] = R"({"primitives":[{"attributes":{"POSITION":0},"material":0}]})";
    gltf.more = R"(,"extensionsUsed":["KHR_materials_unlit"],"materials":[{"pbrMetallicRoughness":)"
                R"({"baseColorFactor":[0.5,0.25,1,1]},"extensions":{"KHR_materials_unlit":{}}}])";
    const auto m = materialOf(import("unlit.gltf", gltf.json()), 0);
    expectColor(m->getEmissive(), 0.5f, 0.25f, 1.0f);
    expectColor(m->getDiffuse(), 0.0f, 0.0f, 0.0f);
    expectColor(m->getSpecular(), 0.0f, 0.0f, 0.0f);
}

TEST_F(Materials, MeshesOfOneMaterialShareItAndItsIdentifierIsItsPlace) {
    GltfText gltf = oneTriangle();
    gltf.meshes[0] = R"({"primitives":[{"attributes":{"POSITION":0},"material":2}]})";
    gltf.meshes.push_back(R"({"primitives":[{"attributes":{"POSITION":0},"material":1}]})");
    gltf.nodes = {R"({"mesh":0})", R"({"mesh":1})", R"({"mesh":0,"translation":[2,0,0]})"};
    gltf.roots = "0,1,2";
    gltf.more = R"(,"materials":[{"name":"unused"},{"name":"one"},{"name":"two"}])";
    const auto result = import("shared.gltf", gltf.json());
    EXPECT_THAT(result.input.materials, SizeIs(2));
    EXPECT_EQ(materialOf(result, 0), materialOf(result, 2));
    EXPECT_EQ(materialOf(result, 0)->identifier, 2u);
    EXPECT_EQ(materialOf(result, 1)->identifier, 1u);
}

TEST_F(Materials, NoneIsMadeUp) {
    EXPECT_THAT(import("plain.gltf", oneTriangle().json()).input.materials, IsEmpty());
    EXPECT_THAT(import("plain.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n").input.materials, IsEmpty());
    EXPECT_THAT(import("plain.off", "OFF\n3 1 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n").input.materials, IsEmpty());
}

} // namespace kel::importer::test
