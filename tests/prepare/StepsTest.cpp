#include <kel/prepare/detail/Steps.h>

#include <support/Meshes.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace kel::prepare;
using kel::scene::fromInput;
using kel::scene::Scene;
using kel::scene::SceneMesh;
using kel::src::SrcWriterInput;
using testing::ElementsAre;

std::weak_ptr<kel::mesh::AttributeBuffer> watch(const Scene& scene, std::size_t mesh, const char* attribute) {
    return scene.meshes.at(mesh).mesh->getAttributeBuffer(attribute);
}

/// Two octahedra and a row of points, each with a name and a material.
SrcWriterInput threeMeshes() {
    SrcWriterInput input =
        fixture::inputOf({fixture::octahedron(), fixture::octahedron(), fixture::pointRow(5)});
    for (std::size_t m = 0; m < input.meshes.size(); ++m) {
        const auto material = fixture::material(static_cast<float>(m), 0, 0);
        input.materials.insert(material);
        input.meshMaterials[input.meshes[m]] = material;
    }
    return input;
}

/// The numbers of the meshes that the scene's are, or are parts of, each of which has that mesh's material.
std::vector<std::size_t> origins(const Scene& scene, const SrcWriterInput& before) {
    std::vector<std::size_t> numbers;
    for (const SceneMesh& entry : scene.meshes) {
        numbers.push_back(std::stoul(nameOfMesh(entry).substr(4)));
        EXPECT_EQ(entry.material, before.meshMaterials.at(before.meshes.at(numbers.back())));
    }
    return numbers;
}

TEST(Steps, FreeWhatTheyReplace) {
    Scene scene = fromInput(threeMeshes());
    const auto positions = watch(scene, 0, "position"), normals = watch(scene, 0, "normal");
    steps::transform(scene, {2.0});
    EXPECT_TRUE(positions.expired());
    EXPECT_FALSE(normals.expired());
    steps::optimizeForGpu(scene);
    EXPECT_TRUE(normals.expired());
    const auto points = watch(scene, 2, "position");
    steps::splitForShortIndices(scene, {4});
    EXPECT_TRUE(points.expired());
}

TEST(Steps, LeaveMetadataAloneThatTheyDoNotChange) {
    const SrcWriterInput input = threeMeshes();
    Scene scene = fromInput(input);
    steps::optimizeForGpu(scene);
    steps::keepStoredAttributes(scene);
    steps::keepAttributesApart(scene);
    EXPECT_NE(scene.meshes[1].mesh, input.meshes[0]);
    for (const SceneMesh& entry : scene.meshes) {
        EXPECT_FALSE(entry.ownsMetaData);
        EXPECT_EQ(entry.metaData.use_count(), 2); // the input's handle and the scene's
    }
}

TEST(Steps, CarryMaterialAndMetadataAlong) {
    const SrcWriterInput input = threeMeshes();
    Scene scene = fromInput(input);
    steps::transform(scene, {0.5, UpAxis::Y, UpAxis::Z});
    steps::optimizeForGpu(scene);
    steps::keepStoredAttributes(scene);
    EXPECT_THAT(origins(scene, input), ElementsAre(0, 1, 2));
    steps::keepAttributesApart(scene); // the points have no normals, so they come first
    EXPECT_THAT(origins(scene, input), ElementsAre(2, 0, 1));
    steps::fitToRange(scene);
    EXPECT_THAT(origins(scene, input), ElementsAre(2, 0, 1));
    steps::splitForShortIndices(scene, {5}); // the octahedra have six vertices
    EXPECT_THAT(origins(scene, input), ElementsAre(2, 0, 0, 1, 1));
    EXPECT_EQ(*scene.meshes[2].find("part"), "1");
    EXPECT_NE(scene.meshes[2].find("fit"), nullptr);
    EXPECT_NE(scene.meshes[2].find("transform"), nullptr);
}

