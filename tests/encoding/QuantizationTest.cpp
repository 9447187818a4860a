#include <kel/src/encoding/Quantization.h>

#include <support/Streams.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace {

using namespace kel::src::detail;
using kel::tests::CapturedStreams;
using Bytes = std::vector<unsigned char>;

const float NOT_A_NUMBER = std::numeric_limits<float>::quiet_NaN();

struct Quantized {
    Bytes bytes;
    ShapeResourceContainer::SRCDataType type = ShapeResourceContainer::FLOAT;
    std::size_t bytesPerElement = 77;
    std::vector<double> decodeOffset, decodeScale;
};

Quantized quantize(const std::vector<float>& data, std::size_t components, std::vector<float> min,
                   std::vector<float> extent, std::size_t bits, bool align = false, Bytes before = {}) {
    Quantized result;
    result.bytes = std::move(before);
    result.decodeOffset.assign(components, -1);
    result.decodeScale.assign(components, -1);
    quantizeToNBits(data.data(), data.size() / components, components, min.data(), extent.data(), bits, align,
                    result.bytes, result.type, result.bytesPerElement, result.decodeOffset.data(),
                    result.decodeScale.data());
    return result;
}

std::uint32_t code8(float value) {
    unsigned char out = 99;
    quantizeValueUInt8(value, 8, 0.0f, 1.0f, &out);
    return out;
}

std::uint32_t code32(float value, std::size_t bits) {
    unsigned char out[4];
    quantizeValueUInt32(value, bits, 0.0f, 1.0f, out);
    return out[0] | out[1] << 8 | out[2] << 16 | static_cast<std::uint32_t>(out[3]) << 24;
}

TEST(MaxCode, IsTwoToTheBitsMinusOneUpToThirty) {
    EXPECT_EQ(getMaxCode(0), 0u);
    EXPECT_EQ(getMaxCode(1), 1u);
    EXPECT_EQ(getMaxCode(8), 255u);
    EXPECT_EQ(getMaxCode(16), 65535u);
    EXPECT_EQ(getMaxCode(30), 1073741823u);
}

TEST(MaxCode, HasItsOwnEntriesForThirtyOneAndThirtyTwo) {
    EXPECT_EQ(getMaxCode(31), 1065353216u);
    EXPECT_EQ(getMaxCode(32), 1048576000u);
}

TEST(QuantizeValue, TruncatesAndClamps) {
    EXPECT_EQ(code8(1.0f), 255u);
    EXPECT_EQ(code8(0.5f), 127u); // 127.5
    EXPECT_EQ(code8(-3.0f), 0u);
    EXPECT_EQ(code8(7.0f), 255u);
    EXPECT_EQ(code8(std::numeric_limits<float>::infinity()), 255u);
    EXPECT_EQ(code8(-std::numeric_limits<float>::infinity()), 0u);
}

TEST(QuantizeValue, GivesZeroForNaN) {
    EXPECT_EQ(code8(NOT_A_NUMBER), 0u);
}

TEST(QuantizeValue, GivesZeroWithoutAnExtent) {
    for (const float extent : {0.0f, -1.0f, NOT_A_NUMBER}) {
        unsigned char out[2] = {9, 9};
        quantizeValueUInt16(5.0f, 16, 0.0f, extent, out);
        EXPECT_EQ(out[0] | out[1] << 8, 0);
    }
}

TEST(QuantizeValue, StoresLittleEndian) {
    unsigned char out[2];
    quantizeValueUInt16(0.25f, 16, 0.0f, 1.0f, out); // 16383.75
    EXPECT_EQ(out[0], 0xff);
    EXPECT_EQ(out[1], 0x3f);
}

TEST(QuantizeValue, RoundsTheLargestCodeToSinglePrecisionAboveTwentyFourBits) {
    EXPECT_EQ(code32(1.0f, 24), 16777215u);
    EXPECT_EQ(code32(1.0f, 30), 1073741824u); // one above the table's entry
    EXPECT_EQ(code32(1.0f, 31), 1065353216u);
    EXPECT_EQ(code32(1.0f, 32), 1048576000u);
}

TEST(QuantizeToNBits, EightBitsAreBytes) {
    const Quantized q = quantize({0.0f, 0.5f, 1.0f}, 1, {0}, {1}, 8);
    EXPECT_EQ(q.type, ShapeResourceContainer::UBYTE);
    EXPECT_EQ(q.bytesPerElement, 1u);
    EXPECT_EQ(q.bytes, (Bytes{0, 127, 255}));
}

