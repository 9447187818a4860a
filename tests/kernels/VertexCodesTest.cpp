// The fast kernels give the plain loops' bytes, and the plain loops those of the mesh library's transforms.
#include "support/Kernels.h"

#include <kel/mesh/QuantizeVec3.h>
#include <kel/mesh/Transforms.h>
#include <kel/src/kernels/Kernels.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <cstring>

namespace {

using kel::src::detail::KernelSet;
using kel::tests::anyFloat;
using kel::tests::withEachKernelSet;
using Bytes = std::vector<unsigned char>;

const unsigned char* bytesOf(const std::vector<float>& values) {
    return reinterpret_cast<const unsigned char*>(values.data());
}

Bytes quantized(const std::vector<float>& positions, const float* min, const float* max, std::size_t stride) {
    Bytes codes(positions.size() / 3 * stride, 0xee);
    kel::src::detail::quantizePositions(bytesOf(positions), positions.size() / 3, min, max, codes.data(),
                                        stride);
    return codes;
}

Bytes encoded(const std::vector<float>& normals, std::size_t stride) {
    Bytes codes(normals.size() / 3 * stride, 0xee);
    kel::src::detail::encodeNormals(bytesOf(normals), normals.size() / 3, codes.data(), stride);
    return codes;
}

/// One element transform after the other; the bytes between stay 0xee.
Bytes transformed(const std::vector<float>& vectors, const std::function<void(void*, void*)>& transform,
                  std::size_t stride) {
    Bytes codes(vectors.size() / 3 * stride, 0xee);
    for (std::size_t i = 0; i < vectors.size() / 3; ++i) {
        float vector[3] = {vectors[3 * i], vectors[3 * i + 1], vectors[3 * i + 2]};
        transform(vector, codes.data() + i * stride);
    }
    return codes;
}

rc::Gen<std::vector<float>> anyVectors() {
    return rc::gen::mapcat(rc::gen::inRange<std::size_t>(0, 50), [](std::size_t count) {
        return rc::gen::container<std::vector<float>>(3 * count, anyFloat());
    });
}

/// Any vectors, but all finite and in a narrow range of magnitudes, so that whole blocks take the fast path.
rc::Gen<std::vector<float>> tameVectors() {
    return rc::gen::map(rc::gen::container<std::vector<float>>(
                            96, rc::gen::map(rc::gen::inRange(-100000, 100001),
                                             [](int i) { return static_cast<float>(i) * 1e-5f; })),
                        [](std::vector<float> v) { return v; });
}

void checkPositions(const std::vector<float>& positions, const std::vector<float>& min,
                    const std::vector<float>& max) {
    const auto transform =
        kel::mesh::quantizeVec3<float, unsigned short>({min[0], min[1], min[2]}, {max[0], max[1], max[2]});
    const auto packed = withEachKernelSet([&] { return quantized(positions, min.data(), max.data(), 6); });
    RC_ASSERT(packed.plain == transformed(positions, transform, 6));
    RC_ASSERT(packed.fast == packed.plain);
    const auto wide = withEachKernelSet([&] { return quantized(positions, min.data(), max.data(), 8); });
    Bytes expected = transformed(positions, transform, 8);
    for (std::size_t i = 0; i < expected.size(); i += 8)
        expected[i + 6] = expected[i + 7] = 0;
    RC_ASSERT(wide.plain == expected);
    RC_ASSERT(wide.fast == expected);
}

RC_GTEST_PROP(QuantizePositions, KernelsAgreeForAnyFloatsAndAnyBox, ()) {
    const auto box = *rc::gen::container<std::vector<float>>(6, anyFloat());
    checkPositions(*anyVectors(), {box.begin(), box.begin() + 3}, {box.begin() + 3, box.end()});
}

RC_GTEST_PROP(QuantizePositions, KernelsAgreeInsideTheBox, ()) {
    const auto low = *tameVectors();
    checkPositions(low, {-1, -0.5f, -0.25f}, {1, 0.75f, 0.125f});
}

RC_GTEST_PROP(QuantizePositions, KernelsAgreeOnTheStepsBetweenCodes, ()) {
    // Values that lie on, just below and just above the borders of codes.
    const auto extent = *rc::gen::elementOf(std::vector<float>{1.0f, 3.0f, 65535.0f, 0.1f, 1e-30f, 1e30f});
    const auto codes = *rc::gen::container<std::vector<int>>(48, rc::gen::inRange(0, 65536));
    std::vector<float> positions;
    for (std::size_t i = 0; i < codes.size(); ++i) {
        float value = static_cast<float>(codes[i] / 65535.0 * static_cast<double>(extent));
        if (i % 3 == 1) value = std::nextafter(value, 2 * extent);
        if (i % 3 == 2) value = std::nextafter(value, -extent);
        positions.push_back(value);
    }
    checkPositions(positions, {0, 0, 0}, {extent, extent, extent});
}

TEST(QuantizePositions, FlatAndReversedBoxesAgree) {
    const std::vector<float> positions = {0, -0.0f, 1, -1, 2, 0.5f, NAN, INFINITY, -INFINITY, 1, 1, 1,
                                          0, 0,     0, 1,  1, 1,    2,   2,        2,         3, 3, 3};
    checkPositions(positions, {1, 0, -0.0f}, {1, 0, 0});
    checkPositions(positions, {1, 2, INFINITY}, {0, -2, -INFINITY});
    checkPositions(positions, {NAN, -INFINITY, 0}, {1, INFINITY, NAN});
}

TEST(QuantizePositions, MinimumMiddleAndMaximum) {
    const float min[3] = {0, 0, 0}, max[3] = {2, 2, 2};
    const Bytes codes = quantized({0, 1, 2}, min, max, 6);
    EXPECT_EQ(codes, (Bytes{0, 0, 0xff, 0x7f, 0xff, 0xff}));
}

TEST(QuantizePositions, TheFastKernelRunsWhereItCan) {
    const float box[3] = {};
    EXPECT_EQ(kel::src::detail::quantizePositions(nullptr, 0, box, box, nullptr, 6),
              kel::src::detail::bestKernels());
    EXPECT_EQ(kel::src::detail::encodeNormals(nullptr, 0, nullptr, 2), kel::src::detail::bestKernels());
}

void checkNormals(const std::vector<float>& normals) {
    for (const std::size_t stride : {2, 8}) {
        const auto codes = withEachKernelSet([&] { return encoded(normals, stride); });
        RC_ASSERT(codes.plain == transformed(normals, kel::mesh::quantizeNormals(), stride));
        RC_ASSERT(codes.fast == codes.plain);
    }
}

RC_GTEST_PROP(EncodeNormals, KernelsAgreeForAnyFloats, ()) {
    checkNormals(*anyVectors());
}

RC_GTEST_PROP(EncodeNormals, KernelsAgreeForFiniteNormals, ()) {
    checkNormals(*tameVectors());
}

TEST(EncodeNormals, KernelsAgreeAroundTheSphere) {
    std::vector<float> normals;
    for (int i = 0; i < 200000; ++i) { // a spiral of evenly spread directions
        const double z = 1.0 - (2.0 * i + 1.0) / 200000.0, angle = 2.399963229728653 * i;
        const double r = std::sqrt(1.0 - z * z);
        normals.push_back(static_cast<float>(r * std::cos(angle)));
        normals.push_back(static_cast<float>(r * std::sin(angle)));
        normals.push_back(static_cast<float>(z));
    }
    const auto codes = withEachKernelSet([&] { return encoded(normals, 2); });
    EXPECT_EQ(codes.fast, codes.plain);
}

TEST(EncodeNormals, KernelsAgreeOnTheGridItself) {
    // Directions that decode exactly, their mirror images and the seams between the eight faces.
    std::vector<float> normals;
    for (int u = -127; u <= 127; ++u) {
        for (int v = -127; v <= 127; ++v) {
            const float x = static_cast<float>(u), y = static_cast<float>(v);
            const float z = 127.0f - std::fabs(x) - std::fabs(y);
            normals.insert(normals.end(), {x, y, z, -x, y, -z, x, -0.0f, y, 0.0f, x, -y});
        }
    }
    const auto codes = withEachKernelSet([&] { return encoded(normals, 2); });
    EXPECT_EQ(codes.fast, codes.plain);
}

TEST(EncodeNormals, AxesAreExactAndNoDirectionIsUp) {
    const std::vector<float> normals = {1, 0, 0, -1, 0, 0, 0, 1,     0, 0,   -1, 0,
                                        0, 0, 1, 0,  0, 0, 0, -0.0f, 0, NAN, 1,  1};
    const Bytes expected = {254, 127, 0, 127, 127, 254, 127, 0, 127, 127, 127, 127, 127, 127, 127, 127};
    const auto codes = withEachKernelSet([&] { return encoded(normals, 2); });
    EXPECT_EQ(codes.plain, expected);
    EXPECT_EQ(codes.fast, expected);
}

} // namespace
