#pragma once

#include "../ModelSource.h"

#include <assimp/scene.h>
#include <glm/mat4x4.hpp>

#include <vector>

namespace kel::importer::detail {

/// One use of a mesh by a node.
struct Instance {
    const aiNode* node;
    unsigned slot; ///< which of the node's meshes
    glm::dmat4 world;

    unsigned mesh() const { return node->mMeshes[slot]; }
};

/// Calls `visit` for the root and every node below it, children in no order that means anything.
template<typename Visit>
void forEachNode(const aiScene& scene, const Visit& visit) {
    std::vector<const aiNode*> waiting;
    if (scene.mRootNode) waiting.push_back(scene.mRootNode);
    while (!waiting.empty()) {
        const aiNode* node = waiting.back();
        waiting.pop_back();
        visit(*node);
        waiting.insert(waiting.end(), node->mChildren, node->mChildren + node->mNumChildren);
    }
}

/// Every use, in the order of a walk through the nodes from the root, parents first.
///
/// throws  ImportError when a node uses a mesh that does not exist, or stands where no number can say
std::vector<Instance> collectInstances(const ModelSource& source, const aiScene& scene);

} // namespace kel::importer::detail
