#include "Conversion.h"

#include <kel/src/format/ElementTypes.h>

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

/// Puts positions of the source where they go.
///
/// isLast  nobody needs the source's own again
std::vector<float> bakePositions(const Placement& placement, ModelAttribute& positions, bool isLast,
                                 Rounding& rounding) {
    const std::size_t vertices = positions.vertices();
    std::vector<float> stored;
    double square = 0.0;
    if (!positions.doubles.empty()) {
        stored.resize(3 * vertices);
        square = place(placement.world, placement.origin, positions.doubles.data(), vertices, stored.data());
    } else {
        stored = isLast ? std::move(positions.values) : positions.values;
        if (placement.world != glm::dmat4(1.0) || placement.origin != glm::dvec3(0.0))
            square = place(placement.world, placement.origin, stored.data(), vertices, stored.data());
    }
    // Of positions that no float holds there is an error to tell, not a distance.
    if (std::isfinite(square)) rounding.position = std::max(rounding.position, std::sqrt(square));
    return stored;
}

/// Turns normals and makes them unit length.
///
/// undefined  counts those that have no direction any more and point along z
/// rounded    counts those that are not what the source makes of them
void bakeNormals(const glm::dmat3& matrix, std::vector<float>& normals, std::size_t& undefined,
                 std::size_t& rounded) {
    const bool turned = matrix != glm::dmat3(1.0);
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
        rounded += glm::dvec3(stored[0], stored[1], stored[2]) != (turned ? n : source);
    }
}

} // namespace

UsedPart::UsedPart(ModelPart part) : source(std::move(part)), count(source.vertices()) {}

UsedPart::Placed UsedPart::place(const Placement& placement, bool isLast, Rounding& rounding,
                                 ModelExtent& extent) {
    Placed placed;
    placed.mesh = std::make_shared<kel::mesh::DefaultMesh>(source.type);
    ModelAttribute& positions = source.attributes[0];
    std::vector<float> stored = bakePositions(placement, positions, isLast, rounding);
    placed.problem = extent.add(source, stored);
    placed.mesh->addAttribute(positions.name, 3, std::move(stored));

    bool mirrors = false;
    const glm::dmat3 matrix = normalMatrix(placement.world, mirrors);
    if (source.normals()) {
        addNormals(matrix, isLast, *placed.mesh);
        placed.undefined = normals.undefined;
        if (!source.hasMadeNormals) rounding.normals += normals.rounded;
    }
    addOthers(*placed.mesh);
    setIndices(mirrors && source.type == kel::mesh::TRIANGLES, isLast, *placed.mesh);
    return placed;
}

void UsedPart::addNormals(const glm::dmat3& matrix, bool isLast, kel::mesh::DefaultMesh& mesh) {
    if (normals.buffer && normals.matrix == matrix) return mesh.addAttribute(normals.buffer);
    normals = {matrix, nullptr, 0, 0};
    ModelAttribute& given = *source.normals();
    std::vector<float> turned = isLast ? std::move(given.values) : given.values;
    bakeNormals(matrix, turned, normals.undefined, normals.rounded);
    mesh.addAttribute(given.name, 3, std::move(turned));
    normals.buffer = mesh.getAttributeBuffer(1);
}

void UsedPart::addOthers(kel::mesh::DefaultMesh& mesh) {
    const std::size_t first = source.normals() ? 2 : 1;
    for (std::size_t i = first; i < source.attributes.size(); ++i) {
        ModelAttribute& attribute = source.attributes[i];
        if (i - first < others.size()) {
            mesh.addAttribute(others[i - first]);
        } else {
            mesh.addAttribute(attribute.name, attribute.width, std::move(attribute.values));
            others.push_back(mesh.getAttributeBuffer(i));
        }
    }
}

void UsedPart::setIndices(bool mirrors, bool isLast, kel::mesh::DefaultMesh& mesh) {
    auto& known = mirrors ? mirrored : indices;
    if (known) return mesh.setIndexBuffer(known);
    std::vector<std::uint32_t> corners = isLast ? std::move(source.indices) : source.indices;
    for (std::size_t i = 0; mirrors && i + 2 < corners.size(); i += 3)
        std::swap(corners[i + 1], corners[i + 2]);
    if (count <= kel::src::format::MAX_SHORT_INDEX_VERTICES) {
        mesh.setIndices(std::vector<std::uint16_t>(corners.begin(), corners.end()));
    } else {
        mesh.setIndices(std::move(corners));
    }
    known = mesh.getIndexBuffer();
}

const char* ModelExtent::add(const ModelPart& part, const std::vector<float>& positions) {
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
            const float* const p = &positions[3 * std::size_t{part.indices[corner]}];
            return glm::dvec3(p[0], p[1], p[2]);
        };
        for (std::size_t i = 0; i + 2 < part.indices.size() && !area; i += 3)
            area = glm::cross(at(i + 1) - at(i), at(i + 2) - at(i)) != glm::dvec3(0.0);
    }
    return nullptr;
}

} // namespace kel::importer::detail
