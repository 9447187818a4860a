#include "Conversion.h"

#include <glm/common.hpp>
#include <glm/geometric.hpp>
#include <glm/mat3x3.hpp>
#include <glm/vec4.hpp>

#include <algorithm>
#include <cmath>
#include <utility>

namespace kel::importer::detail {

namespace {

/// The matrix of cofactors is the inverse transpose times the determinant: it turns normals alike, and it
/// exists for transforms that flatten, too. The columns' sizes cancel when normals are made unit length;
/// dividing by the largest keeps the products from overflowing.
glm::dmat3 normalMatrix(const glm::dmat4& world, bool& mirrors) {
    glm::dmat3 linear(world);
    double largest = 0.0;
    for (int c = 0; c < 3; ++c) {
        for (int r = 0; r < 3; ++r)
            largest = std::max(largest, std::abs(linear[c][r]));
    }
    if (largest > 0.0) linear /= largest;
    const glm::dmat3 cofactors(glm::cross(linear[1], linear[2]), glm::cross(linear[2], linear[0]),
                               glm::cross(linear[0], linear[1]));
    mirrors = glm::dot(linear[0], cofactors[0]) < 0.0;
    return mirrors ? -cofactors : cofactors;
}

} // namespace

std::size_t bakeTransform(const glm::dmat4& world, ModelPart& part) {
    if (world != glm::dmat4(1.0)) {
        std::vector<float>& positions = part.attributes[0].values;
        for (std::size_t i = 0; i + 2 < positions.size(); i += 3) {
            const glm::dvec4 p = world * glm::dvec4(positions[i], positions[i + 1], positions[i + 2], 1.0);
            for (int axis = 0; axis < 3; ++axis)
                positions[i + axis] = static_cast<float>(p[axis]) + 0.0f;
        }
    }
    bool mirrors = false;
    const glm::dmat3 cofactors = normalMatrix(world, mirrors);
    std::size_t undefined = 0;
    if (ModelAttribute* attribute = part.normals()) {
        std::vector<float>& normals = attribute->values;
        for (std::size_t i = 0; i + 2 < normals.size(); i += 3) {
            glm::dvec3 n = cofactors * glm::dvec3(normals[i], normals[i + 1], normals[i + 2]);
            const double length = glm::length(n);
            if (length > 0.0 && std::isfinite(length)) {
                n /= length;
            } else {
                n = {0.0, 0.0, 1.0};
                ++undefined;
            }
            for (int axis = 0; axis < 3; ++axis)
                normals[i + axis] = static_cast<float>(n[axis]) + 0.0f;
        }
    }
    if (mirrors && part.type == kel::mesh::TRIANGLES) {
        for (std::size_t i = 0; i + 2 < part.indices.size(); i += 3)
            std::swap(part.indices[i + 1], part.indices[i + 2]);
    }
    return undefined;
}

const char* ModelExtent::add(const ModelPart& part) {
    const std::vector<float>& positions = part.attributes[0].values;
    for (std::size_t i = 0; i + 2 < positions.size(); i += 3) {
        for (int axis = 0; axis < 3; ++axis) {
            const double value = static_cast<double>(positions[i + axis]);
            if (!std::isfinite(value))
                return "a position does not fit a 32-bit float once the node's transform is applied";
            low[axis] = std::min(low[axis], value);
            high[axis] = std::max(high[axis], value);
        }
    }
    const glm::dvec3 extent = high - low;
    if (std::max({extent.x, extent.y, extent.z}) > static_cast<double>(std::numeric_limits<float>::max()))
        return "the extent of the model does not fit a 32-bit float";

    if (part.type == kel::mesh::TRIANGLES) {
        const auto at = [&](std::size_t corner) {
            const float* p = &positions[3 * std::size_t{part.indices[corner]}];
            return glm::dvec3(p[0], p[1], p[2]);
        };
        for (std::size_t i = 0; i + 2 < part.indices.size() && !area; i += 3)
            area = glm::cross(at(i + 1) - at(i), at(i + 2) - at(i)) != glm::dvec3(0.0);
    }
    return nullptr;
}

} // namespace kel::importer::detail
