#include <utils/TriangleArea.h>

#include <glm/geometric.hpp>

namespace utils {

float computeTriangleArea(const glm::vec3& c0, const glm::vec3& c1, const glm::vec3& c2) {
    return 0.5f * glm::length(glm::cross(c1 - c0, c2 - c0));
}

} // namespace utils
