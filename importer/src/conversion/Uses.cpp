#include "Conversion.h"

#include <kel/src/text/Utf8.h>

#include <cmath>

namespace kel::importer::detail {

namespace {

bool isFinite(const glm::dmat4& matrix) {
    for (int column = 0; column < 4; ++column) {
        for (int row = 0; row < 4; ++row) {
            if (!std::isfinite(matrix[column][row])) return false;
        }
    }
    return true;
}

} // namespace

std::vector<Use> collectUses(const ModelSource& source, const Model& model) {
    std::vector<Use> uses;
    std::vector<glm::dmat4> worlds(model.nodes.size());
    for (std::size_t n = 0; n < model.nodes.size(); ++n) {
        const ModelNode& node = model.nodes[n];
        worlds[n] = node.parent ? worlds[*node.parent] * node.transform : node.transform;
        const glm::dmat4& place = node.meshesInScene ? glm::dmat4(1.0) : worlds[n];
        for (const std::size_t mesh : node.meshes) {
            if (node.instances.empty()) uses.push_back({n, mesh, place});
            for (const glm::dmat4& instance : node.instances)
                uses.push_back({n, mesh, place * instance});
        }
    }
    for (const Use& use : uses) {
        if (isFinite(use.world)) continue;
        source.refuse(ImportCode::NON_FINITE_TRANSFORM, "the transform of a node is not finite",
                      "node \"" + kel::src::text::validUtf8(model.nodes[use.node].name) + "\"");
    }
    return uses;
}

} // namespace kel::importer::detail
