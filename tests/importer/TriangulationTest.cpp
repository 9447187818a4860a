// Polygons into triangles, measured by their areas.

#include <polygons/Triangulation.h>

#include <glm/geometric.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>

namespace kel::importer::test {

namespace {

using detail::triangulate;
using testing::ElementsAre;
using Polygon = std::vector<glm::dvec3>;

/// Of each triangle, seen from z; negative where it faces away.
std::vector<double> areasOf(const Polygon& polygon) {
    std::vector<std::uint32_t> triangles;
    EXPECT_TRUE(triangulate(polygon, triangles));
    EXPECT_EQ(triangles.size(), 3 * (polygon.size() - 2));
    std::vector<double> areas;
    for (std::size_t i = 0; i + 2 < triangles.size(); i += 3) {
        const glm::dvec3 &a = polygon.at(triangles[i]), &b = polygon.at(triangles[i + 1]),
                         &c = polygon.at(triangles[i + 2]);
        areas.push_back(0.5 * glm::cross(b - a, c - a).z);
    }
    return areas;
}

/// Triangles that all face as the polygon does and have its area together lie within it.
void expectCovered(const Polygon& polygon, double area) {
    double sum = 0.0;
    for (const double part : areasOf(polygon)) {
        EXPECT_GT(part, 0.0);
        sum += part;
    }
    EXPECT_NEAR(sum, area, 1e-9 * area);
}

Polygon comb(std::size_t teeth) {
    // Teeth of 1 x 1 on a back of height 1, one apart.
    Polygon polygon{{0, 0, 0}, {2.0 * static_cast<double>(teeth) - 1, 0, 0}};
    for (std::size_t t = teeth; t-- > 0;) {
        const double x = 2.0 * static_cast<double>(t);
        for (const glm::dvec3& corner : {glm::dvec3(x + 1, 2, 0), glm::dvec3(x, 2, 0)})
            polygon.push_back(corner);
        if (t > 0) polygon.insert(polygon.end(), {{x, 1, 0}, {x - 1, 1, 0}});
    }
    return polygon;
}

} // namespace

TEST(Triangulation, AQuadIsCutAtItsFirstCorner) {
    std::vector<std::uint32_t> triangles;
    triangulate({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}}, triangles);
    EXPECT_THAT(triangles, ElementsAre(0, 1, 2, 0, 2, 3));
}

TEST(Triangulation, AnArrowheadIsCutAtItsConcaveCorner) {
    // The triangle (0,0) (4,0) (0,4) of 8 without that of its long side and (1,1), which has 4.
    expectCovered({{0, 4, 0}, {0, 0, 0}, {4, 0, 0}, {1, 1, 0}}, 4.0);
    for (std::size_t turn = 0; turn < 4; ++turn) {
        Polygon polygon{{0, 4, 0}, {0, 0, 0}, {4, 0, 0}, {1, 1, 0}};
        std::rotate(polygon.begin(), polygon.begin() + static_cast<std::ptrdiff_t>(turn), polygon.end());
        expectCovered(polygon, 4.0);
    }
}

TEST(Triangulation, AnLOfAnyFirstCorner) {
    for (std::size_t turn = 0; turn < 6; ++turn) {
        Polygon polygon{{0, 0, 0}, {3, 0, 0}, {3, 1, 0}, {1, 1, 0}, {1, 3, 0}, {0, 3, 0}};
        std::rotate(polygon.begin(), polygon.begin() + static_cast<std::ptrdiff_t>(turn), polygon.end());
        expectCovered(polygon, 5.0);
    }
}

TEST(Triangulation, ACombOfManyTeeth) {
    // Back 2 n - 1, teeth n.
    expectCovered(comb(2), 5.0);
    expectCovered(comb(500), 999.0 + 500.0);
}

TEST(Triangulation, ACoastOfTensOfThousandsOfCorners) {
    // Every other corner lies as far outside of the circle as its neighbours do inside.
    Polygon polygon;
    constexpr int CORNERS = 30000;
    const double angle = 2.0 * std::acos(-1.0) / CORNERS;
    for (int i = 0; i < CORNERS; ++i) {
        const double r = i % 2 == 0 ? 1.1 : 0.9;
        polygon.emplace_back(r * std::cos(angle * i), r * std::sin(angle * i), 0);
    }
    expectCovered(polygon, CORNERS * 0.5 * 1.1 * 0.9 * std::sin(angle));
}

