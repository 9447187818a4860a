#include "Conversion.h"

#include <cmath>
#include <utility>

namespace kel::importer::detail {

namespace {

glm::dmat4 matrixOf(const aiMatrix4x4& m) {
    // Assimp's rows are glm's columns.
    return {{m.a1, m.b1, m.c1, m.d1},
            {m.a2, m.b2, m.c2, m.d2},
            {m.a3, m.b3, m.c3, m.d3},
            {m.a4, m.b4, m.c4, m.d4}};
}

bool isFinite(const glm::dmat4& matrix) {
    for (int column = 0; column < 4; ++column) {
        for (int row = 0; row < 4; ++row) {
            if (!std::isfinite(matrix[column][row])) return false;
        }
    }
    return true;
}

} // namespace

std::vector<Instance> collectInstances(const ModelSource& source, const aiScene& scene) {
    std::vector<Instance> instances;
    // Not recursive: how deep the nodes are nested is the file's choice.
    std::vector<std::pair<const aiNode*, glm::dmat4>> waiting;
    if (scene.mRootNode) waiting.emplace_back(scene.mRootNode, glm::dmat4(1.0));
    while (!waiting.empty()) {
        const auto [node, above] = waiting.back();
        waiting.pop_back();
        const glm::dmat4 world = above * matrixOf(node->mTransformation);
        for (unsigned m = 0; m < node->mNumMeshes; ++m)
            instances.push_back({node, m, world});
        for (unsigned c = node->mNumChildren; c > 0; --c)
            waiting.emplace_back(node->mChildren[c - 1], world);
    }
    for (const Instance& instance : instances) {
        if (isFinite(instance.world)) continue;
        source.refuse(ImportCode::NON_FINITE_TRANSFORM, "the transform of a node is not finite",
                      std::string("node \"") + instance.node->mName.C_Str() + "\"");
    }
    return instances;
}

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

std::size_t GltfNodes::unusedMeshes() const {
    std::set<std::size_t> used;
    for (const auto& entry : places) {
        if (const auto mesh = gltf->meshOf(entry.second)) used.insert(*mesh);
    }
    return arrayOf(member(&gltf->json(), "meshes")).size() - used.size();
}

} // namespace kel::importer::detail
