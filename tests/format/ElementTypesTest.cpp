// The facts of the file against those that the platform's closed libraries state again in their own headers.
#include <kel/material/MaterialClassic.h>
#include <kel/mesh/AttributeBuffer.h>
#include <kel/src/format/ElementTypes.h>
#include <kel/src/format/FileLayout.h>
#include <kel/src/format/MaterialParameters.h>

#include <src/Types.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

namespace format = kel::src::format;

TEST(ElementTypes, AreThoseOfTheMeshLibrary) {
    for (std::uint32_t code = 5120; code <= 5126; ++code) {
        const auto* row = format::componentType(code);
        ASSERT_NE(row, nullptr);
        EXPECT_EQ(row->webGL, code);
        EXPECT_EQ(row->bytes,
                  kel::mesh::getComponentSizeInBytes(static_cast<kel::mesh::ComponentType>(code)));
    }
    EXPECT_EQ(format::componentType(5119), nullptr);
    EXPECT_EQ(format::componentType(5127), nullptr);
}

TEST(ElementTypes, AreThoseOfTheBuilderLibrary) {
    const std::pair<src::ComponentType, const char*> expected[] = {
        {src::BYTE, "BYTE"},   {src::UNSIGNED_BYTE, "UBYTE"},
        {src::SHORT, "SHORT"}, {src::UNSIGNED_SHORT, "USHORT"},
        {src::INT, "INT"},     {src::UNSIGNED_INT, "UINT"},
        {src::FLOAT, "FLOAT"}};
    for (const auto& [type, name] : expected)
        EXPECT_EQ(format::componentType(type)->name, name);
}

TEST(MaterialParameters, StandInTheirOrderAndComeFromAttributesOfClassicMaterials) {
    EXPECT_TRUE(std::is_sorted(std::begin(format::MATERIAL_PARAMETERS), std::end(format::MATERIAL_PARAMETERS),
                               [](const auto& a, const auto& b) { return a.name < b.name; }));
    const kel::material::MaterialClassic material;
    for (const auto& parameter : format::MATERIAL_PARAMETERS) {
        const std::string attribute(parameter.attribute);
        EXPECT_TRUE(material.getDescription()->hasAttribute(attribute)) << attribute;
        EXPECT_EQ(material.getAttribute(attribute).size(), parameter.components) << attribute;
    }
}

TEST(Preamble, IsThreeLittleEndianNumbers) {
    EXPECT_EQ(format::PreambleBytes(0x04030201).text(), std::string("\x17\0\0\0\x2a\0\0\0\1\2\3\4", 12));
    EXPECT_EQ(format::PreambleBytes(0x100000005).text().substr(8), std::string("\5\0\0\0", 4));
}

} // namespace
