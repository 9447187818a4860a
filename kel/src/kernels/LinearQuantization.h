#pragma once

#include <kel/src/Export.h>
#include <kel/src/kernels/Dispatch.h>

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace kel::src::detail {

/// The code of one value in the range min .. min + extent, before it is cut to its width, all in single
/// precision. There is no rounding, so a value on a code step may land one code lower. An extent that is not
/// greater than 0 and a NaN give code 0.
inline std::int64_t quantizeValue(float value, std::uint32_t maxCode, float min, float extent) {
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

/// How interleaved elements become codes.
struct QuantizationLayout {
    std::size_t components;
    std::size_t slotBytes; ///< 1, 2 or 3 per component: the low bytes of each code, little-endian
    std::size_t bytesPerElement;
    std::uint32_t maxCode;
    const float* min;    ///< per component
    const float* extent; ///< per component
};

/// Quantizes `count` interleaved elements of floats, which need no alignment. Bytes of an element behind its
/// codes are left alone.
///
/// returns  the kernels that ran; all give the same bytes
KELSRC_EXPORT KernelSet quantizeElements(const unsigned char* floats, std::size_t count,
                                         const QuantizationLayout& layout, unsigned char* out);

} // namespace kel::src::detail
