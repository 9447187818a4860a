#include <kel/src/format/HeaderEmitter.h>
#include <kel/src/text/StreamSink.h>

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

using namespace kel::src::format;
using kel::src::text::StringSink;
using Entries = HeaderEntries<SeventeenDigits>;

/// Another rule for numbers, to see where it is asked.
struct Marked {
    static void append(std::string& text, double number) { text += "<" + std::to_string(int(number)) + ">"; }
};

template<typename Emit>
std::string emitted(const Emit& emit) {
    std::string text;
    StringSink sink(text);
    HeaderEmitter<StringSink, SeventeenDigits> emitter(sink);
    emit(emitter, sink);
    return text;
}

TEST(HeaderKeys, AreJoinedWithWhatStandsBeforeThem) {
    static_assert(FIRST_KEY<key::BUFFER_VIEW> == "{\"bufferView\":");
    static_assert(NEXT_KEY<key::COUNT> == ",\"count\":");
}

TEST(HeaderEmitter, TheFrameHoldsAllSections) {
    EXPECT_EQ(emitted([](auto& emit, auto& sink) {
                  const auto none = [] {};
                  emit.header(
                      none, none, none, none, none, none, [&] { sink.append(std::string_view("{}")); }, none);
              }),
              R"({"accessors":{"attributeViews":{},"indexViews":{}},"bufferChunks":{},"bufferViews":{},)"
              R"("materials":{},"meshes":{},"meta":{},"techniques":{},"textureViews":{},"textures":{}})");
}

TEST(HeaderEmitter, NumberedEntriesAreSeparatedByCommas) {
    EXPECT_EQ(emitted([](auto& emit, auto&) {
                  emit.numbered(
                      id_prefix::CHUNK,
                      [](const auto& visit) {
                          kel::src::format::inTextOrder(11, [&](std::size_t i) { visit(i, i); });
                      },
                      [&](std::size_t i) { emit.chunk(i, 7); });
              }).substr(0, 78),
              R"("chunk0":{"byteLength":0,"byteOffset":7},"chunk1":{"byteLength":1,"byteOffset")");
}

TEST(HeaderEmitter, SizesFromTwoToTheFiftyThirdOnFollowTheRuleForNumbers) {
    std::string text;
    StringSink sink(text);
    HeaderEmitter<StringSink, Marked> emit(sink);
    emit.chunk((std::uint64_t(1) << 53) - 1, 1);
    EXPECT_EQ(text, R"({"byteLength":9007199254740991,"byteOffset":1})");
    EXPECT_EQ(emitted([](auto& seventeen, auto&) { seventeen.chunk(std::uint64_t(1) << 53, 1); }),
              R"({"byteLength":9007199254740992,"byteOffset":1})");
}

TEST(HeaderEntries, TheRuleForNumbersIsTheCallers) {
    const double offset[2] = {1, 2}, scale[2] = {3, 4};
    std::string text;
    HeaderEntries<Marked>::decodeVectors(text, offset, scale, 2);
    EXPECT_EQ(text, R"(,"decodeOffset":[<1>,<2>],"decodeScale":[<3>,<4>])");
}

TEST(HeaderEntries, AMeshMayLackAttributesAndBounds) {
    std::string text;
    Entries::meshHead(
        text, std::map<std::string, int>(), [](std::string&, int) {}, static_cast<const double*>(nullptr),
        static_cast<const double*>(nullptr), [](std::string& id) { id += "\"\""; });
    EXPECT_EQ(text, R"({"attributes":{},"indices":"","material":)");
}

TEST(HeaderEntries, NamesAreEscaped) {
    std::string text;
    const float center[3] = {0.5f, 0, 1};
    Entries::meshHead(
        text, std::map<std::string, int>{{"a\"b", 3}},
        [](std::string& id, int view) { id += std::to_string(view); }, center, center,
        [](std::string& id) { id += "\"i\""; });
    EXPECT_EQ(
        text,
        R"({"attributes":{"a\"b":3},"bboxCenter":[0.5,0,1],"bboxSize":[0.5,0,1],"indices":"i","material":)");
}

TEST(HeaderEntries, NumbersOfNothingAreAnEmptyList) {
    std::string text;
    Entries::numbers(text, ":", static_cast<const double*>(nullptr), 0);
    EXPECT_EQ(text, ":[]");
}

} // namespace
