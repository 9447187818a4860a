#pragma once

#include "../model/Model.h"
#include "GltfMeshes.h"
#include "GltfNodes.h"

#include <glm/mat4x4.hpp>

#include <optional>
#include <vector>

namespace kel::importer::detail {

/// How a node bends its mesh: by the weights of morph targets, and by the joints of a skin as the nodes stand.
struct GltfPose {
    const std::vector<double>* weights = nullptr; ///< of morph targets; null for none
    /// Of a skinned mesh: from the mesh's space to the scene's. Empty without a skin.
    std::vector<glm::dmat4> joints;
    glm::dmat4 node{1.0}; ///< what primitives without weights of joints take in place of these
};

/// The matrices of a skin's joints.
std::vector<glm::dmat4> jointMatrices(const ModelSource& source, const GltfData& data, const GltfNodes& nodes,
                                      const GltfSkin& skin);

/// Adds the deltas of the morph targets that have a weight to the values of an attribute.
template<typename Number>
void addTargets(const ModelSource& source, const GltfData& data, const GltfPrimitive& primitive,
                const std::vector<double>& weights, const std::string& attribute, std::size_t width,
                std::vector<Number>& values);

/// Moves the vertices of a part of a skinned mesh to where their joints take them. Its positions are doubles.
///
/// joints, weights  four numbers per vertex and set; as many sets of one as of the other
/// throws           ImportError when a joint does not exist
void bend(const ModelSource& source, const GltfPose& pose, const std::vector<std::vector<float>>& joints,
          const std::vector<std::vector<float>>& weights, const std::string& place, ModelPart& part);

} // namespace kel::importer::detail
