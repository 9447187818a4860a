// Boundary edges and components, counted by hand.

#include "Topology.h"

#include <gtest/gtest.h>

namespace {

using namespace kel::convert;

Topology topology(std::vector<Point> positions, std::vector<std::uint32_t> corners, std::size_t size = 3) {
    ComparableMesh mesh;
    mesh.positions = std::move(positions);
    mesh.corners = std::move(corners);
    mesh.cornersPerPrimitive = size;
    return topologyOf(mesh);
}

TEST(Topology, ClosedTetrahedronHasNoBoundary) {
    const Topology found =
        topology({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}}, {0, 2, 1, 0, 1, 3, 0, 3, 2, 1, 2, 3});
    EXPECT_EQ(found.boundaryEdges, 0u);
    EXPECT_EQ(found.components, 1u);
}

TEST(Topology, VerticesAtOnePlaceAreOne) {
    // A square of two triangles with vertices of their own.
    const Topology found =
        topology({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 0, -0.0}, {1, 1, 0}, {0, 1, 0}}, {0, 1, 2, 3, 4, 5});
    EXPECT_EQ(found.boundaryEdges, 4u);
    EXPECT_EQ(found.components, 1u);
}

TEST(Topology, PiecesThatShareNoVertexAreCounted) {
    const Topology found =
        topology({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {5, 0, 0}, {6, 0, 0}, {6, 1, 0}}, {0, 1, 2, 3, 4, 5});
    EXPECT_EQ(found.boundaryEdges, 6u);
    EXPECT_EQ(found.components, 2u);
}

TEST(Topology, LinesAndPointsHaveComponentsOnly) {
    const std::vector<Point> positions{{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {3, 0, 0}, {4, 0, 0}};
    EXPECT_EQ(topology(positions, {0, 1, 1, 2, 3, 4}, 2).components, 2u);
    EXPECT_EQ(topology(positions, {0, 1, 2}, 1).components, 3u);
    EXPECT_EQ(topology(positions, {0, 1, 1, 2}, 2).boundaryEdges, 0u);
}

TEST(Topology, UnusedVerticesAreNoComponents) {
    EXPECT_EQ(topology({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {9, 9, 9}}, {0, 1, 2}).components, 1u);
}

} // namespace
