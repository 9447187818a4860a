#pragma once

#include <assimp/vector3.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kel::importer::detail {

struct CornerNormals {
    std::vector<std::uint32_t> ofCorner; ///< which normal each corner takes
    std::vector<float> normals;          ///< three floats each, unit length
    /// Corners at places where no triangle has an area; they take (0, 0, 1).
    std::size_t undefined = 0;
};

/// Normals of a triangle list. Corners at one position share a normal, weighted by area, with those
/// neighbours that lean less than 60 degrees.
///
/// corners  three indices into `positions` per triangle; the positions are finite
CornerNormals makeNormals(const aiVector3D* positions, const std::vector<std::uint32_t>& corners);

} // namespace kel::importer::detail
