#include <kel/scene/Scene.h>

#include <kel/src/format/MetadataKeys.h>

#include <algorithm>
#include <map>

namespace kel::scene {

namespace {

/// Calls give(entry, value) for every entry whose mesh the map has a value for.
///
/// byAddress  all entries, sorted by their meshes. The maps are sorted alike, so one walk along both is enough:
///            with many meshes a search from the root for each one would take most of the time.
template<typename Value, typename Give>
void giveValues(const std::map<kel::mesh::MeshPtr, Value>& values, const std::vector<SceneMesh*>& byAddress,
                const Give& give) {
    auto value = values.begin();
    for (SceneMesh* entry : byAddress) {
        while (value != values.end() && value->first < entry->mesh)
            ++value;
        if (value != values.end() && value->first == entry->mesh) give(*entry, value->second);
    }
}

} // namespace

Scene fromInput(const kel::src::SrcWriterInput& input) {
    Scene scene;
    scene.meshes.resize(input.meshes.size());
    scene.materials = input.materials;
    scene.useCompressedPreset = input.useCompressedPreset;
    std::vector<SceneMesh*> byAddress;
    byAddress.reserve(scene.meshes.size());
    for (std::size_t m = 0; m < input.meshes.size(); ++m) {
        scene.meshes[m].mesh = input.meshes[m];
        byAddress.push_back(&scene.meshes[m]);
    }
    std::sort(byAddress.begin(), byAddress.end(),
              [](const SceneMesh* a, const SceneMesh* b) { return a->mesh < b->mesh; });
    giveValues(input.meshMaterials, byAddress,
               [](SceneMesh& entry, const auto& material) { entry.material = material; });
    giveValues(input.metaData, byAddress,
               [](SceneMesh& entry, const auto& metaData) { entry.metaData = metaData; });
    const auto repeated =
        std::adjacent_find(byAddress.begin(), byAddress.end(), [](const SceneMesh* a, const SceneMesh* b) {
            return a->mesh && a->mesh == b->mesh;
        });
    scene.repeatsMeshes = repeated != byAddress.end();
    return scene;
}

kel::src::SrcWriterInput toInput(Scene scene) {
    kel::src::SrcWriterInput input;
    input.materials = std::move(scene.materials);
    input.useCompressedPreset = scene.useCompressedPreset;
    input.meshes.reserve(scene.meshes.size());
    for (SceneMesh& entry : scene.meshes) {
        if (entry.material) input.meshMaterials.emplace(entry.mesh, std::move(entry.material));
        if (entry.metaData) input.metaData.emplace(entry.mesh, std::move(entry.metaData));
        input.meshes.push_back(std::move(entry.mesh));
    }
    return input;
}

std::string nameOfMesh(const SceneMesh& mesh) {
    const std::string* name = mesh.find(kel::src::format::metadata::NAME);
    return name ? kel::src::format::readName(*name) : std::string();
}

std::string placeOfMesh(std::size_t position, const std::string& name) {
    return "Mesh " + std::to_string(position) + (name.empty() ? "" : " (\"" + name + "\")");
}

std::string placeOfMesh(const Scene& scene, std::size_t position) {
    return placeOfMesh(position, nameOfMesh(scene.meshes[position]));
}

} // namespace kel::scene
