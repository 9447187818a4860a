#pragma once

#include "../model/Model.h"

#include <assimp/scene.h>

#include <cmath>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kel::importer::detail {

/// The scene as a model: every mesh of Assimp's as one mesh, which is freed as it is taken.
///
/// scene   every index is valid: faces to vertices, nodes to meshes. Faces of more than three corners are counted
///         as dropped.
/// format  of the source, for people
std::unique_ptr<Model> modelOf(std::unique_ptr<aiScene> scene, const std::string& format);

// ---- Its parts ------------------------------------------------------------------------------------------

/// Calls `visit` for the root and every node below it, parents before children and children in their order.
template<typename Visit>
void forEachNode(const aiScene& scene, const Visit& visit) {
    // Not recursive: how deep the nodes are nested is the file's choice.
    std::vector<const aiNode*> waiting;
    if (scene.mRootNode) waiting.push_back(scene.mRootNode);
    while (!waiting.empty()) {
        const aiNode* node = waiting.back();
        waiting.pop_back();
        visit(*node);
        for (unsigned c = node->mNumChildren; c > 0; --c)
            waiting.push_back(node->mChildren[c - 1]);
    }
}

inline bool isFinite(const aiVector3D& v) {
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

/// For messages, as in: mesh 3 "bolt"
std::string placeOfMesh(const aiScene& scene, std::size_t mesh);

/// What Assimp's values lost on their way.
struct TextLosses {
    std::size_t notFinite = 0; ///< numbers that JSON cannot hold
    std::size_t tooDeep = 0;   ///< values nested deeper than the limit
    std::size_t cut = 0;       ///< names as long as Assimp can hold, so probably longer in the file
};

/// Not always UTF-8.
std::string textOf(const aiString& text, TextLosses& losses);
/// What a file attaches to a node as a JSON object, whose texts are not always UTF-8; empty where there is nothing.
std::string extrasOf(const aiNode& node, TextLosses& losses);

ModelMaterial materialOf(const aiMaterial& source, std::size_t place);

} // namespace kel::importer::detail
