#include <kel/src/container/ShapeResourceContainer.h>

#include <support/SrcText.h>
#include <support/Streams.h>

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

namespace {

using kel::src::detail::ShapeResourceContainer;
using kel::tests::CapturedStreams;
using kel::tests::SrcText;
using kel::tests::written;

constexpr const char* BORDER_ERROR =
    "ERROR: Invalid buffer chunk border specified for SRC export. Finishing buffer "
    "export before parsing all chunk borders.\n";

struct Result {
    SrcText file;
    std::string err;
};

/// A container with one view of bytes 0, 1, 2, ... cut at `borders`.
Result cutAt(std::size_t size, const std::vector<unsigned int>& borders) {
    std::vector<unsigned char> bytes(size);
    std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(0));
    ShapeResourceContainer container;
    CapturedStreams streams;
    container.addBufferView(bytes.data(), bytes.size(), &borders);
    return {written([&](std::ostream& out) { container.writeToStream(out); }), streams.err()};
}

SrcText fileOf(ShapeResourceContainer& container) {
    return written([&](std::ostream& out) { container.writeToStream(out); });
}

TEST(BufferView, WithoutBordersIsOneChunk) {
    ShapeResourceContainer container;
    const unsigned char bytes[4] = {9, 8, 7, 6};
    EXPECT_EQ(container.addBufferView(bytes, 4, nullptr), "bufferView0");
    const SrcText file = fileOf(container);
    EXPECT_EQ(file.at("bufferViews"), R"({"bufferView0":{"byteLength":4,"chunks":["chunk0"]}})");
    EXPECT_EQ(file.at("bufferChunks"), R"({"chunk0":{"byteLength":4,"byteOffset":0}})");
    EXPECT_EQ(file.data, "\x09\x08\x07\x06");
}

TEST(BufferView, OfNoBytesHasOneEmptyChunkAtTheEndOfThePreviousOne) {
    ShapeResourceContainer container;
    const unsigned char bytes[5] = {};
    container.addBufferView(bytes, 5, nullptr);
    container.addBufferView(bytes, 0, nullptr);
    const SrcText file = fileOf(container);
    EXPECT_EQ(file.at("bufferViews", "bufferView1"), R"({"byteLength":0,"chunks":["chunk1"]})");
    EXPECT_EQ(file.at("bufferChunks", "chunk1"), R"({"byteLength":0,"byteOffset":5})");
}

TEST(BufferView, DataAfterAnEmptyChunkFollowsDirectly) {
    ShapeResourceContainer container;
    const unsigned char bytes[2] = {1, 2};
    container.addBufferView(bytes, 1, nullptr);
    container.addBufferView(bytes, 0, nullptr);
    container.addBufferView(bytes + 1, 1, nullptr);
    EXPECT_EQ(fileOf(container).data, "\x01\x02");
}

TEST(BufferView, EmptyBorderListStoresNoBytes) {
    const Result result = cutAt(100, {});
    EXPECT_EQ(result.file.at("bufferViews", "bufferView0"), R"({"byteLength":100,"chunks":[]})");
    EXPECT_EQ(result.file.at("bufferChunks"), "{}");
    EXPECT_EQ(result.file.data, "");
    EXPECT_EQ(result.err, "");
}

TEST(BufferView, BordersAreChunkEndsAndTheTailIsNotStored) {
    const Result result = cutAt(100, {40, 70});
    EXPECT_EQ(result.file.at("bufferViews", "bufferView0"),
              R"({"byteLength":100,"chunks":["chunk0","chunk1"]})");
    EXPECT_EQ(result.file.at("bufferChunks"),
              R"({"chunk0":{"byteLength":40,"byteOffset":0},"chunk1":{"byteLength":30,"byteOffset":40}})");
    ASSERT_EQ(result.file.data.size(), 70u);
    EXPECT_EQ(result.file.data[69], 69);
    EXPECT_EQ(result.err, "");
}

TEST(BufferView, BorderZeroMakesAnEmptyChunkWithoutError) {
    const Result result = cutAt(100, {0});
    EXPECT_EQ(result.file.at("bufferChunks"), R"({"chunk0":{"byteLength":0,"byteOffset":0}})");
    EXPECT_EQ(result.err, "");
}

TEST(BufferView, BorderAtTheSizeIsAnError) {
    const Result result = cutAt(100, {100});
    EXPECT_EQ(result.file.at("bufferViews", "bufferView0"), R"({"byteLength":100,"chunks":[]})");
    EXPECT_EQ(result.err, BORDER_ERROR);
}

TEST(BufferView, BorderPastTheSizeIsAnError) {
    const Result result = cutAt(100, {120});
    EXPECT_EQ(result.file.at("bufferViews", "bufferView0"), R"({"byteLength":100,"chunks":[]})");
    EXPECT_EQ(result.err, BORDER_ERROR);
}

TEST(BufferView, ChunksBeforeABadBorderStay) {
    const Result result = cutAt(100, {40, 100});
    EXPECT_EQ(result.file.at("bufferChunks"), R"({"chunk0":{"byteLength":40,"byteOffset":0}})");
    EXPECT_EQ(result.err, BORDER_ERROR);
}

TEST(BufferView, BordersAfterABadOneAreIgnored) {
    const Result result = cutAt(100, {120, 40});
    EXPECT_EQ(result.file.at("bufferChunks"), "{}");
    EXPECT_EQ(result.err, BORDER_ERROR);
}

TEST(BufferView, DecreasingBordersAreReportedAndEndTheWalk) {
    const Result result = cutAt(100, {40, 30, 50});
    EXPECT_EQ(result.file.at("bufferViews", "bufferView0"), R"({"byteLength":100,"chunks":["chunk0"]})");
    EXPECT_EQ(result.err, BORDER_ERROR);
}

TEST(BufferView, OffsetsAreSumsOfTheLengthsBefore) {
    ShapeResourceContainer container;
    const unsigned char bytes[12] = {};
    container.addBufferView(bytes, 12, nullptr);
    container.addBufferView(bytes, 6, nullptr);
    container.addBufferView(bytes, 1, nullptr);
    EXPECT_EQ(fileOf(container).at("bufferChunks", "chunk2"), R"({"byteLength":1,"byteOffset":18})");
}

TEST(BufferView, BytesGivenAwayAreStoredLikeCopiedOnes) {
    ShapeResourceContainer copied, moved;
    const std::vector<unsigned char> bytes = {1, 2, 3};
    copied.addBufferView(bytes.data(), bytes.size(), nullptr);
    moved.addBufferView(std::vector<unsigned char>(bytes));
    EXPECT_EQ(fileOf(moved).header, fileOf(copied).header);
    EXPECT_EQ(fileOf(moved).data, fileOf(copied).data);
}

TEST(BufferView, AppendChunkAddsItsIdToTheCallersObject) {
    ShapeResourceContainer container;
    picojson::object view;
    view["chunks"] = picojson::value(picojson::array());
    container.appendChunk("mine", view, {1, 2});
    container.appendChunk("mine", view, {3});
    EXPECT_EQ(picojson::value(view).serialize(), R"({"chunks":["chunk0","chunk1"]})");
    const SrcText file = fileOf(container);
    EXPECT_EQ(file.at("bufferChunks", "chunk1"), R"({"byteLength":1,"byteOffset":2})");
    EXPECT_EQ(file.data, "\x01\x02\x03");
}

} // namespace
