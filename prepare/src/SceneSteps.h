#pragma once

#include "AssembledMesh.h"

#include <kel/scene/Scene.h>

#include <cstddef>
#include <unordered_map>
#include <utility>

// How steps walk over a scene and replace what they change.
namespace kel::prepare::detail {

/// Lets a step work once on a mesh that is listed twice.
class RepeatedMeshes {
public:
    explicit RepeatedMeshes(kel::scene::Scene& scene) : scene(scene) {}

    /// Whether the mesh at `position` stood at an earlier one. Its entry is then a copy of what has become of
    /// that. To be asked before the entry is changed.
    bool takeOver(std::size_t position) {
        if (!scene.repeatsMeshes) return false;
        kel::scene::SceneMesh& entry = scene.meshes[position];
        const auto [first, isNew] = positions.emplace(entry.mesh.get(), position);
        if (!isNew) entry = scene.meshes[first->second];
        return !isNew;
    }

private:
    kel::scene::Scene& scene;
    /// By the mesh as it was listed. A new mesh never takes the place of one that is still to come.
    std::unordered_map<const kel::mesh::Mesh*, std::size_t> positions;
};

/// Keeps buffers shared that several meshes share: what a step made of each. One that nobody but its mesh
/// holds is not remembered, so that it can be freed at once.
template<typename Made>
class SharedBuffers {
public:
    /// What make(buffer) gives, or gave the first time. `buffer` is a handle beside that of its mesh.
    template<typename Make>
    Made of(const AttributePtr& buffer, const Make& make) {
        if (buffer.use_count() <= 2) return make(buffer);
        const auto [entry, isNew] = made.try_emplace(buffer);
        if (isNew) entry->second = make(buffer);
        return entry->second;
    }

private:
    std::unordered_map<AttributePtr, Made> made;
};

/// Puts a new mesh in the place of the old one. It gets a map of metadata where there was none, for writers
/// to add its statistics to.
inline void replaceMesh(kel::scene::SceneMesh& entry, kel::mesh::MeshPtr mesh) {
    entry.mesh = std::move(mesh);
    if (!entry.metaData) entry.editMetaData();
}

/// What a caller gets whose maps of metadata are to stay without a writer's statistics.
inline kel::src::SrcWriterInput toInputWithOwnMetaData(kel::scene::Scene scene) {
    for (kel::scene::SceneMesh& entry : scene.meshes) {
        if (entry.metaData) entry.editMetaData();
    }
    return toInput(std::move(scene));
}

} // namespace kel::prepare::detail
