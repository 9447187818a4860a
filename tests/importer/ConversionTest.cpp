// What conversion makes of a model, whatever reader delivers it.

#include "HandMadeModel.h"

#include <kel/mesh/AttributeNames.h>
#include <kel/mesh/detail/DefaultBuffer.h>

#include <cmath>
#include <limits>

namespace kel::importer::test {

using testing::ElementsAre;
using testing::SizeIs;

const std::vector<float> SQUARE = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0};

TEST(Conversion, TakesIndexedVerticesAsTheyAre) {
    HandMadeModel model;
    // The first vertex once more, at the end.
    std::vector<float> positions = SQUARE;
    positions.insert(positions.end(), {0, 0, 0});
    model.addNode(model.addMesh(facingZ(trianglesAt(positions, {0, 1, 2, 4, 2, 3}))));
    const ImportResult result = convert(model);
    EXPECT_THAT(indicesOf(*result.input.meshes[0]), ElementsAre(0, 1, 2, 4, 2, 3));
    EXPECT_EQ(result.report.vertices, 5u);
}

TEST(Conversion, JoinsVerticesThatNoIndexShares) {
    HandMadeModel model;
    std::vector<float> positions = SQUARE;
    positions.insert(positions.end(), {0, 0, 0});
    detail::ModelPart part = facingZ(trianglesAt(positions, {0, 1, 2, 4, 2, 3}));
    part.isIndexed = false;
    model.addNode(model.addMesh(std::move(part)));
    const ImportResult result = convert(model);
    EXPECT_THAT(indicesOf(*result.input.meshes[0]), ElementsAre(0, 1, 2, 0, 2, 3));
}

TEST(Conversion, JoinsDoublesByAllTheirDigits) {
    HandMadeModel model;
    // As floats, the first two are equal.
    detail::ModelPart part = pointsAt({0.1, 0, 0, 0.1 + 1e-12, 0, 0, 0.1, 0, 0, 7, 0, 0});
    part.isIndexed = false;
    model.addNode(model.addMesh(std::move(part)));
    EXPECT_THAT(indicesOf(*convert(model).input.meshes[0]), ElementsAre(0, 1, 0, 2));
}

TEST(Conversion, MovesAMeshThatIsUsedOnce) {
    HandMadeModel model;
    detail::ModelPart part = facingZ(trianglesAt(SQUARE, {0, 1, 2, 0, 2, 3}));
    part.attributes.push_back({"texcoord", 2, std::vector<float>(8, 0.5f), {}});
    const std::vector<const float*> given = {
        part.attributes[0].values.data(), part.attributes[1].values.data(), part.attributes[2].values.data()};
    model.addNode(model.addMesh(std::move(part)), {1, 0, 0});
    const ImportResult result = convert(model);
    for (std::size_t i = 0; i < given.size(); ++i) {
        const auto buffer = result.input.meshes[0]->getAttributeBuffer(i);
        const auto* stored = dynamic_cast<const kel::mesh::detail::DefaultBuffer*>(buffer.get());
        ASSERT_TRUE(stored);
        EXPECT_EQ(static_cast<const void*>(stored->getBufferData()->getData()), given[i]);
    }
}

TEST(Conversion, LeavesOutVerticesThatNoPrimitiveUses) {
    HandMadeModel model;
    model.addNode(model.addMesh(facingZ(trianglesAt(SQUARE, {3, 0, 2}))));
    const ImportResult result = convert(model);
    EXPECT_THAT(indicesOf(*result.input.meshes[0]), ElementsAre(2, 0, 1));
    EXPECT_THAT(numbersOf(*result.input.meshes[0], "position"), ElementsAre(0, 0, 0, 1, 1, 0, 0, 1, 0));
    EXPECT_EQ(droppedOf(result, "vertices that no primitive uses"), 1u);
}

TEST(Conversion, PlacesTheMeshesOfANodeAtEachOfItsInstances) {
    HandMadeModel model;
    detail::ModelNode& node = model.addNode(model.addMesh(trianglesAt(SQUARE, {0, 1, 2})), {10, 0, 0});
    node.name = "bolt";
    for (const double y : {1.0, 2.0}) {
        glm::dmat4 instance(1.0);
        instance[3] = glm::dvec4(0.0, y, 0.0, 1.0);
        node.instances.push_back(instance);
    }
    const ImportResult result = convert(model);
    ASSERT_THAT(result.input.meshes, SizeIs(2));
    EXPECT_THAT(numbersOf(*result.input.meshes[0], "position"), ElementsAre(10, 1, 0, 11, 1, 0, 11, 2, 0));
    EXPECT_THAT(numbersOf(*result.input.meshes[1], "position"), ElementsAre(10, 2, 0, 11, 2, 0, 11, 3, 0));
    EXPECT_EQ(metadataOf(result, 1, "node"), "\"bolt\"");
}

