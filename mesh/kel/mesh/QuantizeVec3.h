#pragma once

#include <cstring>
#include <functional>
#include <limits>

#include <glm/vec3.hpp>

namespace kel::mesh {

/// The code of one component in the range min .. max, for an unsigned integer type To.
///
/// t = (value - min) / (max - min), with the two differences in From and the division in double. Inside 0 < t
/// < 1 the code is t times the largest To, truncated; t <= 0 gives 0. Everything else, NaN included, gives
/// the largest code: the order of the two tests is part of the result.
template<typename From, typename To>
To quantizeComponent(From value, From min, From max) {
    constexpr To largest = std::numeric_limits<To>::max();
    const double t = static_cast<double>(value - min) / static_cast<double>(max - min);
    if (t < 1.0 && t > 0.0) return static_cast<To>(t * static_cast<double>(largest));
    return t <= 0.0 ? To(0) : largest;
}

/// An element transform for transformAttributes: reads three From, writes three To codes relative to the box
/// min .. max, one axis at a time.
template<typename From, typename To>
std::function<void(void*, void*)> quantizeVec3(const glm::tvec3<From>& min, const glm::tvec3<From>& max) {
    return [min, max](void* source, void* target) {
        From value[3];
        std::memcpy(value, source, sizeof value);
        const To code[3] = {quantizeComponent<From, To>(value[0], min.x, max.x),
                            quantizeComponent<From, To>(value[1], min.y, max.y),
                            quantizeComponent<From, To>(value[2], min.z, max.z)};
        std::memcpy(target, code, sizeof code);
    };
}

} // namespace kel::mesh
