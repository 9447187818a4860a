#pragma once

#include <glm/vec3.hpp>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kel::importer::detail {

/// Cuts a polygon into triangles, one less than two for its corners, wound as it is. Concave polygons are cut
/// along diagonals inside of them, in the plane that fits them best; of one that crosses itself the triangles
/// overlap. A corner without an angle is kept, so that neighbours stay joined.
///
/// points     of the corners, at least three
/// triangles  gets three places in `points` for each triangle
/// returns    false, with nothing added, for a polygon so large and ragged that looking for diagonals would
///            take too long: the effort is limited to a fixed one for each corner
bool triangulate(const std::vector<glm::dvec3>& points, std::vector<std::uint32_t>& triangles);

} // namespace kel::importer::detail
