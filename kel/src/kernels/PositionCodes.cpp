#include <kel/src/kernels/PositionCodes.h>

#include <kel/mesh/QuantizeVec3.h>

#include <cstdint>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace kel::src::detail {

namespace {

constexpr std::size_t POSITION_BYTES = 3 * sizeof(float);

void quantizePositionsPlain(const unsigned char* positions, std::size_t count, const float min[3],
                            const float max[3], unsigned char* codes, std::size_t stride) {
    for (std::size_t i = 0; i < count; ++i) {
        float value[3];
        std::memcpy(value, positions + i * POSITION_BYTES, sizeof value);
        std::uint16_t code[4] = {};
        for (int axis = 0; axis < 3; ++axis) {
            code[axis] =
                kel::mesh::quantizeComponent<float, std::uint16_t>(value[axis], min[axis], max[axis]);
        }
        std::memcpy(codes + i * stride, code, stride);
    }
}

#if defined(__x86_64__)

/// Four codes: the plain division, product and truncation. The clamps come to the plain loop's order of
/// tests: vminpd gives its second operand for a NaN, so that one ends at the largest code.
__attribute__((target("avx2"))) inline __m128i positionCodes(__m128 difference, __m256d extent) {
    __m256d t = _mm256_div_pd(_mm256_cvtps_pd(difference), extent);
    t = _mm256_min_pd(t, _mm256_set1_pd(1.0));
    t = _mm256_max_pd(t, _mm256_setzero_pd());
    return _mm256_cvttpd_epi32(_mm256_mul_pd(t, _mm256_set1_pd(65535.0)));
}

__attribute__((target("avx2"))) void quantizePositionsAvx2(const unsigned char* positions, std::size_t count,
                                                           const float min[3], const float max[3],
                                                           unsigned char* codes, std::size_t stride) {
    // Eight positions are three registers whose lanes run through the axes.
    __m256 lowest[3];
    __m256d extent[6];
    alignas(32) float lanes[24];
    alignas(32) double wideLanes[24];
    for (int lane = 0; lane < 24; ++lane) {
        lanes[lane] = min[lane % 3];
        wideLanes[lane] = static_cast<double>(max[lane % 3] - min[lane % 3]);
    }
    for (int r = 0; r < 3; ++r)
        lowest[r] = _mm256_load_ps(lanes + 8 * r);
    for (int r = 0; r < 6; ++r)
        extent[r] = _mm256_load_pd(wideLanes + 4 * r);

    const std::size_t blocks = count / 8;
    for (std::size_t block = 0; block < blocks; ++block) {
        const unsigned char* source = positions + block * 8 * POSITION_BYTES;
        alignas(16) unsigned char packed[56]; // the 8-byte reads below end 2 bytes past the last code
        for (int r = 0; r < 3; ++r) {
            const __m256 difference =
                _mm256_sub_ps(_mm256_loadu_ps(reinterpret_cast<const float*>(source + 32 * r)), lowest[r]);
            const __m128i low = positionCodes(_mm256_castps256_ps128(difference), extent[2 * r]);
            const __m128i high = positionCodes(_mm256_extractf128_ps(difference, 1), extent[2 * r + 1]);
            _mm_store_si128(reinterpret_cast<__m128i*>(packed + 16 * r), _mm_packus_epi32(low, high));
        }
        unsigned char* target = codes + block * 8 * stride;
        if (stride == 6) {
            std::memcpy(target, packed, 48);
        } else {
            for (std::size_t i = 0; i < 8; ++i) {
                std::uint64_t vertex;
                std::memcpy(&vertex, packed + 6 * i, sizeof vertex);
                vertex &= 0xffffffffffffull;
                std::memcpy(target + 8 * i, &vertex, sizeof vertex);
            }
        }
    }
    quantizePositionsPlain(positions + blocks * 8 * POSITION_BYTES, count % 8, min, max,
                           codes + blocks * 8 * stride, stride);
}

#endif

} // namespace

KernelSet quantizePositions(const unsigned char* positions, std::size_t count, const float min[3],
                            const float max[3], unsigned char* codes, std::size_t stride) {
#if defined(__x86_64__)
    if (activeKernels() == KernelSet::AVX2) {
        quantizePositionsAvx2(positions, count, min, max, codes, stride);
        return KernelSet::AVX2;
    }
#endif
    quantizePositionsPlain(positions, count, min, max, codes, stride);
    return KernelSet::PLAIN;
}

} // namespace kel::src::detail
