#pragma once

#include "ImporterTest.h"

#include <conversion/Conversion.h>
#include <model/ListedModel.h>

#include <algorithm>
#include <initializer_list>
#include <utility>

namespace kel::importer::test {

/// A model that no file states.
class HandMadeModel : public detail::ListedModel {
public:
    HandMadeModel() { format = "by hand"; }

    /// returns  its place among the meshes
    std::size_t addMesh(detail::ModelPart part) {
        std::vector<detail::ModelPart> parts;
        parts.push_back(std::move(part));
        return ListedModel::addMesh({"", "mesh " + std::to_string(meshes.size()), {}}, std::move(parts));
    }
    detail::ModelNode& addNode(std::size_t mesh, const glm::dvec3& translation = glm::dvec3(0.0)) {
        detail::ModelNode& node = addNode(translation);
        node.meshes.push_back(mesh);
        return node;
    }
    detail::ModelNode& addNode(const glm::dvec3& translation) {
        detail::ModelNode& node = nodes.emplace_back();
        node.transform[3] = glm::dvec4(translation, 1.0);
        return node;
    }
};

inline detail::ModelPart trianglesAt(std::vector<float> positions, std::vector<std::uint32_t> indices) {
    detail::ModelPart part;
    part.indices = std::move(indices);
    part.attributes.push_back({"position", 3, std::move(positions), {}});
    part.isIndexed = true;
    return part;
}

inline detail::ModelPart pointsAt(std::vector<double> positions) {
    detail::ModelPart part;
    part.type = kel::mesh::POINTS;
    for (std::uint32_t v = 0; v < positions.size() / 3; ++v)
        part.indices.push_back(v);
    part.attributes.push_back({"position", 3, {}, std::move(positions)});
    part.isIndexed = true;
    return part;
}

/// The normals of `part` all along z.
inline detail::ModelPart facingZ(detail::ModelPart part) {
    detail::ModelAttribute normals{"normal", 3, {}, {}};
    for (std::size_t v = 0; v < part.vertices(); ++v)
        normals.values.insert(normals.values.end(), {0.0f, 0.0f, 1.0f});
    part.attributes.push_back(std::move(normals));
    return part;
}

inline ImportResult convert(HandMadeModel& model, const ImportOptions& options = {}) {
    detail::ModelSource source;
    source.shown = source.name = "hand.made";
    detail::ProgressReporter progress(options.progress, source);
    detail::ImportedScene imported = detail::convertModel(model, source, options, progress);
    return {kel::scene::toInput(std::move(imported.scene)), std::move(imported.report)};
}

} // namespace kel::importer::test
