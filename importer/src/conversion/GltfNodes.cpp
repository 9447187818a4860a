#include "GltfNodes.h"

#include <set>
#include <utility>
#include <vector>

namespace kel::importer::detail {

GltfNodes::GltfNodes(const GltfDocument* document, const aiScene& scene) : gltf(document) {
    if (!gltf || !scene.mRootNode) return;
    const std::vector<std::size_t>& roots = gltf->sceneRoots();
    std::vector<std::pair<const aiNode*, std::size_t>> waiting;
    const auto push = [&](const aiNode& parent, const std::vector<std::size_t>& nodes) {
        if (parent.mNumChildren != nodes.size()) return;
        for (unsigned c = 0; c < parent.mNumChildren; ++c)
            waiting.emplace_back(parent.mChildren[c], nodes[c]);
    };
    if (roots.size() == 1) {
        waiting.emplace_back(scene.mRootNode, roots[0]);
    } else {
        push(*scene.mRootNode, roots);
    }
    while (!waiting.empty()) {
        const auto [node, place] = waiting.back();
        waiting.pop_back();
        places[node] = place;
        push(*node, gltf->childrenOf(place));
    }
}

std::optional<std::size_t> GltfNodes::find(const aiNode& node) const {
    const auto found = places.find(&node);
    if (found == places.end()) return std::nullopt;
    return found->second;
}

std::size_t GltfNodes::unusedMeshes() const {
    std::set<std::size_t> used;
    for (const auto& entry : places) {
        if (const auto mesh = gltf->meshOf(entry.second)) used.insert(*mesh);
    }
    return arrayOf(member(&gltf->json(), "meshes")).size() - used.size();
}

} // namespace kel::importer::detail
