#pragma once

#include <glm/geometric.hpp>
#include <glm/vec3.hpp>

namespace utils {

/// Area of the triangle c0 c1 c2 in square units of its corners: half the length of the cross product of two
/// edges. Not negative; NaN or infinite corners give what the arithmetic gives.
inline float computeTriangleArea(const glm::vec3& c0, const glm::vec3& c1, const glm::vec3& c2) {
    return 0.5f * glm::length(glm::cross(c1 - c0, c2 - c0));
}

} // namespace utils