TEST(Conversion, NodesOfTheReadersOwnAreNoPartOfThePath) {
    HandMadeModel model;
    model.addNode(glm::dvec3(0.0)).name = "made up";
    model.nodes.back().isOwn = true;
    model.addNode(glm::dvec3(0.0)).name = "a";
    model.nodes.back().parent = 0;
    model.addNode(model.addMesh(trianglesAt(SQUARE, {0, 1, 2}))).name = "b/c";
    model.nodes.back().parent = 1;
    EXPECT_EQ(metadataOf(convert(model), 0, "node"), R"("a\/b~1c")");
}

TEST(Conversion, MetadataOfModelMeshMaterialAndNodeComeTogether) {
    HandMadeModel model;
    detail::ModelPart part = trianglesAt(SQUARE, {0, 1, 2});
    model.materials.emplace_back().metaData["materialExtras"] = "3";
    part.material = 0;
    model.metaData["sceneExtras"] = "1";
    model.addNode(model.addMesh(std::move(part))).extras = "4";
    model.meshes[0].metaData["meshExtras"] = "2";
    const ImportResult result = convert(model);
    EXPECT_EQ(metadataOf(result, 0, "sceneExtras") + metadataOf(result, 0, "meshExtras") +
                  metadataOf(result, 0, "materialExtras") + metadataOf(result, 0, "extras"),
              "1234");
}

TEST(Conversion, OwnAttributesKeepNameAndWidth) {
    HandMadeModel model;
    detail::ModelPart part = facingZ(trianglesAt(SQUARE, {0, 1, 2}));
    part.attributes.push_back({"_TEMPERATURE", 1, {1, 2, std::nanf(""), 4}, {}});
    model.addNode(model.addMesh(std::move(part)));
    const ImportResult result = convert(model);
    EXPECT_THAT(numbersOf(*result.input.meshes[0], "_TEMPERATURE"), ElementsAre(1, 2, 0));
    EXPECT_THAT(result.report.notes, ElementsAre(testing::StartsWith("1 ")));
}

TEST(Conversion, RefusesPositionsThatAreNotFiniteOverAllMeshes) {
    HandMadeModel model;
    std::vector<float> broken = SQUARE;
    broken[2] = std::numeric_limits<float>::infinity();
    broken[3] = std::nanf("");
    model.addNode(model.addMesh(trianglesAt(SQUARE, {0, 1, 2})));
    model.addNode(model.addMesh(trianglesAt(broken, {0, 1, 2})));
    model.addNode(model.addMesh(pointsAt({1, 2, std::nan("")})));
    const ImportError error = errorOf([&] { convert(model); });
    EXPECT_EQ(error.code(), ImportCode::NON_FINITE_POSITIONS);
    EXPECT_STREQ(
        error.what(),
        ("hand.made: 3 vertex positions are not finite, in 2 meshes (first in mesh 1); " + error.remedy())
            .c_str());
}

TEST(Conversion, LeavesOutPrimitivesThatAreNotFiniteOnRequest) {
    HandMadeModel model;
    std::vector<float> broken = SQUARE;
    broken[9] = std::nanf("");
    model.addNode(model.addMesh(trianglesAt(broken, {0, 1, 2, 0, 2, 3})));
    ImportOptions options;
    options.onBadGeometry = BadGeometry::DROP;
    const ImportResult result = convert(model, options);
    EXPECT_EQ(result.report.triangles, 1u);
    EXPECT_EQ(result.report.vertices, 3u);
    EXPECT_EQ(droppedOf(result, "primitives with positions that are not finite"), 1u);
    EXPECT_EQ(droppedOf(result, "vertices that no primitive uses"), 0u);
}

