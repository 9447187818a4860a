#include <kel/prepare/OptimizeForGpu.h>

#include <support/Meshes.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <array>
#include <deque>
#include <numeric>
#include <random>

namespace {

using namespace kel::prepare;
using fixture::floatsOf;
using fixture::indicesOf;
using testing::ElementsAre;
using Triangle = std::array<std::uint32_t, 3>;

/// Adds the attribute "id" with the number of each vertex.
void number(kel::mesh::DefaultMesh& mesh) {
    std::vector<std::uint32_t> ids(mesh.getAttributeBuffer("position")->getElementCount());
    std::iota(ids.begin(), ids.end(), 0u);
    mesh.addAttribute("id", 1, std::move(ids));
}

std::vector<std::uint32_t> idsOf(const kel::mesh::Mesh& mesh) {
    const auto buffer = mesh.getAttributeBuffer("id");
    std::vector<std::uint32_t> ids(buffer->getElementCount());
    for (std::size_t i = 0; i < ids.size(); ++i)
        buffer->getElement(i, &ids[i]);
    return ids;
}

/// The triangles by vertex numbers, each turned to the first of its three forms, sorted.
std::vector<Triangle> trianglesOf(const kel::mesh::Mesh& mesh) {
    const auto ids = idsOf(mesh);
    const auto indices = indicesOf(mesh);
    std::vector<Triangle> triangles;
    for (std::size_t i = 0; i + 2 < indices.size(); i += 3) {
        const std::uint32_t a = ids[indices[i]], b = ids[indices[i + 1]], c = ids[indices[i + 2]];
        triangles.push_back(std::min({Triangle{a, b, c}, Triangle{b, c, a}, Triangle{c, a, b}}));
    }
    std::sort(triangles.begin(), triangles.end());
    return triangles;
}

/// A grid whose triangles are listed in random order.
fixture::DefaultMeshPtr shuffledGrid(std::size_t columns, std::size_t rows) {
    auto mesh = fixture::grid(columns, rows);
    const auto indices = indicesOf(*mesh);
    std::vector<std::size_t> order(indices.size() / 3);
    std::iota(order.begin(), order.end(), std::size_t(0));
    std::shuffle(order.begin(), order.end(), std::mt19937(7)); // NOLINT: the same order every time
    std::vector<std::uint32_t> shuffled;
    for (const std::size_t triangle : order) {
        for (std::size_t corner = 0; corner < 3; ++corner)
            shuffled.push_back(static_cast<std::uint32_t>(indices[3 * triangle + corner]));
    }
    mesh->setIndices(std::move(shuffled));
    number(*mesh);
    return mesh;
}

kel::mesh::MeshPtr optimized(const kel::mesh::MeshPtr& mesh) {
    return optimizeForGpu(fixture::inputOf({mesh})).meshes.at(0);
}

/// Vertices that a cache of 16, first in first out, does not hold when they are needed.
std::size_t cacheMisses(const kel::mesh::Mesh& mesh) {
    std::deque<std::size_t> cache;
    std::size_t misses = 0;
    for (const std::size_t index : indicesOf(mesh)) {
        if (std::find(cache.begin(), cache.end(), index) != cache.end()) continue;
        ++misses;
        cache.push_back(index);
        if (cache.size() > 16) cache.pop_front();
    }
    return misses;
}

TEST(OptimizeForGpu, KeepsTheTrianglesAndTheirWinding) {
    const auto mesh = shuffledGrid(20, 10);
    EXPECT_EQ(trianglesOf(*optimized(mesh)), trianglesOf(*mesh));
}

TEST(OptimizeForGpu, MovesAllAttributesAlike) {
    const auto mesh = shuffledGrid(20, 10);
    const auto result = optimized(mesh);
    const auto before = floatsOf(*mesh, "position"), after = floatsOf(*result, "position");
    const auto ids = idsOf(*result);
    ASSERT_EQ(after.size(), before.size());
    for (std::size_t vertex = 0; vertex < ids.size(); ++vertex) {
        for (std::size_t axis = 0; axis < 3; ++axis)
            EXPECT_EQ(after[3 * vertex + axis], before[3 * ids[vertex] + axis]);
    }
}

TEST(OptimizeForGpu, UsesVerticesAgainWhileTheyAreCached) {
    const auto mesh = shuffledGrid(40, 40); // 3,200 triangles, 1,681 vertices
    EXPECT_GT(cacheMisses(*mesh), 7000u);
    EXPECT_LT(cacheMisses(*optimized(mesh)), 2600u);
}

TEST(OptimizeForGpu, PutsVerticesInTheOrderOfUse) {
    std::size_t seen = 0;
    const auto indices = indicesOf(*optimized(shuffledGrid(20, 10)));
    for (std::size_t i = 0; i < indices.size(); i += 3) {
        for (std::size_t corner = 0; corner < 3; ++corner)
            EXPECT_LT(indices[i + corner], seen + 3);
        seen = std::max(seen, 1 + *std::max_element(&indices[i], &indices[i] + 3));
    }
    EXPECT_EQ(seen, 21u * 11u);
}

TEST(OptimizeForGpu, BeginsTrianglesWithTheirSmallestIndex) {
    const auto indices = indicesOf(*optimized(shuffledGrid(20, 10)));
    for (std::size_t i = 0; i < indices.size(); i += 3)
        EXPECT_LT(indices[i], std::min(indices[i + 1], indices[i + 2]));
}

TEST(OptimizeForGpu, KeepsUnusedVerticesAtTheEnd) {
    auto mesh = fixture::octahedron();
    mesh->setIndices(std::vector<std::uint16_t>{3, 5, 1});
    number(*mesh);
    const auto ids = idsOf(*optimized(mesh));
    EXPECT_THAT(std::vector<std::uint32_t>(ids.begin(), ids.begin() + 3),
                testing::UnorderedElementsAre(1, 3, 5));
    EXPECT_THAT(std::vector<std::uint32_t>(ids.begin() + 3, ids.end()), ElementsAre(0, 2, 4));
}

TEST(OptimizeForGpu, KeepsTheWidthOfIndices) {
    auto mesh = fixture::octahedron();
    EXPECT_EQ(optimized(mesh)->getIndexBuffer()->getElementSizeInBytes(), 2u);
    mesh->setIndices(std::vector<std::uint8_t>{0, 1, 2});
    EXPECT_EQ(optimized(mesh)->getIndexBuffer()->getElementSizeInBytes(), 1u);
    mesh->setIndices(std::vector<std::uint32_t>{0, 1, 2});
    EXPECT_EQ(optimized(mesh)->getIndexBuffer()->getElementSizeInBytes(), 4u);
}

TEST(OptimizeForGpu, KeepsIndicesThatMakeNoTriangle) {
    auto mesh = fixture::octahedron();
    mesh->setIndices(std::vector<std::uint16_t>{4, 0, 2, 5});
    number(*mesh);
    const auto result = optimized(mesh);
    const auto indices = indicesOf(*result);
    ASSERT_EQ(indices.size(), 4u);
    EXPECT_EQ(idsOf(*result)[indices[3]], 5u);
}

TEST(OptimizeForGpu, PassesWhatIsNoIndexedTriangleList) {
    auto strip = fixture::octahedron(), unindexed = fixture::octahedron(), few = fixture::octahedron();
    strip->setPrimitiveType(kel::mesh::TRIANGLE_STRIP);
    unindexed->setIndexBuffer(nullptr);
    few->setIndices(std::vector<std::uint16_t>{0, 1});
    const auto input = fixture::inputOf({fixture::pointRow(5), strip, unindexed, few});
    OptimizeReport report;
    EXPECT_EQ(optimizeForGpu(input, &report).meshes, input.meshes);
    EXPECT_EQ(report.passed, 4u);
    EXPECT_EQ(report.meshes, 0u);
}

TEST(OptimizeForGpu, PassesWhatIsBroken) {
    auto outOfRange = fixture::octahedron(), shortAttribute = fixture::octahedron();
    outOfRange->setIndices(std::vector<std::uint16_t>{0, 1, 6});
    shortAttribute->addAttribute("color", 3, std::vector<float>{1, 1, 1});
    auto input = fixture::inputOf({outOfRange, shortAttribute});
    input.meshes.push_back(nullptr);
    EXPECT_EQ(optimizeForGpu(input).meshes, input.meshes);
}

TEST(OptimizeForGpu, MovesMetadataAndMaterial) {
    const auto input = fixture::twoMaterials();
    const auto result = optimizeForGpu(input);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(result.meshMaterials.at(result.meshes[i]), input.meshMaterials.at(input.meshes[i]));
        EXPECT_EQ(*result.metaData.at(result.meshes[i]), *input.metaData.at(input.meshes[i]));
        EXPECT_NE(result.metaData.at(result.meshes[i]), input.metaData.at(input.meshes[i]));
    }
    EXPECT_EQ(result.metaData.size(), 2u);
}

