#pragma once

#include "GltfData.h"

#include <glm/mat4x4.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace kel::importer::detail {

struct GltfNode {
    std::string name;
    std::optional<std::size_t> parent;
    std::vector<std::size_t> children;
    glm::dmat4 transform{1.0}; ///< to the parent's space
    std::optional<std::size_t> mesh, skin;
    std::vector<double> weights; ///< of the mesh's morph targets
    std::string extras;
    /// Accessors of EXT_mesh_gpu_instancing, whose elements place the mesh below the node.
    std::optional<std::size_t> translations, rotations, scales;

    bool isInstanced() const { return translations || rotations || scales; }
};

struct GltfSkin {
    std::vector<std::size_t> joints;     ///< nodes
    std::optional<std::size_t> matrices; ///< the accessor of the inverse bind matrices, one for each joint
};

struct GltfScene {
    std::string extras;
    std::vector<std::size_t> roots;
};

/// Nodes in a forest: each has one parent at most, and none is its own ancestor.
struct GltfNodes {
    std::vector<GltfNode> nodes;
    std::vector<GltfSkin> skins;
    std::size_t scenes = 0;             ///< how many there are
    GltfScene scene;                    ///< the one that is imported
    std::size_t instanceAttributes = 0; ///< of instances, that place nothing

    glm::dmat4 worldOf(std::size_t node) const;
};

/// scene   name or number of the one to import; none: the one that the document says, or the first
///
/// throws  ImportError
GltfNodes readNodes(const GltfObject& document, const GltfData& data, std::size_t meshes,
                    const std::optional<std::string>& scene);

/// How often an instanced node places its mesh.
double countOfInstances(const GltfData& data, const GltfNode& node);
/// Where an instanced node places its mesh.
std::vector<glm::dmat4> readInstances(const ModelSource& source, const GltfData& data, const GltfNode& node);

} // namespace kel::importer::detail
