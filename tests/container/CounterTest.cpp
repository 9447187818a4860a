// The counters behind the IDs near their largest value, and IDs that are left unused.
#include <kel/src/container/ShapeResourceContainer.h>

#include <support/SrcText.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using kel::src::detail::ShapeResourceContainer;
using kel::tests::SrcText;
using kel::tests::written;

constexpr std::uint32_t LARGEST = 4294967295u;

/// A container whose counters stand at a number of the test's choice.
class CountedContainer : public ShapeResourceContainer {
public:
    explicit CountedContainer(std::uint32_t next) { setCounters(next); }
    void setCounters(std::uint32_t next) {
        indexViewCounter = attributeViewCounter = bufferViewCounter = bufferChunkCounter = next;
    }
};

SrcText fileOf(ShapeResourceContainer& container) {
    return written([&](std::ostream& out) { container.writeToStream(out); });
}

std::string addBytes(ShapeResourceContainer& container, std::size_t size) {
    const std::vector<unsigned char> bytes(size, 7);
    return container.addBufferView(bytes.data(), size, nullptr);
}

std::string addAttribute(ShapeResourceContainer& container, unsigned long count) {
    const double zero = 0, one = 1;
    return container.addAttributeView<1>("b", 0, 4, count, ShapeResourceContainer::FLOAT, &zero, &one);
}

TEST(Counters, GoOnWithZeroBehindTheLargest) {
    CountedContainer container(LARGEST);
    EXPECT_EQ(container.createIndexViewID(), "indexView4294967295");
    EXPECT_EQ(container.createIndexViewID(), "indexView0");
    EXPECT_EQ(container.createAttributeViewID(), "attributeView4294967295");
    EXPECT_EQ(container.createAttributeViewID(), "attributeView0");
    EXPECT_EQ(container.createBufferViewID(), "bufferView4294967295");
    EXPECT_EQ(container.createBufferViewID(), "bufferView0");
    EXPECT_EQ(container.createBufferChunkID(), "chunk4294967295");
    EXPECT_EQ(container.createBufferChunkID(), "chunk0");
}

TEST(Counters, EntriesOnBothSidesOfTheLargestAreWrittenInOrder) {
    CountedContainer container(LARGEST - 1);
    for (std::size_t size = 1; size <= 4; ++size)
        addBytes(container, size);
    const SrcText file = fileOf(container);
    EXPECT_EQ(file.at("bufferViews"),
              R"({"bufferView0":{"byteLength":3,"chunks":["chunk0"]},)"
              R"("bufferView1":{"byteLength":4,"chunks":["chunk1"]},)"
              R"("bufferView4294967294":{"byteLength":1,"chunks":["chunk4294967294"]},)"
              R"("bufferView4294967295":{"byteLength":2,"chunks":["chunk4294967295"]}})");
    EXPECT_EQ(file.at("bufferChunks"), R"({"chunk0":{"byteLength":3,"byteOffset":3},)"
                                       R"("chunk1":{"byteLength":4,"byteOffset":6},)"
                                       R"("chunk4294967294":{"byteLength":1,"byteOffset":0},)"
                                       R"("chunk4294967295":{"byteLength":2,"byteOffset":1}})");
    EXPECT_EQ(file.json.serialize(), file.header); // picojson sorts on its own
}

TEST(Counters, TheChunksOfOneViewMayLieOnBothSidesOfTheLargest) {
    CountedContainer container(LARGEST);
    const unsigned char bytes[10] = {};
    const std::vector<unsigned int> borders = {2, 5, 9};
    container.addBufferView(bytes, 10, &borders);
    EXPECT_EQ(fileOf(container).at("bufferViews", "bufferView4294967295", "chunks"),
              R"(["chunk4294967295","chunk0","chunk1"])");
}

TEST(Counters, AnEntryReplacesTheOlderOneOfItsId) {
    CountedContainer container(0);
    for (unsigned long count = 1; count <= 3; ++count) {
        addAttribute(container, count);
        container.addIndexView("b", 0, count, ShapeResourceContainer::USHORT);
        addBytes(container, count);
    }
    container.setCounters(1); // as after once around
    EXPECT_EQ(addAttribute(container, 77), "attributeView1");
    EXPECT_EQ(container.addIndexView("b", 0, 78, ShapeResourceContainer::USHORT), "indexView1");
    EXPECT_EQ(addBytes(container, 79), "bufferView1");
    const SrcText file = fileOf(container);
    EXPECT_EQ(file.at("accessors", "attributeViews", "attributeView0", "count"), "1");
    EXPECT_EQ(file.at("accessors", "attributeViews", "attributeView1", "count"), "77");
    EXPECT_EQ(file.at("accessors", "attributeViews", "attributeView2", "count"), "3");
    EXPECT_EQ(file.at("accessors", "indexViews", "indexView1", "count"), "78");
    EXPECT_EQ(file.at("bufferViews", "bufferView1", "byteLength"), "79");
    // The replaced chunk's bytes stay where they are.
    EXPECT_EQ(file.at("bufferChunks", "chunk1"), R"({"byteLength":79,"byteOffset":6})");
    EXPECT_EQ(file.data.size(), 6u + 79u);
    EXPECT_EQ(file.json.serialize(), file.header);
}

TEST(Counters, UnusedIdsCostNothing) {
    // An entry at the largest number, one every billion: memory or time by number would not end.
    CountedContainer container(0);
    for (const std::uint32_t number : {5u, 1000000000u, 2000000000u, 3000000000u, LARGEST}) {
        container.setCounters(number);
        addAttribute(container, 1);
        container.addIndexView("b", 0, 1, ShapeResourceContainer::USHORT);
        addBytes(container, 1);
    }
    const SrcText file = fileOf(container);
    EXPECT_EQ(file.json.get("bufferViews").get<picojson::object>().size(), 5u);
    EXPECT_EQ(file.json.get("bufferChunks").get<picojson::object>().size(), 5u);
    EXPECT_EQ(file.json.serialize(), file.header);
}

TEST(Counters, EveryOtherIdUnusedStaysInOrder) {
    ShapeResourceContainer container;
    for (int i = 0; i < 120; ++i) {
        container.createIndexViewID();
        container.addIndexView("b", 0, static_cast<unsigned long>(i), ShapeResourceContainer::USHORT);
    }
    const SrcText file = fileOf(container);
    EXPECT_EQ(file.json.get("accessors").get("indexViews").get<picojson::object>().size(), 120u);
    EXPECT_EQ(file.at("accessors", "indexViews", "indexView239", "count"), "119");
    EXPECT_EQ(file.json.serialize(), file.header);
}

} // namespace
