#include "Conversion.h"

#include <assimp/GltfMaterial.h>
#include <glm/common.hpp>

#include <algorithm>
#include <cmath>

namespace kel::importer::detail {

namespace {

using kel::material::MaterialClassic;

constexpr float DEFAULT_AMBIENT = 0.2f;
constexpr float REFLECTANCE_OF_DIELECTRICS = 0.04f;

std::optional<glm::vec3> color(const aiMaterial& source, const char* key, unsigned type, unsigned index) {
    aiColor4D value;
    if (source.Get(key, type, index, value) != aiReturn_SUCCESS) return std::nullopt;
    if (!std::isfinite(value.r) || !std::isfinite(value.g) || !std::isfinite(value.b)) return std::nullopt;
    return glm::vec3(value.r, value.g, value.b);
}

std::optional<float> number(const aiMaterial& source, const char* key, unsigned type, unsigned index) {
    float value = 0.0f;
    if (source.Get(key, type, index, value) != aiReturn_SUCCESS || !std::isfinite(value)) return std::nullopt;
    return value;
}

float mean(const glm::vec3& c) {
    return (c.r + c.g + c.b) / 3.0f;
}

float shininessOf(float exponent) {
    return std::min(1.0f, std::max(0.0f, exponent / LARGEST_PHONG_EXPONENT));
}

bool isMetallicRoughness(const aiMaterial& source) {
    if (number(source, AI_MATKEY_GLOSSINESS_FACTOR)) return false;
    aiString mode;
    if (source.Get(AI_MATKEY_GLTF_ALPHAMODE, mode) == aiReturn_SUCCESS) return true;
    const bool classic = color(source, AI_MATKEY_COLOR_DIFFUSE) || color(source, AI_MATKEY_COLOR_SPECULAR);
    return !classic && (color(source, AI_MATKEY_BASE_COLOR) || number(source, AI_MATKEY_METALLIC_FACTOR));
}

void setMetallicRoughness(const aiMaterial& source, MaterialClassic& material) {
    const glm::vec3 base = color(source, AI_MATKEY_BASE_COLOR).value_or(glm::vec3(1.0f));
    const float metallic = number(source, AI_MATKEY_METALLIC_FACTOR).value_or(1.0f);
    const float roughness = number(source, AI_MATKEY_ROUGHNESS_FACTOR).value_or(1.0f);
    material.setDiffuse(base * (1.0f - metallic));
    material.setSpecular(glm::mix(glm::vec3(REFLECTANCE_OF_DIELECTRICS), base, metallic));
    const float fourth = roughness * roughness * roughness * roughness;
    material.setShininess(fourth > 0.0f ? shininessOf(2.0f / fourth - 2.0f) : 1.0f);

    // glTF lets alpha count only where the material asks for it.
    aiString mode;
    const bool stated = source.Get(AI_MATKEY_GLTF_ALPHAMODE, mode) == aiReturn_SUCCESS;
    const bool blends = !stated || std::string(mode.C_Str()) == "BLEND";
    material.setTransparency(blends ? 1.0f - number(source, AI_MATKEY_OPACITY).value_or(1.0f) : 0.0f);

    int shading = 0;
    if (source.Get(AI_MATKEY_SHADING_MODEL, shading) == aiReturn_SUCCESS && shading == aiShadingMode_Unlit) {
        material.setEmissive(base);
        material.setDiffuse(glm::vec3(0.0f));
        material.setSpecular(glm::vec3(0.0f));
    }
}

void setClassic(const aiMaterial& source, MaterialClassic& material) {
    const glm::vec3 diffuse = color(source, AI_MATKEY_COLOR_DIFFUSE).value_or(material.getDiffuse());
    material.setDiffuse(diffuse);
    if (const auto ambient = color(source, AI_MATKEY_COLOR_AMBIENT)) {
        const float of = mean(diffuse);
        material.setAmbient(std::min(1.0f, std::max(0.0f, of > 0.0f ? mean(*ambient) / of : mean(*ambient))));
    }
    const float strength = number(source, AI_MATKEY_SHININESS_STRENGTH).value_or(1.0f);
    material.setSpecular(strength * color(source, AI_MATKEY_COLOR_SPECULAR).value_or(glm::vec3(0.0f)));
    if (const auto glossiness = number(source, AI_MATKEY_GLOSSINESS_FACTOR)) {
        material.setShininess(std::min(1.0f, std::max(0.0f, *glossiness)));
    } else if (const auto exponent = number(source, AI_MATKEY_SHININESS)) {
        material.setShininess(shininessOf(*exponent));
    }
    material.setTransparency(1.0f - number(source, AI_MATKEY_OPACITY).value_or(1.0f));
}

} // namespace

std::shared_ptr<MaterialClassic> makeClassicMaterial(const aiMaterial& source, std::uint32_t identifier) {
    auto material = std::make_shared<MaterialClassic>(identifier);
    material->setAmbient(DEFAULT_AMBIENT);
    material->setEmissive(color(source, AI_MATKEY_COLOR_EMISSIVE).value_or(glm::vec3(0.0f)));
    if (isMetallicRoughness(source)) {
        setMetallicRoughness(source, *material);
    } else {
        setClassic(source, *material);
    }
    return material;
}

} // namespace kel::importer::detail
