// The facts of the file against those that the platform's closed libraries state again in their own headers.
#include <kel/material/MaterialClassic.h>
#include <kel/mesh/AttributeBuffer.h>
#include <kel/src/format/ElementTypes.h>
#include <kel/src/format/MaterialParameters.h>

#include <src/Types.h>

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace {

namespace format = kel::src::format;

TEST(PlatformFacts, ComponentSizesAreThoseOfTheMeshLibrary) {
    for (std::uint32_t code = 5120; code <= 5126; ++code) {
        const auto* row = format::componentType(code);
        ASSERT_NE(row, nullptr);
        EXPECT_EQ(row->bytes,
                  kel::mesh::getComponentSizeInBytes(static_cast<kel::mesh::ComponentType>(code)));
    }
}

TEST(PlatformFacts, ComponentTypesAreThoseOfTheBuilderLibrary) {
    const std::pair<src::ComponentType, const char*> expected[] = {
        {src::BYTE, "BYTE"},   {src::UNSIGNED_BYTE, "UBYTE"},
        {src::SHORT, "SHORT"}, {src::UNSIGNED_SHORT, "USHORT"},
        {src::INT, "INT"},     {src::UNSIGNED_INT, "UINT"},
        {src::FLOAT, "FLOAT"}};
    for (const auto& [type, name] : expected)
        EXPECT_EQ(format::componentType(type)->name, name);
}

TEST(PlatformFacts, MaterialParametersComeFromAttributesOfClassicMaterials) {
    const kel::material::MaterialClassic material;
    for (const auto& parameter : format::MATERIAL_PARAMETERS) {
        const std::string attribute(parameter.attribute);
        EXPECT_TRUE(material.getDescription()->hasAttribute(attribute)) << attribute;
        EXPECT_EQ(material.getAttribute(attribute).size(), parameter.components) << attribute;
    }
}

} // namespace
