#include <kel/src/format/ElementTypes.h>
#include <kel/src/format/FileLayout.h>
#include <kel/src/format/MaterialParameters.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

using namespace kel::src::format;

TEST(Preamble, IsThreeNumbersLowestByteFirst) {
    EXPECT_EQ(PreambleBytes(0x12345678).text(), std::string_view("\x17\0\0\0*\0\0\0\x78\x56\x34\x12", 12));
    EXPECT_EQ(PreambleBytes(0x1ffffffffu).text().substr(8), "\xff\xff\xff\xff");
    EXPECT_EQ(readUint32("\x78\x56\x34\xf2"), 0xf2345678u);
}

TEST(ComponentTypes, StandAtTheirNumbers) {
    for (std::uint32_t number = 5120; number <= 5126; ++number) {
        ASSERT_NE(componentType(number), nullptr) << number;
        EXPECT_EQ(componentType(number)->webGL, number);
        EXPECT_EQ(componentType(number)->forIndices, number == 5121 || number == 5123 || number == 5125);
    }
    for (const std::uint64_t other : {std::uint64_t(0), std::uint64_t(5119), std::uint64_t(5127),
                                      (std::uint64_t(1) << 32) + 5120, ~std::uint64_t(0)})
        EXPECT_EQ(componentType(other), nullptr) << other;
}

TEST(MaterialParameters, AreInTheOrderOfTheirNames) {
    EXPECT_TRUE(std::is_sorted(
        std::begin(MATERIAL_PARAMETERS), std::end(MATERIAL_PARAMETERS),
        [](const MaterialParameter& a, const MaterialParameter& b) { return a.name < b.name; }));
    EXPECT_EQ(MATERIAL_PARAMETERS[TRANSPARENCY].name, "transparency");
}

} // namespace
