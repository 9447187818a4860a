// What is nearest on a surface, beside looking at every triangle.

#include "SurfaceTree.h"

#include <gmock/gmock.h>

#include <cmath>
#include <random>

namespace {

using namespace kel::convert;

ComparableMesh meshOf(std::size_t cornersPerPrimitive, std::vector<Point> corners) {
    ComparableMesh mesh;
    mesh.cornersPerPrimitive = cornersPerPrimitive;
    mesh.positions = std::move(corners);
    for (std::uint32_t v = 0; v < mesh.positions.size(); ++v)
        mesh.corners.push_back(v);
    return mesh;
}

double distanceTo(const ComparableMesh& mesh, const Point& point) {
    return SurfaceTree(mesh).nearest(point).distance;
}

TEST(SurfaceTree, PlaneSidesAndCornersOfATriangleAreNearest) {
    const ComparableMesh mesh = meshOf(3, {{0, 0, 0}, {4, 0, 0}, {0, 3, 0}});
    EXPECT_DOUBLE_EQ(distanceTo(mesh, {1, 1, 2}), 2);
    EXPECT_DOUBLE_EQ(distanceTo(mesh, {2, -5, 0}), 5);
    EXPECT_DOUBLE_EQ(distanceTo(mesh, {-3, -4, 0}), 5);
    EXPECT_DOUBLE_EQ(distanceTo(mesh, {7, 4, 0}), 5);             // corner (4, 0, 0)
    EXPECT_DOUBLE_EQ(distanceTo(mesh, {2 + 3, 1.5 + 4, 12}), 13); // the middle of the long side
    const SurfacePoint found = SurfaceTree(mesh).nearest({1, 0.75, 9});
    EXPECT_DOUBLE_EQ(found.weights[0], 0.5);
    EXPECT_DOUBLE_EQ(found.weights[1], 0.25);
    EXPECT_DOUBLE_EQ(found.weights[2], 0.25);
}

TEST(SurfaceTree, LinesAndPointsHaveDistances) {
    const ComparableMesh line = meshOf(2, {{0, 0, 0}, {2, 0, 0}});
    EXPECT_DOUBLE_EQ(distanceTo(line, {1, 3, 4}), 5);
    EXPECT_DOUBLE_EQ(distanceTo(line, {5, 0, 4}), 5);
    const ComparableMesh points = meshOf(1, {{0, 0, 0}, {10, 0, 0}});
    EXPECT_DOUBLE_EQ(distanceTo(points, {7, 4, 0}), 5);
}

TEST(SurfaceTree, TriangleOfNoAreaIsItsLongestSide) {
    const ComparableMesh mesh = meshOf(3, {{0, 0, 0}, {2, 0, 0}, {1, 0, 0}});
    EXPECT_DOUBLE_EQ(distanceTo(mesh, {1.5, 2, 0}), 2);
    EXPECT_DOUBLE_EQ(distanceTo(meshOf(3, {{1, 1, 1}, {1, 1, 1}, {1, 1, 1}}), {1, 1, 3}), 2);
}

TEST(SurfaceTree, NothingIsInfinitelyFar) {
    EXPECT_TRUE(std::isinf(distanceTo(meshOf(3, {}), {0, 0, 0})));
    const double none = std::nan("");
    EXPECT_TRUE(std::isinf(distanceTo(meshOf(3, {{none, 0, 0}, {1, 0, 0}, {0, 1, 0}}), {0, 0, 0})));
}

TEST(SurfaceTree, FindsWhatEachTriangleAloneWouldFind) {
    std::mt19937 random(7);
    const auto number = [&] { return static_cast<double>(random()) / 4294967296.0; };
    std::vector<Point> corners;
    for (int t = 0; t < 300; ++t) {
        const Point first{8 * number(), 8 * number(), 8 * number()};
        for (int c = 0; c < 3; ++c)
            corners.push_back({first[0] + number(), first[1] + number(), first[2] + number()});
    }
    const ComparableMesh mesh = meshOf(3, corners);
    const SurfaceTree tree(mesh);
    for (int i = 0; i < 300; ++i) {
        const Point point{12 * number() - 2, 12 * number() - 2, 12 * number() - 2};
        std::vector<double> distances;
        for (std::size_t t = 0; t < 300; ++t) {
            const auto first = corners.begin() + static_cast<std::ptrdiff_t>(3 * t);
            distances.push_back(distanceTo(meshOf(3, {first, first + 3}), point));
        }
        std::sort(distances.begin(), distances.end());
        EXPECT_DOUBLE_EQ(tree.nearest(point).distance, distances[0]);
        EXPECT_EQ(tree.within(point, distances[0] * 1.0000001, 16).size(), 1u);
        std::vector<double> nearest;
        for (const SurfacePoint& found : tree.within(point, 100.0, 5))
            nearest.push_back(found.distance);
        std::sort(nearest.begin(), nearest.end());
        distances.resize(5);
        EXPECT_THAT(nearest, testing::Pointwise(testing::DoubleEq(), distances));
    }
}

} // namespace