TEST(QuantizeToNBits, NineToSixteenBitsAreShorts) {
    const Quantized q = quantize({1.0f}, 1, {0}, {1}, 9);
    EXPECT_EQ(q.type, ShapeResourceContainer::USHORT);
    EXPECT_EQ(q.bytes, (Bytes{0xff, 0x01})); // 511
}

TEST(QuantizeToNBits, SeventeenBitsAndMoreTakeThreeBytesPerComponent) {
    // 20 bits: 0.25 * 1048575 = 262143.75, 0.5 -> 524287.5, 1 -> 1048575
    const Quantized q = quantize({0, 0.25f, 0.5f, 1, 1, 0}, 3, {0, 0, 0}, {1, 1, 1}, 20);
    EXPECT_EQ(q.type, ShapeResourceContainer::UINT);
    EXPECT_EQ(q.bytesPerElement, 9u);
    EXPECT_EQ(q.bytes, (Bytes{0, 0, 0, 0xff, 0xff, 0x03, 0xff, 0xff, 0x07, //
                              0xff, 0xff, 0x0f, 0xff, 0xff, 0x0f, 0, 0, 0}));
}

TEST(QuantizeToNBits, WideCodesKeepTheirLowTwentyFourBits) {
    const Quantized q = quantize({1.0f}, 1, {0}, {1}, 32); // 1048576000 = 0x3e800000
    EXPECT_EQ(q.bytes, (Bytes{0x00, 0x00, 0x80}));
}

TEST(QuantizeToNBits, AlignmentPadsElementsWithUntouchedBytes) {
    const Quantized fresh = quantize({1, 1, 1, 1, 1, 1}, 3, {0, 0, 0}, {1, 1, 1}, 8, true);
    EXPECT_EQ(fresh.bytesPerElement, 4u);
    EXPECT_EQ(fresh.bytes, (Bytes{255, 255, 255, 0, 255, 255, 255, 0}));
    const Quantized used = quantize({1, 1, 1}, 3, {0, 0, 0}, {1, 1, 1}, 8, true, Bytes(4, 7));
    EXPECT_EQ(used.bytes, (Bytes{255, 255, 255, 7}));
}

TEST(QuantizeToNBits, AlignedThreeByteSlotsLeaveTheirPaddingUntouched) {
    const Quantized q = quantize({1.0f}, 1, {0}, {1}, 24, true, Bytes(4, 7));
    EXPECT_EQ(q.bytesPerElement, 4u);
    EXPECT_EQ(q.bytes, (Bytes{0xff, 0xff, 0xff, 7}));
}

TEST(QuantizeToNBits, ReportsTheDecodeVectors) {
    const Quantized q = quantize({0, 0}, 2, {-1, 3}, {2, 0}, 16);
    EXPECT_EQ(q.decodeScale, (std::vector<double>{32767.5, 65535}));
    EXPECT_EQ(q.decodeOffset, (std::vector<double>{-32767.5, 196605}));
    EXPECT_EQ(q.bytes, (Bytes{0xff, 0x7f, 0, 0})); // (0 - -1) / 2 * 65535 = 32767.5; no extent gives 0
}

TEST(QuantizeToNBits, OfNothingStillReportsTheDecodeVectors) {
    const Quantized q = quantize({}, 1, {0.5f}, {4}, 8);
    EXPECT_TRUE(q.bytes.empty());
    EXPECT_EQ(q.decodeScale, (std::vector<double>{63.75}));
    EXPECT_EQ(q.decodeOffset, (std::vector<double>{31.875}));
}

TEST(QuantizeToNBits, CutsALongerBuffer) {
    EXPECT_EQ(quantize({1}, 1, {0}, {1}, 8, false, Bytes(9, 7)).bytes, Bytes{255});
}

TEST(QuantizeToNBits, AnInvalidBitCountIsReportedAndChangesNothing) {
    for (const std::size_t bits : {std::size_t(0), std::size_t(33)}) {
        CapturedStreams streams;
        const Quantized q = quantize({1}, 1, {0}, {1}, bits, false, Bytes(3, 7));
        EXPECT_EQ(streams.err(),
                  "Invalid quantization precision given (" + std::to_string(bits) +
                      " bits). Cannot quantize buffer to less than one, or to more than 32 bits.\n");
        EXPECT_EQ(q.bytes, Bytes(3, 7));
        EXPECT_EQ(q.type, ShapeResourceContainer::FLOAT);
        EXPECT_EQ(q.bytesPerElement, 77u);
        EXPECT_EQ(q.decodeScale, std::vector<double>{-1});
    }
}

} // namespace
