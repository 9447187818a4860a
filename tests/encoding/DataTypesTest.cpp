#include <kel/mesh/DefaultMesh.h>
#include <kel/src/container/ShapeResourceContainer.h>
#include <kel/src/encoding/DataTypes.h>

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <memory>

namespace {

using namespace kel::src::detail;

ShapeResourceContainer::SRCDataType type(std::uint32_t value) {
    return static_cast<ShapeResourceContainer::SRCDataType>(value);
}

TEST(DataTypes, HaveTheirNames) {
    const char* expected[] = {"UBYTE", "BYTE", "USHORT", "SHORT", "UINT", "INT", "FLOAT", "UNKNOWN"};
    for (std::uint32_t value = 0; value < 8; ++value)
        EXPECT_EQ(getTypeString(type(value)), expected[value]);
}

TEST(DataTypes, HaveTheirSizes) {
    const std::uint32_t expected[] = {1, 1, 2, 2, 4, 4, 4, 4294967295u};
    for (std::uint32_t value = 0; value < 8; ++value)
        EXPECT_EQ(getTypeSizeInBytes(type(value)), expected[value]);
}

TEST(DataTypes, HaveTheirWebGLIdentifiers) {
    const std::uint32_t expected[] = {5121, 5120, 5123, 5122, 5125, 5124, 5126, 5126};
    for (std::uint32_t value = 0; value < 8; ++value) {
        EXPECT_EQ(ShapeResourceContainer::getWebGLTypeIdentifier(type(value)), expected[value]);
    }
}

TEST(PrimitiveTypes, HaveTheirWebGLIdentifiers) {
    const std::uint32_t expected[] = {4, 1, 0, 4};
    for (std::uint32_t value = 0; value < 4; ++value) {
        EXPECT_EQ(ShapeResourceContainer::getWebGLPrimitiveTypeIdentifier(
                      static_cast<ShapeResourceContainer::SRCPrimitiveType>(value)),
                  expected[value]);
    }
}

TEST(ComponentTypes, HaveTheirStrings) {
    const char* expected[] = {"INVALID", "SCALAR", "VEC2", "VEC3", "VEC4", "INVALID"};
    for (unsigned int components = 0; components < 6; ++components) {
        EXPECT_EQ(ShapeResourceContainer::getComponentTypeString(components), expected[components]);
    }
}

// Callers of other compilation units need them as symbols of the library.
TEST(StaticMappings, HaveAddresses) {
    using Container = ShapeResourceContainer;
    std::uint32_t (*const typeIdentifier)(Container::SRCDataType) = &Container::getWebGLTypeIdentifier;
    std::uint32_t (*const primitiveIdentifier)(Container::SRCPrimitiveType) =
        &Container::getWebGLPrimitiveTypeIdentifier;
    std::string (*const typeString)(unsigned int) = &Container::getComponentTypeString;
    EXPECT_EQ(typeIdentifier(Container::USHORT), 5123u);
    EXPECT_EQ(primitiveIdentifier(Container::LINES), 1u);
    EXPECT_EQ(typeString(3), "VEC3");
    for (const char* name :
         {"_ZN3kel3src6detail22ShapeResourceContainer22getWebGLTypeIdentifierENS2_11SRCDataTypeE",
          "_ZN3kel3src6detail22ShapeResourceContainer31getWebGLPrimitiveTypeIdentifierENS2_"
          "16SRCPrimitiveTypeE",
          "_ZN3kel3src6detail22ShapeResourceContainer22getComponentTypeStringB5cxx11Ej",
          "_ZN3kel3src6detail13getTypeStringB5cxx11ENS1_22ShapeResourceContainer11SRCDataTypeE",
          "_ZN3kel3src6detail18getTypeSizeInBytesENS1_22ShapeResourceContainer11SRCDataTypeE"}) {
        EXPECT_NE(dlsym(RTLD_DEFAULT, name), nullptr) << name;
    }
}

TEST(ConvertUint32ToUshort16, KeepsTheLowSixteenBits) {
    const unsigned char data[12] = {0, 0, 1, 0, 1, 0, 1, 0, 0xfe, 0xff, 0, 0}; // 65536, 65537, 65534
    const std::unique_ptr<unsigned short[]> narrowed(convertUint32ToUshort16(data, 3));
    EXPECT_EQ(narrowed[0], 0);
    EXPECT_EQ(narrowed[1], 1);
    EXPECT_EQ(narrowed[2], 65534);
}

TEST(ConvertUint32ToUshort16, OfNothingIsAnArray) {
    const std::unique_ptr<unsigned short[]> narrowed(convertUint32ToUshort16(nullptr, 0));
    EXPECT_NE(narrowed, nullptr);
}

TEST(GetNumAttributeValues, IsTheNumberOfAttributeBuffers) {
    const auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
    mesh->addAttribute("position", 3, std::vector<float>(9));
    mesh->addAttribute("normal", 3, std::vector<float>(9));
    EXPECT_EQ(getNumAttributeValues(mesh), 2u);
}

} // namespace
