#pragma once

#include <kel/src/kernels/Kernels.h>

#include <rapidcheck.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

namespace kel::tests {

inline float floatOfBits(std::uint32_t bits) {
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

/// Signed zeros, denormals, the largest and smallest, infinities, NaNs of both signs, and plain ones around
/// 0.5.
inline std::vector<float> difficultFloats() {
    std::vector<float> values;
    for (const std::uint32_t bits : {0x00000000u, 0x00000001u, 0x007fffffu, 0x00800000u, 0x3effffffu,
                                     0x3f000000u, 0x3f000001u, 0x3f7fffffu, 0x3f800000u, 0x3f800001u,
                                     0x4b800000u, 0x7f7fffffu, 0x7f800000u, 0x7f800001u, 0x7fc00000u}) {
        values.push_back(floatOfBits(bits));
        values.push_back(floatOfBits(bits | 0x80000000u));
    }
    return values;
}

/// Any bit pattern, the difficult ones often, and numbers between -1 and 1 often.
inline rc::Gen<float> anyFloat() {
    return rc::gen::oneOf(rc::gen::map(rc::gen::arbitrary<std::uint32_t>(), floatOfBits),
                          rc::gen::elementOf(difficultFloats()),
                          rc::gen::map(rc::gen::inRange(-1000000, 1000001),
                                       [](int i) { return static_cast<float>(i) / 1000000.0f; }));
}

inline rc::Gen<std::vector<float>> anyFloats() {
    return rc::gen::container<std::vector<float>>(anyFloat());
}

template<typename Result>
struct BothResults {
    Result plain, fast;
};

/// The results of one computation with the plain loops and with the best kernels of this processor.
template<typename Compute>
auto withEachKernelSet(Compute compute) -> BothResults<decltype(compute())> {
    src::detail::forceKernels(src::detail::KernelSet::PLAIN);
    auto plain = compute();
    src::detail::forceKernels(src::detail::bestKernels());
    auto fast = compute();
    return {std::move(plain), std::move(fast)};
}

} // namespace kel::tests