TEST(Steps, GiveTheSameAsTheFunctionsOfTheirNames) {
    const SrcWriterInput input = threeMeshes();
    Scene scene = fromInput(input);
    steps::transform(scene, {3.0, UpAxis::X, UpAxis::Y});
    steps::optimizeForGpu(scene);
    steps::keepAttributesApart(scene);
    steps::fitToRange(scene);
    const SrcWriterInput other =
        fitToRange(keepAttributesApart(optimizeForGpu(transform(input, {3.0, UpAxis::X, UpAxis::Y}))));
    ASSERT_EQ(scene.meshes.size(), other.meshes.size());
    for (std::size_t m = 0; m < scene.meshes.size(); ++m) {
        EXPECT_EQ(*scene.meshes[m].metaData, *other.metaData.at(other.meshes[m]));
        EXPECT_EQ(fixture::floatsOf(*scene.meshes[m].mesh, "position"),
                  fixture::floatsOf(*other.meshes[m], "position"));
        EXPECT_EQ(fixture::indicesOf(*scene.meshes[m].mesh), fixture::indicesOf(*other.meshes[m]));
    }
}

TEST(Steps, KeepSharedBuffersShared) {
    const auto first = fixture::octahedron(), second = fixture::octahedron();
    second->addAttribute(first->getAttributeBuffer("position"));
    Scene scene = fromInput(fixture::inputOf({first, second}));
    steps::transform(scene, {2.0});
    EXPECT_EQ(scene.meshes[0].mesh->getAttributeBuffer("position"),
              scene.meshes[1].mesh->getAttributeBuffer("position"));
    steps::fitToRange(scene);
    EXPECT_EQ(scene.meshes[0].mesh->getAttributeBuffer("position"),
              scene.meshes[1].mesh->getAttributeBuffer("position"));
    EXPECT_NE(scene.meshes[0].mesh->getAttributeBuffer("normal"),
              scene.meshes[1].mesh->getAttributeBuffer("normal"));
}

TEST(Steps, WorkOnceOnAMeshThatIsListedTwice) {
    auto wide = fixture::octahedron();
    wide->addAttribute("weight", 1, std::vector<float>(6, 1.0f));
    SrcWriterInput input = fixture::inputOf({wide, fixture::tetrahedron()});
    input.meshes.push_back(wide);
    Scene scene = fromInput(input);
    const auto expectTwins = [&](std::size_t a, std::size_t b, const kel::mesh::MeshPtr& before) {
        EXPECT_EQ(scene.meshes.at(a).mesh, scene.meshes.at(b).mesh);
        EXPECT_EQ(scene.meshes.at(a).metaData, scene.meshes.at(b).metaData);
        EXPECT_NE(scene.meshes.at(a).mesh, before);
        return scene.meshes.at(a).mesh;
    };
    auto mesh = expectTwins(0, 2, nullptr);
    steps::transform(scene, {2.0});
    mesh = expectTwins(0, 2, mesh);
    steps::optimizeForGpu(scene);
    mesh = expectTwins(0, 2, mesh);
    std::vector<UnstoredAttribute> removed;
    steps::keepStoredAttributes(scene, &removed);
    mesh = expectTwins(0, 2, mesh);
    ASSERT_EQ(removed.size(), 1u);
    EXPECT_EQ(removed[0].meshes, 2u);
    steps::keepAttributesApart(scene); // the tetrahedron comes first
    FitReport fit;
    steps::fitToRange(scene, &fit);
    mesh = expectTwins(1, 2, mesh);
    EXPECT_EQ(fit.meshes, 2u);
    SplitReport split;
    steps::splitForShortIndices(scene, {5}, &split);
    ASSERT_EQ(scene.meshes.size(), 5u);
    expectTwins(1, 3, mesh);
    expectTwins(2, 4, mesh);
    EXPECT_EQ(split.meshes, 1u);
    EXPECT_EQ(split.parts, 2u);
    EXPECT_EQ(*scene.meshes[2].find("part"), "1");
}

} // namespace
