#pragma once

#include "MeshBuffers.h"

#include <kel/scene/Scene.h>

#include <cstddef>
#include <unordered_map>
#include <utility>

// How steps walk over a scene and replace what they change.
namespace kel::prepare::detail {

/// Calls work(position) for every entry that has a mesh. A mesh that is listed twice is worked on once: its
/// later entries become copies of what has become of the first.
template<typename Work>
void forEachMesh(kel::scene::Scene& scene, const Work& work) {
    // By the mesh as it was listed. A new mesh never takes the place of one that is still to come.
    std::unordered_map<const kel::mesh::Mesh*, std::size_t> seen;
    for (std::size_t m = 0; m < scene.meshes.size(); ++m) {
        kel::scene::SceneMesh& entry = scene.meshes[m];
        if (!entry.mesh) continue;
        if (scene.repeatsMeshes) {
            const auto [first, isNew] = seen.emplace(entry.mesh.get(), m);
            if (!isNew) {
                entry = scene.meshes[first->second];
                continue;
            }
        }
        work(m);
    }
}

/// Puts a new mesh in the place of the old one. It gets a map of metadata where there was none, for writers
/// to add its statistics to.
inline void replaceMesh(kel::scene::SceneMesh& entry, kel::mesh::MeshPtr mesh) {
    entry.mesh = std::move(mesh);
    if (!entry.metaData) entry.editMetaData();
}

/// The same for every mesh whose attribute buffers change(position, buffers) says that it changed.
template<typename Change>
void changeAttributes(kel::scene::Scene& scene, const Change& change) {
    forEachMesh(scene, [&](std::size_t m) {
        const kel::mesh::MeshPtr& mesh = scene.meshes[m].mesh;
        std::vector<AttributePtr> attributes = attributesOf(mesh);
        if (!change(m, attributes)) return;
        replaceMesh(scene.meshes[m], makeMesh(mesh->getPrimitiveType(), mesh->getNumPrimitives(),
                                              mesh->getIndexBuffer(), std::move(attributes)));
    });
}

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

} // namespace kel::prepare::detail
