#include <kel/scene/Scene.h>

#include <support/Meshes.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace kel::scene;
using kel::src::SrcWriterInput;

TEST(Scene, TakesAnInputAndGivesItBack) {
    SrcWriterInput input = fixture::twoMaterials();
    input.useCompressedPreset = true;
    const SrcWriterInput result = toInput(fromInput(input));
    EXPECT_EQ(result.meshes, input.meshes);
    EXPECT_EQ(result.materials, input.materials);
    EXPECT_EQ(result.meshMaterials, input.meshMaterials);
    EXPECT_EQ(result.metaData, input.metaData);
    EXPECT_TRUE(result.useCompressedPreset);
}

TEST(Scene, HoldsMaterialAndMetadataBesideTheMesh) {
    const SrcWriterInput input = fixture::twoMaterials();
    const Scene scene = fromInput(input);
    ASSERT_EQ(scene.meshes.size(), 2u);
    for (const SceneMesh& entry : scene.meshes) {
        EXPECT_EQ(entry.material, input.meshMaterials.at(entry.mesh));
        EXPECT_EQ(entry.metaData, input.metaData.at(entry.mesh));
        EXPECT_FALSE(entry.ownsMetaData);
    }
    EXPECT_FALSE(scene.repeatsMeshes);
}

TEST(Scene, TellsThatAMeshIsListedTwice) {
    SrcWriterInput input = fixture::inputOf({fixture::unitSquare()});
    input.meshes.push_back(nullptr);
    input.meshes.push_back(nullptr);
    EXPECT_FALSE(fromInput(input).repeatsMeshes);
    input.meshes.push_back(input.meshes[0]);
    const Scene scene = fromInput(input);
    EXPECT_TRUE(scene.repeatsMeshes);
    EXPECT_EQ(toInput(scene).meshes, input.meshes);
}

TEST(Scene, LeavesOutWhatIsSaidOfMeshesThatAreNotListed) {
    SrcWriterInput input = fixture::twoMaterials();
    input.meshes.pop_back();
    const SrcWriterInput result = toInput(fromInput(input));
    EXPECT_EQ(result.metaData.size(), 1u);
    EXPECT_EQ(result.meshMaterials.size(), 1u);
    EXPECT_EQ(result.materials, input.materials);
}

TEST(SceneMesh, CopiesACallersMetadataBeforeTheFirstChangeOnly) {
    const SrcWriterInput input = fixture::inputOf({fixture::unitSquare()});
    Scene scene = fromInput(input);
    SceneMesh& entry = scene.meshes[0];
    entry.setMetaData("a", "1");
    const auto own = entry.metaData;
    EXPECT_NE(own, input.metaData.at(entry.mesh));
    EXPECT_EQ(input.metaData.at(entry.mesh)->count("a"), 0u);
    entry.setMetaData("b", "2");
    EXPECT_EQ(entry.metaData, own);
    ASSERT_NE(entry.find("name"), nullptr);
    EXPECT_EQ(*entry.find("name"), "\"mesh0\"");
    EXPECT_EQ(*entry.find("a"), "1");
    EXPECT_EQ(entry.find("c"), nullptr);
}

TEST(SceneMesh, GetsAMapWhereThereWasNone) {
    SceneMesh entry;
    EXPECT_EQ(entry.find("a"), nullptr);
    entry.setMetaData("a", "1");
    EXPECT_EQ(*entry.find("a"), "1");
}

TEST(Scene, NamesPlacesForPeople) {
    SrcWriterInput input = fixture::inputOf({fixture::unitSquare(), fixture::unitSquare()});
    input.metaData.erase(input.meshes[1]);
    const Scene scene = fromInput(input);
    EXPECT_EQ(placeOfMesh(scene, 0), "Mesh 0 (\"mesh0\")");
    EXPECT_EQ(placeOfMesh(scene, 1), "Mesh 1");
}

} // namespace
