#pragma once

#include <kel/convert/Export.h>

#include <array>
#include <cstdint>
#include <limits>

namespace kel::convert {

/// A box that holds what was added to it.
struct KEL_CONVERT_EXPORT Bounds {
    std::array<double, 3> min{std::numeric_limits<double>::infinity(),
                              std::numeric_limits<double>::infinity(),
                              std::numeric_limits<double>::infinity()};
    std::array<double, 3> max{-std::numeric_limits<double>::infinity(),
                              -std::numeric_limits<double>::infinity(),
                              -std::numeric_limits<double>::infinity()};

    bool isEmpty() const { return !(min[0] <= max[0] && min[1] <= max[1] && min[2] <= max[2]); }
    void add(const std::array<double, 3>& point); ///< NaN in a component leaves that component as it is
    void add(const Bounds& other);
    std::array<double, 3> size() const; ///< 0, 0, 0 when empty
    double diagonal() const;            ///< 0 when empty
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
