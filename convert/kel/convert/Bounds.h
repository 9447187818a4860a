#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>

namespace kel::convert {

/// A box that holds what was added to it.
struct Bounds {
    static constexpr double FAR = std::numeric_limits<double>::infinity();
    std::array<double, 3> min{FAR, FAR, FAR}, max{-FAR, -FAR, -FAR};

    bool isEmpty() const { return !(min[0] <= max[0] && min[1] <= max[1] && min[2] <= max[2]); }
    /// NaN in a component leaves that component as it is.
    void add(const std::array<double, 3>& point) {
        for (std::size_t c = 0; c < 3; ++c) {
            min[c] = std::min(min[c], point[c]);
            max[c] = std::max(max[c], point[c]);
        }
    }
    void add(const Bounds& other) {
        if (other.isEmpty()) return;
        add(other.min);
        add(other.max);
    }
    Bounds movedBy(const std::array<double, 3>& offset) const {
        Bounds moved = *this;
        for (std::size_t c = 0; c < 3; ++c) {
            moved.min[c] += offset[c];
            moved.max[c] += offset[c];
        }
        return moved;
    }
    /// 0, 0, 0 when empty.
    std::array<double, 3> size() const {
        if (isEmpty()) return {0, 0, 0};
        return {max[0] - min[0], max[1] - min[1], max[2] - min[2]};
    }
    /// 0 when empty.
    double diagonal() const {
        const auto extent = size();
        return std::hypot(extent[0], extent[1], extent[2]);
    }
};

/// How much geometry there is.
struct GeometryCounts {
    std::uint64_t meshes = 0, triangles = 0, lines = 0, points = 0, vertices = 0;

    GeometryCounts& operator+=(const GeometryCounts& other) {
        meshes += other.meshes;
        triangles += other.triangles;
        lines += other.lines;
        points += other.points;
        vertices += other.vertices;
        return *this;
    }
};

} // namespace kel::convert
