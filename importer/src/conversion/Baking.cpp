#include "Conversion.h"

#include <glm/common.hpp>
#include <glm/geometric.hpp>
#include <glm/mat3x3.hpp>

#include <algorithm>
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

/// One axis of world * p, of which `row` are the coefficients. The order of the sums is part of the result.
double transformed(const double* row, double x, double y, double z) {
    return (row[0] * x + row[1] * y) + (row[2] * z + row[3]);
}

/// Stores world * p - origin, rounded once.
///
/// returns  the largest square of a distance between what is stored, plus the origin, and world * p
template<typename Number>
double place(const glm::dmat4& world, const glm::dvec3& origin, const Number* source, std::size_t vertices,
             float* stored) {
    double rows[3][4];
    for (int axis = 0; axis < 3; ++axis) {
        for (int column = 0; column < 4; ++column)
            rows[axis][column] = world[column][axis];
    }
    double largest = 0.0;
    for (std::size_t v = 0; v < vertices; ++v, source += 3, stored += 3) {
        const double x = source[0], y = source[1], z = source[2];
        double square = 0.0;
        for (int axis = 0; axis < 3; ++axis) {
            const double exact = transformed(rows[axis], x, y, z);
            stored[axis] = static_cast<float>(exact - origin[axis]) + 0.0f;
            const double error = (static_cast<double>(stored[axis]) + origin[axis]) - exact;
            square += error * error;
        }
        largest = square > largest ? square : largest;
    }
    return largest;
}

void bakePositions(const Placement& placement, ModelAttribute& positions, Rounding& rounding) {
    const std::size_t vertices = positions.vertices();
    double square = 0.0;
    if (!positions.doubles.empty()) {
        positions.values.resize(3 * vertices);
        square = place(placement.world, placement.origin, positions.doubles.data(), vertices,
                       positions.values.data());
        std::vector<double>().swap(positions.doubles);
    } else if (placement.world != glm::dmat4(1.0) || placement.origin != glm::dvec3(0.0)) {
        square = place(placement.world, placement.origin, positions.values.data(), vertices,
                       positions.values.data());
    }
    // Of positions that no float holds there is an error to tell, not a distance.
    if (std::isfinite(square)) rounding.position = std::max(rounding.position, std::sqrt(square));
}

/// returns  how many normals have no direction any more and point along z
std::size_t bakeNormals(const glm::dmat3& matrix, ModelPart& part, Rounding& rounding) {
    const bool turned = matrix != glm::dmat3(1.0);
    const bool given = !part.hasMadeNormals;
    std::size_t undefined = 0;
    std::vector<float>& normals = part.normals()->values;
    for (std::size_t i = 0; i + 2 < normals.size(); i += 3) {
        float* stored = &normals[i];
        const glm::dvec3 source(stored[0], stored[1], stored[2]);
        glm::dvec3 n = turned ? matrix * source : source;
        const double length = glm::length(n);
        if (length > 0.0 && std::isfinite(length)) {
            n /= length;
        } else {
            n = {0.0, 0.0, 1.0};
            ++undefined;
        }
        for (int axis = 0; axis < 3; ++axis)
            stored[axis] = static_cast<float>(n[axis]) + 0.0f;
        rounding.normals += given && glm::dvec3(stored[0], stored[1], stored[2]) != (turned ? n : source);
    }
    return undefined;
}

} // namespace

std::size_t bake(const Placement& placement, ModelPart& part, Rounding& rounding) {
    bakePositions(placement, part.attributes[0], rounding);
    bool mirrors = false;
    const glm::dmat3 matrix = normalMatrix(placement.world, mirrors);
    const std::size_t undefined = part.normals() ? bakeNormals(matrix, part, rounding) : 0;
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
        const Positions at(part.attributes[0]);
        for (std::size_t i = 0; i + 2 < part.indices.size() && !area; i += 3) {
            const glm::dvec3 a = at[part.indices[i]];
            area = glm::cross(at[part.indices[i + 1]] - a, at[part.indices[i + 2]] - a) != glm::dvec3(0.0);
        }
    }
    return nullptr;
}

} // namespace kel::importer::detail
