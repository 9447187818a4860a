#pragma once

#include "MeshParts.h"

#include <glm/mat4x4.hpp>
#include <glm/vec3.hpp>

#include <cstddef>
#include <limits>

namespace kel::importer::detail {

/// Puts the node's transform into positions and normals, in double precision. A mirroring one swaps two
/// corners of each triangle.
///
/// returns  how many normals have no direction any more and point along z
std::size_t bakeTransform(const glm::dmat4& world, MeshPart& part);

/// What the model takes up, over all meshes added.
class ModelExtent {
public:
    enum class Fit { FITS, POSITION_OVERFLOWS, EXTENT_OVERFLOWS };

    /// Says whether positions and extent so far are numbers that a 32-bit float holds.
    Fit add(const MeshPart& part);

    bool isOnePlace() const { return low == high; }
    /// Whether any triangle has an area.
    bool hasArea() const { return area; }

private:
    glm::dvec3 low{std::numeric_limits<double>::infinity()};
    glm::dvec3 high{-std::numeric_limits<double>::infinity()};
    bool area = false;
};

} // namespace kel::importer::detail
