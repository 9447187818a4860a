#include <kel/src/kernels/Kernels.h>

#include <algorithm>
#include <cmath>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace kel::src::detail {

namespace {

void extendBoundsPlain(const float* positions, std::size_t count, float* min, float* max) {
    for (std::size_t i = 0; i < count; ++i)
        extendBoundsByOne(positions + 3 * i, min, max);
}

#if defined(__x86_64__)

/// The sign of a zero bound is that of the last zero on its axis, as later elements replace equal ones.
void settleZeroSign(const float* positions, std::size_t count, int axis, float& bound) {
    if (bound != 0.0f) return;
    for (std::size_t i = count; i-- > 0;) {
        if (positions[3 * i + axis] == 0.0f) {
            bound = positions[3 * i + axis];
            return;
        }
    }
}

__attribute__((target("avx2"))) bool extendBoundsAvx2(const float* positions, std::size_t count, float* min,
                                                      float* max) {
    // Eight positions are three registers whose lanes run through the axes: xyzxyzxy, zxyzxyzx, yzxyzxyz.
    alignas(32) float lanes[24];
    const auto spread = [&](const float* bounds, __m256* registers) __attribute__((target("avx2"))) {
        for (int lane = 0; lane < 24; ++lane)
            lanes[lane] = bounds[lane % 3];
        for (int r = 0; r < 3; ++r)
            registers[r] = _mm256_load_ps(lanes + 8 * r);
    };
    __m256 low[3], high[3];
    spread(min, low);
    spread(max, high);

    __m256 unordered = _mm256_setzero_ps();
    const std::size_t blocks = count / 8;
    for (std::size_t block = 0; block < blocks; ++block) {
        for (int r = 0; r < 3; ++r) {
            const __m256 v = _mm256_loadu_ps(positions + 24 * block + 8 * r);
            // vminps and vmaxps are exactly the rule: a < b ? a : b and a > b ? a : b.
            low[r] = _mm256_min_ps(low[r], v);
            high[r] = _mm256_max_ps(high[r], v);
            unordered = _mm256_or_ps(unordered, _mm256_cmp_ps(v, v, _CMP_UNORD_Q));
        }
    }
    if (_mm256_movemask_ps(unordered) != 0) return false;

    float lowest[3] = {min[0], min[1], min[2]};
    float highest[3] = {max[0], max[1], max[2]};
    for (int r = 0; r < 3; ++r)
        _mm256_store_ps(lanes + 8 * r, low[r]);
    for (int lane = 0; lane < 24; ++lane)
        lowest[lane % 3] = std::min(lowest[lane % 3], lanes[lane]);
    for (int r = 0; r < 3; ++r)
        _mm256_store_ps(lanes + 8 * r, high[r]);
    for (int lane = 0; lane < 24; ++lane)
        highest[lane % 3] = std::max(highest[lane % 3], lanes[lane]);
    for (int axis = 0; axis < 3; ++axis) {
        settleZeroSign(positions, 8 * blocks, axis, lowest[axis]);
        settleZeroSign(positions, 8 * blocks, axis, highest[axis]);
    }
    extendBoundsPlain(positions + 24 * blocks, count % 8, lowest, highest);
    std::copy(lowest, lowest + 3, min);
    std::copy(highest, highest + 3, max);
    return true;
}

#endif

} // namespace

KernelSet extendBounds(const float* positions, std::size_t count, float* min, float* max) {
#if defined(__x86_64__)
    // A NaN among the bounds so far orders like a NaN among the positions. Only the plain loop keeps its place.
    const bool ordered = std::none_of(min, min + 3, [](float v) { return std::isnan(v); }) &&
                         std::none_of(max, max + 3, [](float v) { return std::isnan(v); });
    if (activeKernels() == KernelSet::AVX2 && ordered && extendBoundsAvx2(positions, count, min, max))
        return KernelSet::AVX2;
#endif
    extendBoundsPlain(positions, count, min, max);
    return KernelSet::PLAIN;
}

} // namespace kel::src::detail
