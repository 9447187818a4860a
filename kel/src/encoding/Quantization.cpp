#include <kel/src/encoding/Quantization.h>

#include <kel/src/kernels/Dispatch.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <iostream>
#include <string>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace kel::src::detail {

namespace {

constexpr std::array<std::uint32_t, 33> makeMaxCodes() {
    std::array<std::uint32_t, 33> codes{};
    for (std::uint32_t bits = 0; bits <= 30; ++bits)
        codes[bits] = (std::uint32_t(1) << bits) - 1;
    codes[31] = 1065353216; // not 2^31 - 1 and 2^32 - 1: files in the field scale by exactly these two
    codes[32] = 1048576000;
    return codes;
}

constexpr std::array<std::uint32_t, 33> MAX_CODES = makeMaxCodes();

/// The code before it is cut to its width.
std::int64_t quantizeValue(float value, std::uint32_t maxCode, float min, float extent) {
    if (!(extent > 0.0f)) return 0;
    float t = (value - min) / extent;
    if (t > 1.0f) {
        t = 1.0f;
    } else if (t < 0.0f) {
        t = 0.0f;
    }
    const float q = static_cast<float>(maxCode) * t;
    return std::isnan(q) ? 0 : static_cast<std::int64_t>(q);
}

void storeLittleEndian(std::int64_t code, unsigned char* out, std::size_t bytes) {
    for (std::size_t i = 0; i < bytes; ++i)
        out[i] = static_cast<unsigned char>(code >> (8 * i));
}

struct Layout {
    std::size_t components;
    std::size_t slotBytes; ///< 1, 2 or 3 per component
    std::size_t bytesPerElement;
    std::uint32_t maxCode;
    const float* min;
    const float* extent;
};

void quantizePlain(const unsigned char* data, std::size_t count, const Layout& layout, unsigned char* out) {
    for (std::size_t e = 0; e < count; ++e) {
        for (std::size_t c = 0; c < layout.components; ++c) {
            float value;
            std::memcpy(&value, data + (e * layout.components + c) * sizeof value, sizeof value);
            storeLittleEndian(quantizeValue(value, layout.maxCode, layout.min[c], layout.extent[c]),
                              out + e * layout.bytesPerElement + c * layout.slotBytes, layout.slotBytes);
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
                                                  const Layout& layout, unsigned char* out) {
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

std::uint32_t getMaxCode(std::size_t bits) {
    return MAX_CODES.at(bits);
}

void quantizeValueUInt8(float value, std::size_t bits, float min, float extent, unsigned char* out) {
    storeLittleEndian(quantizeValue(value, getMaxCode(bits), min, extent), out, 1);
}

void quantizeValueUInt16(float value, std::size_t bits, float min, float extent, unsigned char* out) {
    storeLittleEndian(quantizeValue(value, getMaxCode(bits), min, extent), out, 2);
}

void quantizeValueUInt32(float value, std::size_t bits, float min, float extent, unsigned char* out) {
    storeLittleEndian(quantizeValue(value, getMaxCode(bits), min, extent), out, 4);
}

void quantizeToNBits(const float* data, std::size_t count, std::size_t components, const float* min,
                     const float* extent, std::size_t bits, bool alignTo4Bytes,
                     std::vector<unsigned char>& out, SRCDataType& type, std::size_t& bytesPerElement,
                     double* decodeOffset, double* decodeScale) {
    if (bits == 0 || bits > 32) {
        std::cerr << "Invalid quantization precision given (" << bits << " bits). "
                  << "Cannot quantize buffer to less than one, or to more than 32 bits." << std::endl;
        return;
    }

    Layout layout{components, 3, 0, MAX_CODES[bits], min, extent};
    type = SRCDataType::UINT;
    if (bits <= 8) {
        layout.slotBytes = 1;
        type = SRCDataType::UBYTE;
    } else if (bits <= 16) {
        layout.slotBytes = 2;
        type = SRCDataType::USHORT;
    }
    layout.bytesPerElement = layout.slotBytes * components;
    if (alignTo4Bytes) {
        layout.bytesPerElement =
            static_cast<std::size_t>(std::ceil(static_cast<float>(layout.bytesPerElement) * 0.25f)) * 4;
    }
    bytesPerElement = layout.bytesPerElement;
    out.resize(bytesPerElement * count);

    for (std::size_t c = 0; c < components; ++c) {
        const double maxCode = layout.maxCode;
        decodeScale[c] = extent[c] > 0.0f ? (1.0 / static_cast<double>(extent[c])) * maxCode : maxCode;
        decodeOffset[c] = static_cast<double>(min[c]) * decodeScale[c];
    }

    // The floats come out of byte storage, so they need not be aligned.
    const auto* bytes = reinterpret_cast<const unsigned char*>(data);
#if defined(__x86_64__)
    if (activeKernels() == KernelSet::AVX2 && components <= MAX_FAST_COMPONENTS && components > 0 &&
        bytesPerElement == layout.slotBytes * components) {
        quantizeAvx2(bytes, count, layout, out.data());
        return;
    }
#endif
    quantizePlain(bytes, count, layout, out.data());
}

} // namespace kel::src::detail
