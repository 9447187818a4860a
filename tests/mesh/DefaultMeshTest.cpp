#include <kel/material/MaterialClassic.h>
#include <kel/mesh/KelMesh.h>

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <stdexcept>

namespace {

using namespace kel::mesh;
using kel::material::MaterialClassic;

TEST(DefaultMesh, CountsPrimitivesFromItsIndices) {
    const std::size_t expected[] = {7, 3, 7, 6, 2, 5, 5}; // points, lines, loop, strip, triangles, strip, fan
    for (std::uint32_t type = 0; type < 7; ++type) {
        DefaultMesh mesh(static_cast<PrimitiveType>(type));
        mesh.setIndices(std::vector<std::uint16_t>(7));
        EXPECT_EQ(mesh.getNumPrimitives(), expected[type]) << type;
    }
}

TEST(DefaultMesh, CountsPrimitivesFromItsPositionsWithoutIndices) {
    DefaultMesh mesh;
    mesh.addAttribute("position", 3, std::vector<float>(18));
    EXPECT_EQ(mesh.getNumPrimitives(), 2u);
    EXPECT_EQ(mesh.getIndexBuffer(), nullptr);
}

TEST(DefaultMesh, IndicesKeepTheWidthOfTheirVector) {
    DefaultMesh mesh;
    mesh.setIndices(std::vector<std::uint8_t>{7});
    EXPECT_EQ(mesh.getIndexBuffer()->getElementSizeInBytes(), 1u);
    mesh.setIndices(std::vector<std::uint16_t>{7});
    EXPECT_EQ(mesh.getIndexBuffer()->getElementSizeInBytes(), 2u);
    mesh.setIndices(std::vector<std::uint32_t>{70000});
    EXPECT_EQ(mesh.getIndexBuffer()->getElementSizeInBytes(), 4u);
    EXPECT_EQ(mesh.getIndexBuffer()->getIndex(0), 70000u);
    EXPECT_THROW(mesh.getIndexBuffer()->getIndex(1), std::out_of_range);
}

TEST(DefaultMesh, AddingAnAttributeAgainReplacesItInPlace) {
    DefaultMesh mesh;
    mesh.addAttribute("position", 3, std::vector<float>(9));
    mesh.addAttribute("normal", 3, std::vector<float>(9));
    mesh.addAttribute("position", 3, std::vector<float>(12));
    ASSERT_EQ(mesh.getNumAttributeBuffers(), 2u);
    EXPECT_EQ(mesh.getAttributeBuffer(0)->getElementCount(), 4u);
    EXPECT_EQ(mesh.getAttributeBuffer("color"), nullptr);
}

TEST(DefaultMesh, RefusesBrokenElements) {
    DefaultMesh mesh;
    EXPECT_THROW(mesh.addAttribute("position", 3, std::vector<float>(10)), std::invalid_argument);
    EXPECT_THROW(mesh.addAttribute("position", 0, std::vector<float>(10)), std::invalid_argument);
    EXPECT_THROW(mesh.addAttribute(nullptr), std::invalid_argument);
}

TEST(TransformAttributes, CallsOncePerElementAndSizesTheTarget) {
    DefaultMesh mesh;
    mesh.addAttribute("normal", 3, std::vector<float>{0, 0, 1, 1, 0, 0});
    const auto target = AttributeBuffer::createDefault(UNSIGNED_BYTE, 2, "nor2ub_oct");
    transformAttributes(mesh.getAttributeBuffer("normal"), target, quantizeNormals());
    ASSERT_EQ(target->getElementCount(), 2u);
    std::array<unsigned char, 2> code{};
    target->getElement(1, code.data());
    EXPECT_EQ(code, (std::array<unsigned char, 2>{254, 127}));
}

TEST(QuantizeVec3, TestsBelowOneBeforeAboveZero) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const auto code = [](float value, float min, float max) {
        return quantizeComponent<float, unsigned short>(value, min, max);
    };
    EXPECT_EQ(code(-1, -1, 1), 0);
    EXPECT_EQ(code(1, -1, 1), 65535);
    EXPECT_EQ(code(0, -1, 1), 32767); // 32767.5, truncated
    EXPECT_EQ(code(-9, -1, 1), 0);
    EXPECT_EQ(code(9, -1, 1), 65535);
    EXPECT_EQ(code(nan, -1, 1), 65535);
    EXPECT_EQ(code(3, 3, 3), 65535); // 0 / 0
    EXPECT_EQ(code(2, 3, 3), 0);     // -1 / 0
}

TEST(PrimitiveType, HasAName) {
    EXPECT_EQ(getStringForPrimitiveType(TRIANGLE_FAN), "TRIANGLE_FAN");
    EXPECT_EQ(getStringForPrimitiveType(static_cast<PrimitiveType>(9)), "UNKNOWN (9)");
}

TEST(MaterialClassic, AnswersItsAttributesByName) {
    MaterialClassic material(7);
    material.setDiffuse({0.5f, 0.25f, 1});
    material.setTransparency(0.5f);
    EXPECT_EQ(material.identifier, 7u);
    ASSERT_TRUE(material.getDescription()->hasAttribute("diffuse"));
    const auto diffuse = material.getAttribute("diffuse");
    EXPECT_EQ(std::vector<float>(diffuse.begin(), diffuse.end()), (std::vector<float>{0.5f, 0.25f, 1}));
    EXPECT_EQ(*material.getAttribute("transparency").begin(), 0.5f);
    EXPECT_FALSE(material.getDescription()->hasAttribute("roughness"));
    EXPECT_EQ(material.getAttribute("roughness").size(), 0u);
}

TEST(MaterialClassic, AnAttributeCanBeTakenOut) {
    MaterialClassic material(7);
    material.removeAttribute("specular");
    EXPECT_FALSE(material.getDescription()->hasAttribute("specular"));
    EXPECT_TRUE(material.getDescription()->hasAttribute("diffuse"));
    EXPECT_THROW(material.removeAttribute("glow"), std::invalid_argument);
}

TEST(MaterialClassic, GivesEachMaterialItsOwnIdentifier) {
    EXPECT_NE(MaterialClassic().identifier, MaterialClassic().identifier);
}

} // namespace
