#include "Conversion.h"

#include <glm/common.hpp>

#include <algorithm>
#include <cmath>
#include <optional>

namespace kel::importer::detail {

namespace {

using kel::material::MaterialClassic;

constexpr float DEFAULT_AMBIENT = 0.2f;
constexpr float REFLECTANCE_OF_DIELECTRICS = 0.04f;

bool isFinite(float value) {
    return std::isfinite(value);
}
bool isFinite(const glm::vec3& c) {
    return std::isfinite(c.r) && std::isfinite(c.g) && std::isfinite(c.b);
}

/// The value where it is stated and a finite one.
template<typename Value>
Value valueOr(const std::optional<Value>& stated, const Value& otherwise) {
    return stated && isFinite(*stated) ? *stated : otherwise;
}

float mean(const glm::vec3& c) {
    return (c.r + c.g + c.b) / 3.0f;
}

float shininessOf(float exponent) {
    return std::min(1.0f, std::max(0.0f, exponent / LARGEST_PHONG_EXPONENT));
}

void setMetallicRoughness(const ModelMaterial::MetallicRoughness& source, MaterialClassic& material) {
    const auto finiteOr1 = [](float value) { return std::isfinite(value) ? value : 1.0f; };
    const glm::vec3 base = valueOr(std::optional(glm::vec3(source.baseColor)), glm::vec3(1.0f));
    const float metallic = finiteOr1(source.metallic);
    const float roughness = finiteOr1(source.roughness);
    material.setDiffuse(base * (1.0f - metallic));
    material.setSpecular(glm::mix(glm::vec3(REFLECTANCE_OF_DIELECTRICS), base, metallic));
    const float fourth = roughness * roughness * roughness * roughness;
    material.setShininess(fourth > 0.0f ? shininessOf(2.0f / fourth - 2.0f) : 1.0f);
    material.setTransparency(source.blends ? 1.0f - finiteOr1(source.baseColor.a) : 0.0f);
    if (source.unlit) {
        material.setEmissive(base);
        material.setDiffuse(glm::vec3(0.0f));
        material.setSpecular(glm::vec3(0.0f));
    }
}

void setClassic(const ModelMaterial& source, MaterialClassic& material) {
    const glm::vec3 diffuse = valueOr(source.diffuse, material.getDiffuse());
    material.setDiffuse(diffuse);
    if (source.ambient && isFinite(*source.ambient)) {
        const float of = mean(diffuse);
        const float ambient = mean(*source.ambient);
        material.setAmbient(std::min(1.0f, std::max(0.0f, of > 0.0f ? ambient / of : ambient)));
    }
    material.setSpecular(valueOr(source.specularStrength, 1.0f) * valueOr(source.specular, glm::vec3(0.0f)));
    if (source.glossiness && isFinite(*source.glossiness)) {
        material.setShininess(std::min(1.0f, std::max(0.0f, *source.glossiness)));
    } else if (source.phongExponent && isFinite(*source.phongExponent)) {
        material.setShininess(shininessOf(*source.phongExponent));
    }
    material.setTransparency(1.0f - valueOr(source.opacity, 1.0f));
}

} // namespace

std::shared_ptr<MaterialClassic> makeClassicMaterial(const ModelMaterial& source) {
    auto material = std::make_shared<MaterialClassic>(source.identifier);
    material->setAmbient(DEFAULT_AMBIENT);
    material->setEmissive(valueOr(source.emissive, glm::vec3(0.0f)));
    if (source.metallicRoughness) {
        setMetallicRoughness(*source.metallicRoughness, *material);
    } else {
        setClassic(source, *material);
    }
    return material;
}

} // namespace kel::importer::detail
