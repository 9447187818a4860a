#include <kel/src/encoding/Quantization.h>

#include <support/Kernels.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <vector>

namespace {

using namespace kel::src::detail;

std::vector<unsigned char> quantized(const std::vector<float>& data, std::size_t components,
                                     const std::vector<float>& min, const std::vector<float>& extent,
                                     std::size_t bits) {
    std::vector<unsigned char> codes;
    auto type = ShapeResourceContainer::FLOAT;
    std::size_t bytesPerElement = 0;
    double decodeOffset[4], decodeScale[4];
    quantizeToNBits(data.data(), data.size() / components, components, min.data(), extent.data(), bits, false,
                    codes, type, bytesPerElement, decodeOffset, decodeScale);
    return codes;
}

TEST(QuantizeKernels, AreEqualForEveryBitCountOverDifficultValues) {
    const std::vector<float> values = kel::tests::difficultFloats();
    for (std::size_t bits = 1; bits <= 32; ++bits) {
        for (std::size_t components = 1; components <= 4; ++components) {
            std::vector<float> data;
            for (int repeat = 0; repeat < 5; ++repeat)
                data.insert(data.end(), values.begin(), values.end());
            data.resize(data.size() / components * components);
            const std::vector<float> min = {-0.5f, 0.0f, -1e30f, 1e-40f},
                                     extent = {1.0f, 1e-39f, 2e30f, 0.0f};
            const auto both =
                kel::tests::withEachKernelSet([&] { return quantized(data, components, min, extent, bits); });
            ASSERT_EQ(both.fast, both.plain) << bits << " bits, " << components << " components";
        }
    }
}

RC_GTEST_PROP(QuantizeKernels, AreEqualForAnyBits, ()) {
    const auto components = *rc::gen::inRange<std::size_t>(1, 5);
    const auto bits = *rc::gen::inRange<std::size_t>(1, 33);
    std::vector<float> data = *kel::tests::anyFloats();
    data.resize(data.size() / components * components);
    const auto min = *rc::gen::container<std::vector<float>>(components, kel::tests::anyFloat());
    const auto extent = *rc::gen::container<std::vector<float>>(components, kel::tests::anyFloat());
    const auto both =
        kel::tests::withEachKernelSet([&] { return quantized(data, components, min, extent, bits); });
    RC_ASSERT(both.fast == both.plain);
}

} // namespace
