#pragma once

#include <glm/vec3.hpp>

namespace utils {

/// Area of the triangle c0 c1 c2 in square units of its corners: half the length of the cross product of two
/// edges. Not negative; NaN or infinite corners give what the arithmetic gives.
__attribute__((visibility("default"))) float computeTriangleArea(const glm::vec3& c0, const glm::vec3& c1,
                                                                 const glm::vec3& c2);

} // namespace utils
