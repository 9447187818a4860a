#include <kel/mesh/ForEachPrimitive.h>

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <set>
#include <vector>

namespace {

using namespace kel::mesh;

constexpr PrimitiveType ALL_TYPES[] = {POINTS,    LINES,          LINE_LOOP,   LINE_STRIP,
                                       TRIANGLES, TRIANGLE_STRIP, TRIANGLE_FAN};

TEST(ForEachPrimitive, CallsAsOftenAsThereArePrimitivesAndUsesAsManyCornersAsItSays) {
    for (const PrimitiveType type : ALL_TYPES) {
        for (std::size_t corners = 0; corners < 10; ++corners) {
            std::size_t calls = 0;
            std::set<std::size_t> used;
            forEachPrimitive(type, corners, [&](const std::array<std::size_t, 3>& at, std::size_t count) {
                ++calls;
                EXPECT_EQ(count, cornersPerPrimitive(type));
                used.insert(at.begin(), at.begin() + count);
            });
            EXPECT_EQ(primitiveCount(type, corners), calls) << type << " of " << corners;
            EXPECT_EQ(usedCorners(type, corners), used.size()) << type << " of " << corners;
            EXPECT_TRUE(used.empty() || *used.rbegin() < corners) << type << " of " << corners;
        }
    }
}

TEST(ForEachPrimitive, KeepsTheFacingOfTriangles) {
    using Corners = std::vector<std::array<std::size_t, 3>>;
    const auto triangles = [](PrimitiveType type) {
        Corners all;
        forEachPrimitive(type, 5,
                         [&](const std::array<std::size_t, 3>& at, std::size_t) { all.push_back(at); });
        return all;
    };
    EXPECT_EQ(triangles(TRIANGLES), (Corners{{0, 1, 2}}));
    EXPECT_EQ(triangles(TRIANGLE_STRIP), (Corners{{0, 1, 2}, {2, 1, 3}, {2, 3, 4}}));
    EXPECT_EQ(triangles(TRIANGLE_FAN), (Corners{{0, 1, 2}, {0, 2, 3}, {0, 3, 4}}));
}

} // namespace
