#include <kel/convert/Bounds.h>

#include <algorithm>
#include <cmath>

namespace kel::convert {

void Bounds::add(const std::array<double, 3>& point) {
    for (std::size_t c = 0; c < 3; ++c) {
        min[c] = std::min(min[c], point[c]);
        max[c] = std::max(max[c], point[c]);
    }
}

void Bounds::add(const Bounds& other) {
    if (other.isEmpty()) return;
    add(other.min);
    add(other.max);
}

std::array<double, 3> Bounds::size() const {
    if (isEmpty()) return {0, 0, 0};
    return {max[0] - min[0], max[1] - min[1], max[2] - min[2]};
}

double Bounds::diagonal() const {
    const auto extent = size();
    return std::hypot(extent[0], extent[1], extent[2]);
}

} // namespace kel::convert