TEST(Conversion, KindsThatTheModelDropsSeveralTimesAreCountedUp) {
    HandMadeModel model;
    model.addNode(model.addMesh(trianglesAt(SQUARE, {0, 1, 2, 0, 2, 3})));
    model.dropped = {{"bones", 2, ""}, {"cameras", 1, ""}, {"bones", 3, "of a skin"}};
    model.notes = {"told by the reader"};
    const ImportResult result = convert(model);
    EXPECT_THAT(result.report.dropped, SizeIs(2));
    EXPECT_EQ(droppedOf(result, "bones"), 5u);
    EXPECT_EQ(result.report.notes, model.notes);
}

// ---- Several uses of a mesh -------------------------------------------------------------------------------

class SharedUses : public testing::Test {
protected:
    HandMadeModel model;
    std::size_t mesh = 0;

    void SetUp() override {
        detail::ModelPart part = facingZ(trianglesAt(SQUARE, {0, 1, 2, 0, 2, 3}));
        part.attributes.push_back({"texcoord", 2, std::vector<float>(8, 0.5f), {}});
        mesh = model.addMesh(std::move(part));
        model.addNode(mesh);
    }
    void addTurned(const glm::dvec3& first, const glm::dvec3& second, const glm::dvec3& third) {
        glm::dmat4& transform = model.addNode(mesh).transform;
        transform[0] = glm::dvec4(first, 0.0);
        transform[1] = glm::dvec4(second, 0.0);
        transform[2] = glm::dvec4(third, 0.0);
    }
};

TEST_F(SharedUses, MovingAMeshLeavesAllButPositionsShared) {
    model.addNode(mesh, {5, 0, 0});
    const auto meshes = convert(model).input.meshes;
    EXPECT_EQ(numbersOf(*meshes[1], "position")[0], 5.0f);
    EXPECT_NE(meshes[0]->getAttributeBuffer("position"), meshes[1]->getAttributeBuffer("position"));
    EXPECT_EQ(meshes[0]->getAttributeBuffer("normal"), meshes[1]->getAttributeBuffer("normal"));
    EXPECT_EQ(meshes[0]->getAttributeBuffer("texcoord"), meshes[1]->getAttributeBuffer("texcoord"));
    EXPECT_EQ(meshes[0]->getIndexBuffer(), meshes[1]->getIndexBuffer());
}

TEST_F(SharedUses, ATurnedMeshHasNormalsOfItsOwn) {
    addTurned({1, 0, 0}, {0, 0, 1}, {0, -1, 0}); // a quarter about x: z becomes -y
    model.addNode(mesh);
    const auto meshes = convert(model).input.meshes;
    EXPECT_THAT(numbersOf(*meshes[1], "normal"), ElementsAre(0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0));
    EXPECT_THAT(numbersOf(*meshes[2], "normal"), ElementsAre(0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1));
}

TEST_F(SharedUses, AMirroredMeshHasIndicesOfItsOwn) {
    addTurned({-1, 0, 0}, {0, 1, 0}, {0, 0, 1});
    model.addNode(mesh);
    const auto meshes = convert(model).input.meshes;
    EXPECT_THAT(indicesOf(*meshes[0]), ElementsAre(0, 1, 2, 0, 2, 3));
    EXPECT_THAT(indicesOf(*meshes[1]), ElementsAre(0, 2, 1, 0, 3, 2));
    EXPECT_EQ(meshes[0]->getIndexBuffer(), meshes[2]->getIndexBuffer());
}

TEST_F(SharedUses, RoundedNormalsCountForEachUse) {
    detail::ModelPart part = facingZ(trianglesAt(SQUARE, {0, 1, 2, 0, 2, 3}));
    part.attributes[1].values[2] = 0.5f; // becomes 1
    const std::size_t uneven = model.addMesh(std::move(part));
    model.addNode(uneven);
    model.addNode(uneven);
    EXPECT_EQ(convert(model).report.roundedNormals, 2u);
}

TEST_F(SharedUses, TooManyAreRefusedBeforeTheyAreMade) {
    for (int i = 0; i < 100; ++i)
        model.addNode(mesh);
    ImportOptions options;
    options.maxCopiedBytes = 100 * 1024; // 100 copies of 24 + 128 + 1,024 bytes need more
    try {
        convert(model, options);
        FAIL() << "converted";
    } catch (const ImportError& error) {
        EXPECT_EQ(error.code(), ImportCode::TOO_MANY_COPIES);
        EXPECT_EQ(error.place(), "mesh 0");
    }
}

} // namespace kel::importer::test
