#pragma once

#include <cmath>
#include <cstddef>

namespace kel::convert {

/// The angle between two vectors of three floats, in double.
inline double degreesBetween(const float* a, const float* b) {
    double dot = 0, crossed = 0;
    const auto at = [](const float* v, std::size_t c) { return static_cast<double>(v[c % 3]); };
    for (std::size_t c = 0; c < 3; ++c) {
        dot += at(a, c) * at(b, c);
        const double part = at(a, c + 1) * at(b, c + 2) - at(a, c + 2) * at(b, c + 1);
        crossed += part * part;
    }
    return std::atan2(std::sqrt(crossed), dot) * 180.0 / 3.14159265358979323846;
}

} // namespace kel::convert
