#pragma once

#include <kel/convert/Bounds.h>
#include <kel/mesh/ForEachPrimitive.h>

#include <cstdint>

namespace kel::convert {

/// What a mesh of that type consists of: "points", "lines" or "triangles".
constexpr const char* kindName(kel::mesh::PrimitiveType type) {
    const std::size_t corners = kel::mesh::cornersPerPrimitive(type);
    return corners == 1 ? "points" : corners == 2 ? "lines" : "triangles";
}

/// The count that primitives of a type belong to.
constexpr std::uint64_t& primitivesIn(GeometryCounts& counts, kel::mesh::PrimitiveType type) {
    const std::size_t corners = kel::mesh::cornersPerPrimitive(type);
    return corners == 1 ? counts.points : corners == 2 ? counts.lines : counts.triangles;
}

} // namespace kel::convert
