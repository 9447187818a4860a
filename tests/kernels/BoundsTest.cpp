#include <kel/src/kernels/Kernels.h>

#include <support/Kernels.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstring>
#include <limits>
#include <vector>

namespace {

using namespace kel::src::detail;

constexpr float LARGEST = 3.4028235e38f;

struct Bounds {
    float min[3] = {LARGEST, LARGEST, LARGEST}, max[3] = {-LARGEST, -LARGEST, -LARGEST};
    bool operator==(const Bounds& other) const {
        return std::memcmp(this, &other, sizeof *this) == 0;
    } // to the bit
};

Bounds extended(const std::vector<float>& values, KernelSet* ran = nullptr) {
    Bounds bounds;
    const KernelSet set = extendBounds(values.data(), values.size() / 3, bounds.min, bounds.max);
    if (ran) *ran = set;
    return bounds;
}

RC_GTEST_PROP(BoundsKernels, AreEqualForAnyBits, ()) {
    const auto values = *kel::tests::anyFloats();
    const auto both = kel::tests::withEachKernelSet([&] { return extended(values); });
    RC_ASSERT(both.fast == both.plain);
}

RC_GTEST_PROP(BoundsKernels, AreEqualForNumbersAndSignedZeros, ()) {
    const auto values = *rc::gen::container<std::vector<float>>(
        300, rc::gen::element(-1.0f, -0.0f, 0.0f, 1.0f, std::numeric_limits<float>::infinity(), 1e-40f));
    const auto both = kel::tests::withEachKernelSet([&] { return extended(values); });
    RC_ASSERT(both.fast == both.plain);
}

TEST(BoundsKernels, TheFastOneRunsOnNumbersAndHandsOverOnNaN) {
    if (bestKernels() != KernelSet::AVX2) return; // nothing to choose on this processor
    std::vector<float> values(240, 1.0f);
    KernelSet ran = KernelSet::PLAIN;
    extended(values, &ran);
    EXPECT_EQ(ran, KernelSet::AVX2);
    values[100] = std::numeric_limits<float>::quiet_NaN();
    extended(values, &ran);
    EXPECT_EQ(ran, KernelSet::PLAIN);
}

TEST(BoundsKernels, ForcingThePlainOneRunsIt) {
    forceKernels(KernelSet::PLAIN);
    KernelSet ran = KernelSet::AVX2;
    extended(std::vector<float>(240, 1.0f), &ran);
    forceKernels(bestKernels());
    EXPECT_EQ(ran, KernelSet::PLAIN);
}

} // namespace
