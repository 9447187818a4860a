#include <kel/mesh/Transforms.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace {

using Normal = std::array<float, 3>;
using Code = std::array<unsigned char, 2>;

constexpr double PI = 3.14159265358979323846;

Code encode(const Normal& normal) {
    Code code{};
    kel::mesh::encodeOctahedralNormal(normal.data(), code.data());
    return code;
}

/// The documented decoding, written down once more in double.
std::array<double, 3> decodeByFormula(const Code& code) {
    double x = (std::min<int>(code[0], 254) - 127) / 127.0;
    double y = (std::min<int>(code[1], 254) - 127) / 127.0;
    const double z = 1 - std::fabs(x) - std::fabs(y);
    if (z < 0) {
        const double foldedX = (1 - std::fabs(y)) * (x < 0 ? -1 : 1);
        y = (1 - std::fabs(x)) * (y < 0 ? -1 : 1);
        x = foldedX;
    }
    const double length = std::sqrt(x * x + y * y + z * z);
    return {x / length, y / length, z / length};
}

double degreesBetween(const std::array<double, 3>& a, const std::array<double, 3>& b) {
    const double dot = a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
    return std::acos(std::clamp(dot, -1.0, 1.0)) * 180 / PI;
}

TEST(OctahedralNormals, ErrorOverTheSphereIsSmall) {
    // Directions on a spiral of equal area: an even cover without a random generator.
    constexpr int COUNT = 2000000;
    double sum = 0, largest = 0;
    for (int i = 0; i < COUNT; ++i) {
        const double z = 1 - 2 * (i + 0.5) / COUNT;
        const double r = std::sqrt(1 - z * z), angle = i * 2.39996322972865332;
        const std::array<double, 3> direction = {r * std::cos(angle), r * std::sin(angle), z};
        const Code code = encode(
            {static_cast<float>(direction[0]), static_cast<float>(direction[1]), static_cast<float>(z)});
        const double error = degreesBetween(direction, decodeByFormula(code));
        sum += error;
        largest = std::max(largest, error);
    }
    EXPECT_LE(sum / COUNT, 0.32);
    EXPECT_LE(largest, 0.64);
    EXPECT_GT(sum, 0.0);
}

/// The place of a direction on the grid of codes, with fractions.
std::array<double, 2> placeOnGrid(const std::array<double, 3>& d) {
    const double sum = std::fabs(d[0]) + std::fabs(d[1]) + std::fabs(d[2]);
    const double x = d[0] / sum, y = d[1] / sum;
    if (d[2] >= 0) return {x * 127 + 127, y * 127 + 127};
    return {(1 - std::fabs(y)) * (x < 0 ? -127 : 127) + 127, (1 - std::fabs(x)) * (y < 0 ? -127 : 127) + 127};
}

TEST(OctahedralNormals, TakesTheNearestOfTheFourCodesAround) {
    for (int i = 0; i < 20000; ++i) {
        const double z = 1 - 2 * (i + 0.5) / 20000, r = std::sqrt(1 - z * z), angle = i * 2.39996322972865332;
        const std::array<double, 3> direction = {r * std::cos(angle), r * std::sin(angle), z};
        const Code code = encode(
            {static_cast<float>(direction[0]), static_cast<float>(direction[1]), static_cast<float>(z)});
        const double error = degreesBetween(direction, decodeByFormula(code));
        const auto [u, v] = placeOnGrid(direction);
        for (const double cornerU : {std::floor(u), std::min(std::floor(u) + 1, 254.0)}) {
            for (const double cornerV : {std::floor(v), std::min(std::floor(v) + 1, 254.0)}) {
                const Code corner = {static_cast<unsigned char>(cornerU),
                                     static_cast<unsigned char>(cornerV)};
                // Cosines in single precision cannot tell angles apart that are closer than this.
                ASSERT_LE(error, degreesBetween(direction, decodeByFormula(corner)) + 2e-3) << i;
            }
        }
    }
}

TEST(OctahedralNormals, AxesAreExact) {
    for (int axis = 0; axis < 3; ++axis) {
        for (const float sign : {1.0f, -1.0f}) {
            Normal normal{};
            normal[static_cast<std::size_t>(axis)] = sign;
            Normal decoded{};
            kel::mesh::decodeOctahedralNormal(encode(normal).data(), decoded.data());
            for (std::size_t i = 0; i < 3; ++i)
                EXPECT_EQ(decoded[i], normal[i]);
        }
    }
}

TEST(OctahedralNormals, DecodingIsTheDocumentedFormula) {
    for (int u = 0; u < 256; ++u) {
        for (int v = 0; v < 256; ++v) {
            const Code code = {static_cast<unsigned char>(u), static_cast<unsigned char>(v)};
            Normal decoded{};
            kel::mesh::decodeOctahedralNormal(code.data(), decoded.data());
            const auto expected = decodeByFormula(code);
            for (std::size_t i = 0; i < 3; ++i)
                ASSERT_NEAR(decoded[i], expected[i], 1e-6) << u << " " << v;
        }
    }
}

TEST(OctahedralNormals, LengthDoesNotMatter) {
    const Normal unit = {0.48f, -0.6f, 0.64f};
    for (const float scale : {1e-30f, 1e-3f, 7.0f, 1e38f}) {
        EXPECT_EQ(encode({unit[0] * scale, unit[1] * scale, unit[2] * scale}), encode(unit)) << scale;
    }
}

TEST(OctahedralNormals, WithoutADirectionTheyPointUpwards) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (const Normal& normal : {Normal{0, 0, 0}, Normal{-0.0f, 0, -0.0f}, Normal{nan, 0, -1},
                                 Normal{1, nan, 0}, Normal{0, 1, nan}, Normal{nan, nan, nan}}) {
        EXPECT_EQ(encode(normal), (Code{127, 127}));
    }
}

TEST(OctahedralNormals, AnInfiniteComponentOutweighsTheOthers) {
    const float infinity = std::numeric_limits<float>::infinity();
    EXPECT_EQ(encode({-infinity, 5, 5}), encode({-1, 0, 0}));
    EXPECT_EQ(encode({infinity, 0, -infinity}), encode({1, 0, -1}));
}

TEST(OctahedralNormals, TheTransformEncodesOneElement) {
    const Normal normal = {0.36f, 0.48f, -0.8f};
    Code code{};
    Normal source = normal;
    kel::mesh::quantizeNormals()(source.data(), code.data());
    EXPECT_EQ(code, encode(normal));
}

} // namespace