TEST(Triangulation, AStar) {
    Polygon polygon;
    const double pi = std::acos(-1.0);
    for (int i = 0; i < 10; ++i) {
        const double r = i % 2 == 0 ? 2.0 : 1.0;
        polygon.emplace_back(r * std::cos(pi * i / 5), r * std::sin(pi * i / 5), 0);
    }
    // Ten triangles from the middle, with sides 1 and 2 and 36 degrees between.
    expectCovered(polygon, 10 * 0.5 * 1.0 * 2.0 * std::sin(pi / 5));
}

TEST(Triangulation, AHoleThatIsJoinedToTheRim) {
    // A square of 4 x 4 with a hole of 2 x 2; the bridge runs both ways between (0,0) and (1,1).
    expectCovered({{0, 0, 0},
                   {4, 0, 0},
                   {4, 4, 0},
                   {0, 4, 0},
                   {0, 0, 0},
                   {1, 1, 0},
                   {1, 3, 0},
                   {3, 3, 0},
                   {3, 1, 0},
                   {1, 1, 0}},
                  12.0);
}

TEST(Triangulation, CornersWithoutAnAngleAreKept) {
    const Polygon polygon{{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {3, 0, 0}, {3, 1, 0}, {0, 1, 0}};
    expectCovered(polygon, 3.0);
    std::vector<std::uint32_t> triangles;
    triangulate(polygon, triangles);
    EXPECT_EQ(std::set<std::uint32_t>(triangles.begin(), triangles.end()).size(), 6u);
}

TEST(Triangulation, AConvexPolygonIsAFan) {
    std::vector<std::uint32_t> triangles;
    triangulate({{1, 0, 0}, {2, 0, 0}, {3, 1, 0}, {2, 2, 0}, {1, 2, 0}}, triangles);
    EXPECT_THAT(triangles, ElementsAre(0, 1, 2, 0, 2, 3, 0, 3, 4));
}

TEST(Triangulation, FarFromZeroAndInAnyPlane) {
    // The L of 5, upright and at the coordinates of a map.
    const Polygon flat{{0, 0, 0}, {3, 0, 0}, {3, 1, 0}, {1, 1, 0}, {1, 3, 0}, {0, 3, 0}};
    Polygon upright;
    for (const glm::dvec3& p : flat)
        upright.emplace_back(500123.25, 5400321.5 + 0.001 * p.x, 100.0 + 0.001 * p.y);
    std::vector<std::uint32_t> triangles;
    ASSERT_TRUE(triangulate(upright, triangles));
    double sum = 0.0;
    for (std::size_t i = 0; i < triangles.size(); i += 3) {
        const auto at = [&](std::size_t c) { return upright[triangles[i + c]] - upright[0]; };
        const double area = 0.5 * glm::cross(at(1) - at(0), at(2) - at(0)).x;
        EXPECT_GT(area, 0.0);
        sum += area;
    }
    EXPECT_NEAR(sum, 5e-6, 1e-11);
}

TEST(Triangulation, APolygonThatCrossesItselfOrHasNoAreaEnds) {
    for (const Polygon& polygon :
         {Polygon{{0, 0, 0}, {2, 2, 0}, {2, 0, 0}, {0, 2, 0}, {1, 3, 0}}, Polygon(6, glm::dvec3(1.0)),
          Polygon{{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {3, 0, 0}, {4, 0, 0}},
          Polygon{{NAN, 0, 0}, {1, 0, 0}, {2, INFINITY, 0}, {3, 0, 0}, {4, 0, 0}}}) {
        std::vector<std::uint32_t> triangles;
        triangulate(polygon, triangles);
        EXPECT_EQ(triangles.size(), 3 * (polygon.size() - 2));
        EXPECT_TRUE(
            std::all_of(triangles.begin(), triangles.end(), [&](auto c) { return c < polygon.size(); }));
    }
}

TEST(Triangulation, OneThatWindsTwiceIsNoFan) {
    // A pentagram: strictly convex at every corner, and around its middle twice.
    Polygon polygon;
    const double pi = std::acos(-1.0);
    for (int i = 0; i < 5; ++i)
        polygon.emplace_back(std::cos(4 * pi * i / 5), std::sin(4 * pi * i / 5), 0);
    EXPECT_EQ(areasOf(polygon).size(), 3u);
}

} // namespace kel::importer::test
