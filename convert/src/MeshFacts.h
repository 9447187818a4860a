#pragma once

#include <kel/convert/Bounds.h>
#include <kel/material/Material.h>
#include <kel/mesh/ForEachPrimitive.h>
#include <kel/src/format/MaterialParameters.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// What several steps ask about meshes and what belongs to them.
namespace kel::convert {

/// What a mesh of that type consists of: "points", "lines" or "triangles".
constexpr const char* kindName(kel::mesh::PrimitiveType type) {
    const std::size_t corners = kel::mesh::cornersPerPrimitive(type);
    return corners == 1 ? "points" : corners == 2 ? "lines" : "triangles";
}

/// The count that primitives of so many corners, or of a type, belong to.
constexpr std::uint64_t& primitivesIn(GeometryCounts& counts, std::size_t corners) {
    return corners == 1 ? counts.points : corners == 2 ? counts.lines : counts.triangles;
}
constexpr std::uint64_t& primitivesIn(GeometryCounts& counts, kel::mesh::PrimitiveType type) {
    return primitivesIn(counts, kel::mesh::cornersPerPrimitive(type));
}

/// The angle between two vectors of three floats, in double.
double degreesBetween(const float* a, const float* b);
double degreesBetween(const std::array<double, 3>& a, const std::array<double, 3>& b);

/// The parameters that writers give a classic material, and their values; none for another material, or null.
std::vector<std::pair<kel::src::format::MaterialParameterIndex, std::vector<double>>>
classicValues(const kel::material::Material* material);

/// The strings of a JSON list; none of another text.
std::vector<std::string> textsOf(std::string_view json);

/// True for equal texts, and for two that mean the same.
bool sameJson(std::string_view a, std::string_view b);

} // namespace kel::convert
