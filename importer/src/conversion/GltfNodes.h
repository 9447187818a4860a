#pragma once

#include "../gltf/GltfDocument.h"

#include <assimp/scene.h>

#include <cstddef>
#include <optional>
#include <unordered_map>

namespace kel::importer::detail {

/// Which node of a glTF's document each node of the scene is. Of other formats there is no document, and no
/// node is found.
class GltfNodes {
public:
    /// document  null for other formats
    GltfNodes(const GltfDocument* document, const aiScene& scene);

    const GltfDocument* document() const { return gltf; }
    /// The node's place in the document.
    std::optional<std::size_t> find(const aiNode& node) const;
    /// How many meshes of the document no node uses.
    std::size_t unusedMeshes() const;

private:
    const GltfDocument* gltf;
    std::unordered_map<const aiNode*, std::size_t> places;
};

} // namespace kel::importer::detail
