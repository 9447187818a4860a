#include <kel/src/default_writer/ClassicMaterial.h>

#include <support/SrcText.h>

#include <gtest/gtest.h>

namespace {

using namespace kel::src::detail;
using kel::material::MaterialClassic;
using kel::tests::SrcText;
using kel::tests::written;

SrcText fileOf(ShapeResourceContainer& container) {
    return written([&](std::ostream& out) { container.writeToStream(out); });
}

TEST(ClassicMaterialEntry, HasFiveArraysAndNoTransparency) {
    const auto material = std::make_shared<MaterialClassic>(1);
    material->setAmbient(0.5f);
    material->setDiffuse({1, 0, 0});
    material->setEmissive({0, 0, 0});
    material->setShininess(0.25f);
    material->setSpecular({1, 1, 1});
    material->setTransparency(0.75f);
    ShapeResourceContainer container;
    addMaterialDataToSRC(material, container, "material0");
    EXPECT_EQ(fileOf(container).at("materials"),
              R"({"material0":{"instanceTechnique":{"technique":"x3dStandardMaterialTechnique","values":{)"
              R"("ambientIntensity":[0.5],"diffuseColor":[1,0,0],"emissiveColor":[0,0,0],"shininess":[0.25],)"
              R"("specularColor":[1,1,1]}}}})");
}

TEST(ClassicMaterialEntry, KeepsValuesUnclampedAndWidensThemExactly) {
    const auto material = std::make_shared<MaterialClassic>(1);
    material->setDiffuse({0.8f, -2, 7});
    ShapeResourceContainer container;
    addMaterialDataToSRC(material, container, "m");
    EXPECT_EQ(fileOf(container).at("materials", "m", "instanceTechnique", "values", "diffuseColor"),
              "[0.80000001192092896,-2,7]");
}

TEST(ClassicMaterialEntry, AddedTwiceKeepsTheSecond) {
    const auto material = std::make_shared<MaterialClassic>(1);
    ShapeResourceContainer container;
    addMaterialDataToSRC(material, container, "m");
    material->setShininess(1.0f);
    addMaterialDataToSRC(material, container, "m");
    EXPECT_EQ(fileOf(container).at("materials", "m", "instanceTechnique", "values", "shininess"), "[1]");
}

TEST(X3DTechnique, HasTheseDefaults) {
    EXPECT_EQ(
        createStandardX3DMaterialTechnique().serialize(),
        R"({"ambientIntensity":{"value":0.20000000000000001},"diffuseColor":{"value":[0.80000000000000004,)"
        R"(0.80000000000000004,0.80000000000000004]},"emissiveColor":{"value":[0,0,0]},"shininess":{"value":)"
        R"(0.20000000000000001},"specularColor":{"value":[0,0,0]},"transparency":{"value":0.20000000000000001}})");
}

TEST(X3DTechnique, IsANewValueEachTime) {
    picojson::value changed = createStandardX3DMaterialTechnique();
    changed.get<picojson::object>().erase("transparency");
    EXPECT_TRUE(createStandardX3DMaterialTechnique().contains("transparency"));
}

TEST(AddFieldValue, ReplacesAnEarlierMember) {
    picojson::object object;
    addFieldValueToJSONObject("a", 1.0f, object);
    addFieldValueToJSONObject("a", glm::vec3(1, 2, 3), object);
    EXPECT_EQ(picojson::value(object).serialize(), R"({"a":[1,2,3]})");
}

} // namespace
