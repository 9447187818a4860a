#include "GltfPose.h"

#include "GltfAccessors.h"

#include <glm/geometric.hpp>
#include <glm/mat3x3.hpp>

#include <algorithm>
#include <cstring>

namespace kel::importer::detail {

std::vector<glm::dmat4> jointMatrices(const ModelSource& source, const GltfData& data, const GltfNodes& nodes,
                                      const GltfSkin& skin) {
    std::vector<glm::dmat4> matrices;
    matrices.reserve(skin.joints.size());
    for (const std::size_t joint : skin.joints)
        matrices.push_back(nodes.worldOf(joint));
    if (skin.matrices) {
        const std::vector<double> inverse = readNumbers<double>(source, data, *skin.matrices, 16);
        for (std::size_t j = 0; j < matrices.size(); ++j) {
            glm::dmat4 bind;
            std::memcpy(&bind[0][0], &inverse[16 * j], sizeof bind);
            matrices[j] = matrices[j] * bind;
        }
    }
    return matrices;
}

template<typename Number>
void addTargets(const ModelSource& source, const GltfData& data, const GltfPrimitive& primitive,
                const std::vector<double>& weights, const std::string& attribute, std::size_t width,
                std::vector<Number>& values) {
    for (std::size_t t = 0; t < std::min(weights.size(), primitive.targets.size()); ++t) {
        const auto weight = static_cast<Number>(weights[t]);
        const auto& target = primitive.targets[t];
        const auto found = std::find_if(target.begin(), target.end(),
                                        [&](const GltfAttribute& entry) { return entry.first == attribute; });
        if (weight == Number(0) || found == target.end()) continue;
        if (data.accessors[found->second].width < width) continue; // colours whose deltas have no alpha
        const std::vector<Number> deltas = readNumbers<Number>(source, data, found->second, width);
        for (std::size_t i = 0; i < std::min(values.size(), deltas.size()); ++i)
            values[i] += weight * deltas[i];
    }
}

template void addTargets(const ModelSource&, const GltfData&, const GltfPrimitive&,
                         const std::vector<double>&, const std::string&, std::size_t, std::vector<float>&);
template void addTargets(const ModelSource&, const GltfData&, const GltfPrimitive&,
                         const std::vector<double>&, const std::string&, std::size_t, std::vector<double>&);

void bend(const ModelSource& source, const GltfPose& pose, const std::vector<std::vector<float>>& joints,
          const std::vector<std::vector<float>>& weights, const std::string& place, ModelPart& part) {
    std::vector<double>& positions = part.attributes[0].doubles;
    ModelAttribute* const normals = part.normals();
    const auto jointAt = [&](float number) -> const glm::dmat4& {
        if (number >= 0.0f && number < static_cast<float>(pose.joints.size()))
            return pose.joints[static_cast<std::size_t>(number)];
        refuseGltf(source, ImportCode::INDEX_OUT_OF_RANGE,
                   "a vertex hangs on joint " + std::to_string(static_cast<long long>(number)) +
                       ", but the skin has only " + std::to_string(pose.joints.size()),
                   place);
    };
    for (std::size_t v = 0; v < positions.size() / 3; ++v) {
        glm::dmat4 matrix(0.0);
        double sum = 0.0;
        for (std::size_t s = 0; s < joints.size(); ++s) {
            for (std::size_t k = 4 * v; k < 4 * v + 4; ++k) {
                const auto weight = static_cast<double>(weights[s][k]);
                if (weight == 0.0) continue;
                matrix += weight * jointAt(joints[s][k]);
                sum += weight;
            }
        }
        if (sum == 0.0) {
            matrix = joints.empty() ? pose.node : jointAt(joints[0][4 * v]);
        } else {
            matrix /= sum; // codes of few bits do not add up to 1
        }
        double* const p = &positions[3 * v];
        const glm::dvec4 moved = matrix * glm::dvec4(p[0], p[1], p[2], 1.0);
        for (int axis = 0; axis < 3; ++axis)
            p[axis] = moved[axis];
        if (!normals) continue;
        // Cofactors turn normals as the inverse transpose does, and exist for matrices that flatten, too.
        float* const n = &normals->values[3 * v];
        const glm::dmat3 linear(matrix);
        const glm::dmat3 cofactors(glm::cross(linear[1], linear[2]), glm::cross(linear[2], linear[0]),
                                   glm::cross(linear[0], linear[1]));
        const glm::dvec3 turned = cofactors * glm::dvec3(n[0], n[1], n[2]);
        for (int axis = 0; axis < 3; ++axis)
            n[axis] = static_cast<float>(turned[axis]);
    }
}

} // namespace kel::importer::detail
