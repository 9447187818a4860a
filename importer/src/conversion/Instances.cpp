#include "Instances.h"

#include "../assimp/SceneChecks.h"

#include <cmath>
#include <string>
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
        checkMeshesOf(source, scene, *node);
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

} // namespace kel::importer::detail
