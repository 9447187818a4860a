#include <kel/src/kernels/Kernels.h>

#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace kel::src::detail {

namespace {

void quantizePlain(const unsigned char* data, std::size_t count, const QuantizationLayout& layout,
                   unsigned char* out) {
    for (std::size_t e = 0; e < count; ++e) {
        for (std::size_t c = 0; c < layout.components; ++c) {
            float value;
            std::memcpy(&value, data + (e * layout.components + c) * sizeof value, sizeof value);
            const std::int64_t code = quantizeValue(value, layout.maxCode, layout.min[c], layout.extent[c]);
            storeCode(code, layout.slotBytes, out + e * layout.bytesPerElement + c * layout.slotBytes);
        }
    }
}

#if defined(__x86_64__)

constexpr std::size_t MAX_FAST_COMPONENTS = 4;

__attribute__((target("avx2"))) void storeCodes(__m256i codes, std::size_t slotBytes, unsigned char* out) {
    if (slotBytes == 3) {
        const __m256i low24 = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1, //
                                               0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
        alignas(32) unsigned char bytes[32];
        _mm256_store_si256(reinterpret_cast<__m256i*>(bytes), _mm256_shuffle_epi8(codes, low24));
        std::memcpy(out, bytes, 12);
        std::memcpy(out + 12, bytes + 16, 12);
        return;
    }
    const __m128i words = _mm_packus_epi32(_mm256_castsi256_si128(codes), _mm256_extracti128_si256(codes, 1));
    if (slotBytes == 2) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), words);
    } else {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(words, words));
    }
}

/// Eight values at a time through the same subtraction, division, clamp, product and truncation. Takes packed
/// elements of up to four components.
__attribute__((target("avx2"))) void quantizeAvx2(const unsigned char* data, std::size_t count,
                                                  const QuantizationLayout& layout, unsigned char* out) {
    // The lanes run through the components; after `components` registers the pattern repeats.
    __m256 min[MAX_FAST_COMPONENTS], extent[MAX_FAST_COMPONENTS], hasExtent[MAX_FAST_COMPONENTS];
    for (std::size_t r = 0; r < layout.components; ++r) {
        alignas(32) float minLanes[8], extentLanes[8];
        for (std::size_t lane = 0; lane < 8; ++lane) {
            minLanes[lane] = layout.min[(8 * r + lane) % layout.components];
            extentLanes[lane] = layout.extent[(8 * r + lane) % layout.components];
        }
        min[r] = _mm256_load_ps(minLanes);
        extent[r] = _mm256_load_ps(extentLanes);
        hasExtent[r] = _mm256_cmp_ps(extent[r], _mm256_setzero_ps(), _CMP_GT_OQ);
    }
    const __m256 zero = _mm256_setzero_ps();
    const __m256 one = _mm256_set1_ps(1.0f);
    const __m256 maxCode = _mm256_set1_ps(static_cast<float>(layout.maxCode));

    const std::size_t blocks = count / 8;
    for (std::size_t block = 0; block < blocks; ++block) {
        for (std::size_t r = 0; r < layout.components; ++r) {
            const std::size_t value = (block * layout.components + r) * 8;
            const __m256 v = _mm256_loadu_ps(reinterpret_cast<const float*>(data + value * sizeof(float)));
            __m256 t = _mm256_div_ps(_mm256_sub_ps(v, min[r]), extent[r]);
            t = _mm256_max_ps(t, zero); // gives 0 for a NaN, whose code is 0
            t = _mm256_min_ps(t, one);
            const __m256 q = _mm256_and_ps(_mm256_mul_ps(maxCode, t), hasExtent[r]);
            storeCodes(_mm256_cvttps_epi32(q), layout.slotBytes, out + value * layout.slotBytes);
        }
    }
    quantizePlain(data + blocks * 8 * layout.components * sizeof(float), count % 8, layout,
                  out + blocks * 8 * layout.bytesPerElement);
}

#endif

} // namespace

KernelSet quantizeElements(const unsigned char* floats, std::size_t count, const QuantizationLayout& layout,
                           unsigned char* out) {
#if defined(__x86_64__)
    if (activeKernels() == KernelSet::AVX2 && layout.components > 0 &&
        layout.components <= MAX_FAST_COMPONENTS &&
        layout.bytesPerElement == layout.slotBytes * layout.components) {
        quantizeAvx2(floats, count, layout, out);
        return KernelSet::AVX2;
    }
#endif
    quantizePlain(floats, count, layout, out);
    return KernelSet::PLAIN;
}

} // namespace kel::src::detail
