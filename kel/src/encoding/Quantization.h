#pragma once

#include <kel/src/Export.h>
#include <kel/src/container/ShapeResourceContainer.h>

#include <cstddef>
#include <vector>

namespace kel::src::detail {

/// Quantize one value to a code of `bits` bits in the range min .. min + extent, all in single precision:
///
///     t = clamp((value - min) / extent, 0, 1)        code = truncate(float(maxCode[bits]) * t)
///
/// An extent that is not greater than 0 and a NaN give code 0. There is no rounding, so a value on a code
/// step may land one code lower. The code is stored little-endian at `out`, 1, 2 or 4 bytes; higher bits are
/// cut.
KELSRC_EXPORT void quantizeValueUInt8(float value, std::size_t bits, float min, float extent,
                                      unsigned char* out);
KELSRC_EXPORT void quantizeValueUInt16(float value, std::size_t bits, float min, float extent,
                                       unsigned char* out);
KELSRC_EXPORT void quantizeValueUInt32(float value, std::size_t bits, float min, float extent,
                                       unsigned char* out);

/// The largest code for a bit count from 0 to 32: 2^bits - 1 up to 30 bits. 31 and 32 bits have the codes
/// 1065353216 and 1048576000 on purpose: readers of such files scale by them.
KELSRC_EXPORT std::uint32_t getMaxCode(std::size_t bits);

/// Quantizes `count` interleaved elements of `components` floats.
///
/// data            count * components floats, no alignment needed
/// min, extent     per component, lower end and width of the range
/// bits            1 to 32; anything else is reported on standard error and changes no output
/// alignTo4Bytes   pads elements to a multiple of 4 bytes; padding bytes are not written
/// out             resized to count * bytesPerElement; bytes already there are kept where nothing is written
/// type            UBYTE up to 8 bits (1 byte per component), USHORT up to 16 (2 bytes), UINT above: then 3 bytes
///                 per component, the low 24 bits of each code
/// decodeOffset, decodeScale   per component; value = (code + decodeOffset) / decodeScale, approximately
KELSRC_EXPORT void quantizeToNBits(const float* data, std::size_t count, std::size_t components,
                                   const float* min, const float* extent, std::size_t bits,
                                   bool alignTo4Bytes, std::vector<unsigned char>& out,
                                   ShapeResourceContainer::SRCDataType& type, std::size_t& bytesPerElement,
                                   double* decodeOffset, double* decodeScale);

} // namespace kel::src::detail