TEST(OptimizeForGpu, KeepsAMeshListedTwiceOneMesh) {
    auto input = fixture::inputOf({fixture::octahedron()});
    input.meshes.push_back(input.meshes[0]);
    const auto result = optimizeForGpu(input);
    EXPECT_EQ(result.meshes[0], result.meshes[1]);
}

TEST(OptimizeForGpu, GivesTheSameForTheSame) {
    const auto a = optimized(shuffledGrid(20, 10)), b = optimized(shuffledGrid(20, 10));
    EXPECT_EQ(indicesOf(*a), indicesOf(*b));
    EXPECT_EQ(floatsOf(*a, "position"), floatsOf(*b, "position"));
}

RC_GTEST_PROP(OptimizeForGpuProperty, KeepsTheTrianglesOfAnyMesh, ()) {
    const auto vertices = *rc::gen::inRange<std::uint32_t>(1, 40);
    const auto triangles = *rc::gen::inRange<std::size_t>(1, 60);
    auto mesh = fixture::pointRow(vertices);
    mesh->setPrimitiveType(kel::mesh::TRIANGLES);
    mesh->setIndices(*rc::gen::container<std::vector<std::uint32_t>>(
        triangles * 3, rc::gen::inRange<std::uint32_t>(0, vertices)));
    number(*mesh);
    const auto result = optimized(mesh);
    RC_ASSERT(trianglesOf(*result) == trianglesOf(*mesh));
    auto ids = idsOf(*result);
    std::sort(ids.begin(), ids.end());
    RC_ASSERT(ids == idsOf(*mesh));
}

} // namespace
