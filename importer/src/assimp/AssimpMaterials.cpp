#include "AssimpModel.h"

#include <assimp/GltfMaterial.h>

#include <optional>

namespace kel::importer::detail {

namespace {

std::optional<glm::vec3> color(const aiMaterial& source, const char* key, unsigned type, unsigned index) {
    aiColor4D value;
    if (source.Get(key, type, index, value) != aiReturn_SUCCESS) return std::nullopt;
    return glm::vec3(value.r, value.g, value.b);
}

std::optional<float> number(const aiMaterial& source, const char* key, unsigned type, unsigned index) {
    float value = 0.0f;
    if (source.Get(key, type, index, value) != aiReturn_SUCCESS) return std::nullopt;
    return value;
}

int flag(const aiMaterial& source, const char* key, unsigned type, unsigned index) {
    int value = 0;
    return source.Get(key, type, index, value) == aiReturn_SUCCESS ? value : 0;
}

/// Several readers state both kinds of a material; which one is meant, the classic colours tell.
bool isMetallicRoughness(const aiMaterial& source, const ModelMaterial& material) {
    if (material.glossiness) return false;
    aiString mode;
    if (source.Get(AI_MATKEY_GLTF_ALPHAMODE, mode) == aiReturn_SUCCESS) return true;
    return !material.diffuse && !material.specular &&
           (color(source, AI_MATKEY_BASE_COLOR) || number(source, AI_MATKEY_METALLIC_FACTOR));
}

} // namespace

ModelMaterial materialOf(const aiMaterial& source, std::size_t place) {
    ModelMaterial material;
    material.identifier = static_cast<std::uint32_t>(place);
    material.diffuse = color(source, AI_MATKEY_COLOR_DIFFUSE);
    material.ambient = color(source, AI_MATKEY_COLOR_AMBIENT);
    material.specular = color(source, AI_MATKEY_COLOR_SPECULAR);
    material.emissive = color(source, AI_MATKEY_COLOR_EMISSIVE);
    material.specularStrength = number(source, AI_MATKEY_SHININESS_STRENGTH);
    material.phongExponent = number(source, AI_MATKEY_SHININESS);
    material.glossiness = number(source, AI_MATKEY_GLOSSINESS_FACTOR);
    material.opacity = number(source, AI_MATKEY_OPACITY);
    material.twoSided = flag(source, AI_MATKEY_TWOSIDED) != 0;
    if (!isMetallicRoughness(source, material)) return material;

    ModelMaterial::MetallicRoughness& stated = material.metallicRoughness.emplace();
    stated.baseColor = glm::vec4(color(source, AI_MATKEY_BASE_COLOR).value_or(glm::vec3(1.0f)),
                                 material.opacity.value_or(1.0f));
    stated.metallic = number(source, AI_MATKEY_METALLIC_FACTOR).value_or(1.0f);
    stated.roughness = number(source, AI_MATKEY_ROUGHNESS_FACTOR).value_or(1.0f);
    aiString mode;
    stated.blends = source.Get(AI_MATKEY_GLTF_ALPHAMODE, mode) != aiReturn_SUCCESS ||
                    std::string_view(mode.C_Str()) == "BLEND";
    stated.unlit = flag(source, AI_MATKEY_SHADING_MODEL) == aiShadingMode_Unlit;
    return material;
}

} // namespace kel::importer::detail
