#include <kel/scene/Scene.h>

#include <kel/src/format/MetadataKeys.h>

#include <unordered_set>

namespace kel::scene {

Scene fromInput(const kel::src::SrcWriterInput& input) {
    Scene scene;
    scene.materials = input.materials;
    scene.useCompressedPreset = input.useCompressedPreset;
    scene.meshes.reserve(input.meshes.size());
    std::unordered_set<const kel::mesh::Mesh*> listed;
    listed.reserve(input.meshes.size());
    for (const auto& mesh : input.meshes) {
        if (mesh && !listed.insert(mesh.get()).second) scene.repeatsMeshes = true;
        SceneMesh entry;
        entry.mesh = mesh;
        if (const auto found = input.meshMaterials.find(mesh); found != input.meshMaterials.end())
            entry.material = found->second;
        if (const auto found = input.metaData.find(mesh); found != input.metaData.end())
            entry.metaData = found->second;
        scene.meshes.push_back(std::move(entry));
    }
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
