#include "GltfMaterials.h"

#include <kel/src/format/MetadataKeys.h>

#include <utility>

namespace kel::importer::detail {

namespace {

/// Replaced by metals and roughness, but files that state it mean it.
void readSpecularGlossiness(const GltfObject& object, bool blends, ModelMaterial& material) {
    float diffuse[4] = {1, 1, 1, 1}, specular[3] = {1, 1, 1};
    object.numbers("diffuseFactor", diffuse, 4);
    object.numbers("specularFactor", specular, 3);
    material.diffuse = glm::vec3(diffuse[0], diffuse[1], diffuse[2]);
    material.specular = glm::vec3(specular[0], specular[1], specular[2]);
    material.glossiness = static_cast<float>(object.number("glossinessFactor", 1.0));
    material.opacity = blends ? diffuse[3] : 1.0f;
}

ModelMaterial::MetallicRoughness readMetallicRoughness(const GltfObject& object) {
    ModelMaterial::MetallicRoughness result;
    object.numbers("baseColorFactor", &result.baseColor[0], 4);
    result.metallic = static_cast<float>(object.number("metallicFactor", 1.0));
    result.roughness = static_cast<float>(object.number("roughnessFactor", 1.0));
    return result;
}

ModelMaterial readMaterial(const GltfObject& object, std::size_t identifier) {
    ModelMaterial material;
    material.name = object.string("name");
    material.identifier = static_cast<std::uint32_t>(identifier);
    material.twoSided = object.flag("doubleSided");
    float emissive[3] = {0, 0, 0};
    object.numbers("emissiveFactor", emissive, 3);
    material.emissive = glm::vec3(emissive[0], emissive[1], emissive[2]);
    if (std::string extras = object.extras(); !extras.empty())
        material.metaData.emplace(kel::src::format::metadata::MATERIAL_EXTRAS, std::move(extras));

    const bool blends = object.string("alphaMode") == "BLEND";
    const GltfPlace extensionsPlace(object.place(), "extensions");
    const GltfObject extensions = object.child("extensions", extensionsPlace);
    const GltfPlace glossyPlace(&extensionsPlace, "KHR_materials_pbrSpecularGlossiness");
    if (const GltfObject glossy = extensions.child("KHR_materials_pbrSpecularGlossiness", glossyPlace)) {
        readSpecularGlossiness(glossy, blends, material);
        return material;
    }
    const GltfPlace place(object.place(), "pbrMetallicRoughness");
    material.metallicRoughness = readMetallicRoughness(object.child("pbrMetallicRoughness", place));
    material.metallicRoughness->blends = blends;
    material.metallicRoughness->unlit = extensions.has("KHR_materials_unlit");
    return material;
}

/// Calls visit(texture) for every use of a texture in a material and its extensions: their names end alike.
template<typename Visit>
void forEachTexture(const GltfObject& object, const Visit& visit) {
    constexpr std::string_view END = "Texture";
    object.forEachMember([&](std::string_view name, simdjson::dom::element value) {
        const GltfPlace place(object.place(), name);
        const GltfObject child(object.model(), value, &place);
        if (name == "extras" || !child) return;
        if (name.size() > END.size() && name.substr(name.size() - END.size()) == END) {
            visit(child);
        } else {
            forEachTexture(child, visit);
        }
    });
}

std::map<std::size_t, GltfTextureTransform> readTransforms(const GltfObject& material) {
    std::map<std::size_t, GltfTextureTransform> agreed;
    std::map<std::size_t, bool> disagreed;
    forEachTexture(material, [&](const GltfObject& texture) {
        const GltfPlace extensions(texture.place(), "extensions");
        const GltfPlace place(&extensions, "KHR_texture_transform");
        const GltfObject object =
            texture.child("extensions", extensions).child("KHR_texture_transform", place);
        GltfTextureTransform transform;
        object.numbers("offset", transform.offset, 2);
        object.numbers("scale", transform.scale, 2);
        transform.rotation = object.number("rotation", 0.0);
        const auto set = static_cast<std::size_t>(object.whole("texCoord", texture.whole("texCoord", 0)));
        const auto first = agreed.emplace(set, transform);
        if (!(first.first->second == transform)) disagreed[set] = true;
    });
    for (const auto& entry : disagreed)
        agreed.erase(entry.first);
    return agreed;
}

} // namespace

bool GltfTextureTransform::operator==(const GltfTextureTransform& other) const {
    return offset[0] == other.offset[0] && offset[1] == other.offset[1] && rotation == other.rotation &&
           scale[0] == other.scale[0] && scale[1] == other.scale[1];
}

GltfMaterials readMaterials(const GltfObject& document) {
    GltfMaterials result;
    document.forEachObject("materials", [&](const GltfObject& material) {
        result.materials.push_back(readMaterial(material, result.materials.size()));
        result.transforms.push_back(readTransforms(material));
    });
    return result;
}

} // namespace kel::importer::detail
