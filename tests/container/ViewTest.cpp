#include <kel/src/container/ShapeResourceContainer.h>

#include <support/SrcText.h>

#include <gtest/gtest.h>

namespace {

using kel::src::detail::ShapeResourceContainer;
using kel::tests::SrcText;
using kel::tests::written;

SrcText fileOf(ShapeResourceContainer& container) {
    return written([&](std::ostream& out) { container.writeToStream(out); });
}

const double ZEROS[3] = {0, 0, 0};
const double ONES[3] = {1, 1, 1};

TEST(IndexView, RecordsWhatItIsGiven) {
    ShapeResourceContainer container;
    EXPECT_EQ(container.addIndexView("bufferView1", 0, 36, ShapeResourceContainer::USHORT), "indexView0");
    EXPECT_EQ(
        fileOf(container).at("accessors", "indexViews"),
        R"({"indexView0":{"bufferView":"bufferView1","byteOffset":0,"componentType":5123,"count":36}})");
}

TEST(AttributeView, OfThreeComponentsIsAVec3WithItsDecodeVectors) {
    ShapeResourceContainer container;
    const double offsets[3] = {-1.5, 0, 2}, scales[3] = {0.5, 0.5, 0.5};
    container.addAttributeView<3>("b", 4, 6, 7, ShapeResourceContainer::USHORT, offsets, scales);
    EXPECT_EQ(fileOf(container).at("accessors", "attributeViews", "attributeView0"),
              R"({"bufferView":"b","byteOffset":4,"byteStride":6,"componentType":5123,"count":7,)"
              R"("decodeOffset":[-1.5,0,2],"decodeScale":[0.5,0.5,0.5],"type":"VEC3"})");
}

TEST(AttributeView, OfTwoComponentsIsAVec2) {
    ShapeResourceContainer container;
    container.addAttributeView<2>("b", 0, 8, 1, ShapeResourceContainer::FLOAT, ZEROS, ONES);
    const SrcText file = fileOf(container);
    EXPECT_EQ(file.at("accessors", "attributeViews", "attributeView0", "type"), "\"VEC2\"");
    EXPECT_EQ(file.at("accessors", "attributeViews", "attributeView0", "decodeScale"), "[1,1]");
}

TEST(AttributeView, OfOneComponentHasArraysOfOne) {
    ShapeResourceContainer container;
    container.addAttributeView<1>("b", 0, 4, 1, ShapeResourceContainer::FLOAT, ZEROS, ONES);
    const SrcText file = fileOf(container);
    EXPECT_EQ(file.at("accessors", "attributeViews", "attributeView0", "type"), "\"SCALAR\"");
    EXPECT_EQ(file.at("accessors", "attributeViews", "attributeView0", "decodeOffset"), "[0]");
    EXPECT_EQ(file.at("accessors", "attributeViews", "attributeView0", "decodeScale"), "[1]");
}

TEST(AttributeView, SinglePrecisionNumbersShowAllTheirDigits) {
    ShapeResourceContainer container;
    const double scale = 0.1f;
    container.addAttributeView<1>("b", 0, 4, 1, ShapeResourceContainer::FLOAT, ZEROS, &scale);
    EXPECT_EQ(fileOf(container).at("accessors", "attributeViews", "attributeView0", "decodeScale"),
              "[0.10000000149011612]");
}

TEST(AttributeView, StrideZeroIsWrittenAsZero) {
    ShapeResourceContainer container;
    container.addAttributeView<1>("b", 0, 0, 1, ShapeResourceContainer::FLOAT, ZEROS, ONES);
    EXPECT_EQ(fileOf(container).at("accessors", "attributeViews", "attributeView0", "byteStride"), "0");
}

TEST(AttributeView, InterleavedViewsOfOneBufferViewAreBothStored) {
    ShapeResourceContainer container;
    EXPECT_EQ(container.addAttributeView<3>("b", 0, 20, 1, ShapeResourceContainer::FLOAT, ZEROS, ONES),
              "attributeView0");
    EXPECT_EQ(container.addAttributeView<2>("b", 12, 20, 1, ShapeResourceContainer::FLOAT, ZEROS, ONES),
              "attributeView1");
    EXPECT_EQ(fileOf(container).at("accessors", "attributeViews", "attributeView1", "byteOffset"), "12");
}

TEST(AttributeView, AnIdThatNamesNothingIsStoredAsItIs) {
    ShapeResourceContainer container;
    container.addIndexView("no \"such\" view", 0, 0, ShapeResourceContainer::UINT);
    EXPECT_EQ(fileOf(container).at("accessors", "indexViews", "indexView0", "bufferView"),
              R"("no \"such\" view")");
}

} // namespace
