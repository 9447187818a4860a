#include <kel/mesh/KelMesh.h>

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <stdexcept>
#include <vector>

namespace {

using namespace kel::mesh;
using detail::AttributeBufferDataView;
using detail::DefaultBuffer;
using detail::VectorBufferData;

TEST(DefaultBuffer, CountsWholeStridesWhateverTheOffset) {
    const auto data = std::make_shared<VectorBufferData>(std::vector<unsigned char>(20));
    EXPECT_EQ(DefaultBuffer(UNSIGNED_SHORT, 3, 8, 0, data).getElementCount(), 2u);
    EXPECT_EQ(DefaultBuffer(UNSIGNED_BYTE, 2, 8, 6, data).getElementCount(), 2u);
}

TEST(DefaultBuffer, ResizeMakesWholeStridesOfZeroBytes) {
    const auto data = std::make_shared<VectorBufferData>();
    DefaultBuffer buffer(UNSIGNED_SHORT, 3, 8, 0, data);
    buffer.resize(5);
    ASSERT_EQ(data->getSizeInBytes(), 40u);
    EXPECT_EQ(std::vector<unsigned char>(data->getData(), data->getData() + 40),
              std::vector<unsigned char>(40, 0));
}

TEST(AttributeBufferDataView, ReportsItsLayout) {
    const auto data = std::make_shared<VectorBufferData>(std::vector<unsigned char>(16));
    const AttributeBufferDataView view(UNSIGNED_SHORT, 3, 8, 0, data, "pos3us");
    EXPECT_EQ(view.getComponentSizeInBytes(), 2u);
    EXPECT_EQ(view.getElementSizeInBytes(), 6u);
    EXPECT_EQ(view.getElementStrideInBytes(), 8u);
    EXPECT_EQ(view.getElementOffsetInBytes(), 0u);
    EXPECT_EQ(view.getAttributeName(), "pos3us");
}

TEST(AttributeBufferDataView, AnswersTheSameThroughBothBufferBases) {
    const auto data = std::make_shared<VectorBufferData>(std::vector<unsigned char>(16));
    AttributeBufferDataView view(UNSIGNED_BYTE, 2, 8, 6, data, "nor2ub_oct");
    const Buffer& asAttribute = static_cast<const AttributeBuffer&>(view);
    const Buffer& asDefault = static_cast<const DefaultBuffer&>(view);
    EXPECT_EQ(asAttribute.getElementStrideInBytes(), asDefault.getElementStrideInBytes());
    EXPECT_EQ(asAttribute.getElementCount(), asDefault.getElementCount());
    EXPECT_EQ(asAttribute.getComponentCountPerElement(), 2u);
    EXPECT_EQ(asDefault.getComponentCountPerElement(), 2u);
}

TEST(AttributeBufferDataView, InterleavedViewsShareTheirBytes) {
    const auto data = std::make_shared<VectorBufferData>(std::vector<unsigned char>(16));
    AttributeBufferDataView positions(UNSIGNED_SHORT, 3, 8, 0, data, "pos3us");
    AttributeBufferDataView normals(UNSIGNED_BYTE, 2, 8, 6, data, "nor2ub_oct");
    const std::array<std::uint16_t, 3> position = {0x0201, 0x0403, 0x0605};
    const std::array<std::uint8_t, 2> normal = {7, 8};
    positions.setElement(1, position.data());
    normals.setElement(1, normal.data());
    EXPECT_EQ(std::vector<unsigned char>(data->getData() + 8, data->getData() + 16),
              (std::vector<unsigned char>{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(DefaultAttributeBuffer, RefusesAnElementPastTheBytes) {
    const auto data = std::make_shared<VectorBufferData>(std::vector<unsigned char>(20));
    const AttributeBufferDataView view(UNSIGNED_SHORT, 3, 8, 6, data, "a");
    std::array<std::uint16_t, 3> element{};
    EXPECT_NO_THROW(view.getElement(1, element.data()));
    EXPECT_THROW(view.getElement(2, element.data()), std::out_of_range);
    EXPECT_THROW(view.getElement(~std::size_t(0), element.data()), std::out_of_range);
}

TEST(AttributeBuffer, IsVec3fOnlyForThreeFloats) {
    EXPECT_TRUE(AttributeBuffer::createDefault(FLOAT, 3, "a")->isVec3f());
    EXPECT_FALSE(AttributeBuffer::createDefault(UNSIGNED_SHORT, 3, "a")->isVec3f());
    EXPECT_FALSE(AttributeBuffer::createDefault(FLOAT, 2, "a")->isVec3f());
}

} // namespace
