#include <kel/mesh/DefaultMesh.h>
#include <kel/mesh/detail/AttributeBufferDataView.h>
#include <kel/src/MeshUtils.h>

#include <support/ForeignMesh.h>
#include <support/Kernels.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstring>
#include <limits>
#include <stdexcept>
#include <vector>

namespace {

using namespace kel::src::detail;
using kel::mesh::AttributeBuffer;
using kel::tests::foreignFloats;

constexpr float LARGEST = 3.4028235e38f;
const float NOT_A_NUMBER = std::numeric_limits<float>::quiet_NaN();

std::shared_ptr<AttributeBuffer> positions(std::vector<float> values) {
    kel::mesh::DefaultMesh mesh;
    mesh.addAttribute("position", 3, std::move(values));
    return mesh.getAttributeBuffer("position");
}

struct Box {
    glm::vec3 first{7, 7, 7}, second{7, 7, 7};
    bool operator==(const Box& other) const {
        return std::memcmp(this, &other, sizeof *this) == 0;
    } // to the bit
};

Box minMax(const std::shared_ptr<AttributeBuffer>& buffer) {
    Box box;
    computeBoundingBoxMinMax(buffer, box.first, box.second);
    return box;
}

Box centerSize(const std::shared_ptr<AttributeBuffer>& buffer) {
    Box box;
    computeBoundingBoxCenterSize(buffer, box.first, box.second);
    return box;
}

TEST(BoundingBox, OfOneElementIsThatElement) {
    const Box box = minMax(positions({1, 2, 3}));
    EXPECT_EQ(box.first, glm::vec3(1, 2, 3));
    EXPECT_EQ(box.second, glm::vec3(1, 2, 3));
}

TEST(BoundingBox, OfOneElementHasTheSmallestSides) {
    const Box box = centerSize(positions({1, 2, 3}));
    EXPECT_EQ(box.first, glm::vec3(1, 2, 3));
    EXPECT_EQ(box.second, glm::vec3(1e-16f, 1e-16f, 1e-16f));
}

TEST(BoundingBox, FlatSideIsAHundredMillionthOfTheDiagonal) {
    const Box box = centerSize(positions({0, 0, 0, 2, 4, 0}));
    EXPECT_EQ(box.first, glm::vec3(1, 2, 0));
    EXPECT_EQ(box.second.x, 2.0f);
    EXPECT_EQ(box.second.y, 4.0f);
    EXPECT_FLOAT_EQ(box.second.z, 4.4721360e-8f);
}

TEST(BoundingBox, OfNothingKeepsTheStartValues) {
    const Box box = minMax(positions({}));
    EXPECT_EQ(box.first, glm::vec3(LARGEST, LARGEST, LARGEST));
    EXPECT_EQ(box.second, glm::vec3(-LARGEST, -LARGEST, -LARGEST));
}

TEST(BoundingBox, OfNothingHasThePlaceholderBox) {
    const Box box = centerSize(positions({}));
    EXPECT_EQ(box.first, glm::vec3(-0.1f, -0.1f, -0.1f));
    EXPECT_EQ(box.second, glm::vec3(0.1f, 0.1f, 0.1f));
}

TEST(BoundingBox, ANaNReplacesABoundAndANumberReplacesTheNaN) {
    const Box numberLast = minMax(positions({1, 0, 0, NOT_A_NUMBER, 0, 0, 5, 0, 0}));
    EXPECT_EQ(numberLast.first.x, 5.0f);
    EXPECT_EQ(numberLast.second.x, 5.0f);
    const Box nanLast = minMax(positions({1, 0, 0, NOT_A_NUMBER, 0, 0}));
    EXPECT_TRUE(std::isnan(nanLast.first.x));
    EXPECT_TRUE(std::isnan(nanLast.second.x));
}

TEST(BoundingBox, ANaNSideStaysNaN) {
    const Box box = centerSize(positions({NOT_A_NUMBER, 0, 0}));
    EXPECT_TRUE(std::isnan(box.second.x));
    EXPECT_EQ(box.second.y, 1e-16f); // the diagonal is NaN too
}

TEST(BoundingBox, OfFewerThanThreeComponentsLeavesTheOthersZero) {
    const Box box = minMax(foreignFloats("position", 2, {1, 2, 3, 4}));
    EXPECT_EQ(box.first, glm::vec3(1, 2, 0));
    EXPECT_EQ(box.second, glm::vec3(3, 4, 0));
}

TEST(BoundingBox, OfFourComponentsReadsTheFirstThree) {
    const Box box = minMax(foreignFloats("position", 4, {1, 2, 3, 99, -1, -2, -3, -99}));
    EXPECT_EQ(box.first, glm::vec3(-1, -2, -3));
    EXPECT_EQ(box.second, glm::vec3(1, 2, 3));
}

TEST(BoundingBox, AsksAForeignBufferForItsCountOnceAndForEachElementOnceAndForNothingElse) {
    for (const std::size_t components : {2, 3, 4}) {
        const auto log = std::make_shared<kel::tests::CallLog>();
        minMax(foreignFloats("p", components, std::vector<float>(2 * components, 1.0f), log));
        EXPECT_EQ(*log, (kel::tests::CallLog{"p.getElementCount", "p.getElement(0)", "p.getElement(1)"}));
    }
}

TEST(BoundingBox, AsCentreAndSizeAsksForTheCountTwice) {
    const auto log = std::make_shared<kel::tests::CallLog>();
    centerSize(foreignFloats("p", 3, {1, 2, 3}, log));
    EXPECT_EQ(*log, (kel::tests::CallLog{"p.getElementCount", "p.getElementCount", "p.getElement(0)"}));
    log->clear();
    centerSize(foreignFloats("p", 3, {}, log));
    EXPECT_EQ(*log, (kel::tests::CallLog{"p.getElementCount"}));
}

TEST(BoundingBox, OfInterleavedPositionsIsThatOfPackedOnes) {
    const std::vector<float> values = {1, 2, 3, 99, -4, 5, -6, 99};
    std::vector<unsigned char> bytes(values.size() * sizeof(float));
    std::memcpy(bytes.data(), values.data(), bytes.size());
    const auto data = std::make_shared<kel::mesh::detail::VectorBufferData>(bytes);
    const auto view = [&](std::size_t components) {
        return std::make_shared<kel::mesh::detail::AttributeBufferDataView>(kel::mesh::FLOAT, components, 16,
                                                                            0, data, "position");
    };
    EXPECT_EQ(minMax(view(3)), minMax(positions({1, 2, 3, -4, 5, -6})));
    EXPECT_EQ(minMax(view(2)), minMax(positions({1, 2, 0, -4, 5, 0})));
}

TEST(BoundingBox, ABufferWhoseBytesEndBeforeItsElementsIsAnException) {
    // The count does not subtract the offset, so the last element has no bytes. An element is wider than any
    // scratch memory.
    const auto data =
        std::make_shared<kel::mesh::detail::VectorBufferData>(std::vector<unsigned char>(3 * 160));
    const kel::mesh::detail::AttributeBufferDataView view(kel::mesh::FLOAT, 40, 160, 16, data, "position");
    EXPECT_THROW(minMax(std::make_shared<kel::mesh::detail::AttributeBufferDataView>(view)),
                 std::out_of_range);
}

TEST(IsAttributeVec3f, OnlyForThreeFloats) {
    EXPECT_FALSE(isAttributeVec3f(nullptr));
    EXPECT_FALSE(isAttributeVec3f(AttributeBuffer::createDefault(kel::mesh::UNSIGNED_SHORT, 3, "a")));
    EXPECT_FALSE(isAttributeVec3f(AttributeBuffer::createDefault(kel::mesh::FLOAT, 4, "a")));
    EXPECT_TRUE(isAttributeVec3f(AttributeBuffer::createDefault(kel::mesh::FLOAT, 3, "a")));
}

TEST(IsAttributeVec3f, DoesNotAskTheCountOfAnotherType) {
    const auto log = std::make_shared<kel::tests::CallLog>();
    isAttributeVec3f(std::make_shared<kel::tests::ForeignAttribute>(kel::mesh::UNSIGNED_SHORT, 3,
                                                                    std::vector<unsigned char>(6), "p", log));
    EXPECT_EQ(*log, kel::tests::CallLog{"p.getComponentType"});
}

RC_GTEST_PROP(BoundingBox, IsTheSameThroughTheInterface, ()) {
    auto values = *kel::tests::anyFloats();
    values.resize(values.size() / 3 * 3);
    RC_ASSERT(centerSize(positions(values)) == centerSize(foreignFloats("position", 3, values)));
}

} // namespace
