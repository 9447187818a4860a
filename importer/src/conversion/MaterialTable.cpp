#include "MaterialTable.h"

#include "ClassicMaterial.h"

#include <algorithm>

namespace kel::importer::detail {

namespace {

/// Of these formats, or of a file without any material, Assimp makes a grey one up.
bool describesMaterials(const std::string& format) {
    for (const char* without : {"STL", "PLY", "OFF", "Stereolithography", "Polygon Library"}) {
        if (format.find(without) != std::string::npos) return false;
    }
    return true;
}

} // namespace

MaterialTable::MaterialTable(const aiScene& scene, const std::string& format, const GltfNodes& gltfNodes,
                             LossReport& losses)
    : scene(scene), gltfNodes(gltfNodes), losses(losses), described(describesMaterials(format)) {}

std::shared_ptr<kel::material::MaterialClassic> MaterialTable::of(const Instance& instance) {
    const unsigned index = scene.mMeshes[instance.mesh()]->mMaterialIndex;
    const auto node = gltfNodes.find(*instance.node);
    if (!node) return get(index, {});
    // The reader keeps the materials in the order in which it came across them, and adds one for
    // primitives without.
    const GltfDocument& document = *gltfNodes.document();
    const auto stated = wholeNumber(
        member(document.primitive(document.meshOf(*node).value_or(0), instance.slot), "material"));
    if (!stated) return nullptr;
    return get(index, static_cast<std::uint32_t>(*stated));
}

std::shared_ptr<kel::material::MaterialClassic> MaterialTable::get(unsigned index,
                                                                   std::optional<std::uint32_t> identifier) {
    if (index >= scene.mNumMaterials || !described) return nullptr;
    const auto found = materials.find(index);
    if (found != materials.end()) return found->second;
    const aiMaterial& given = *scene.mMaterials[index];
    aiString name;
    given.Get(AI_MATKEY_NAME, name);
    if (!identifier && std::string(name.C_Str()) == AI_DEFAULT_MATERIAL_NAME)
        return materials[index] = nullptr;
    int twoSided = 0;
    losses.drop("two-sided flags",
                given.Get(AI_MATKEY_TWOSIDED, twoSided) == aiReturn_SUCCESS && twoSided != 0, "of materials");
    return materials[index] = makeClassicMaterial(given, identifier.value_or(index));
}

} // namespace kel::importer::detail
