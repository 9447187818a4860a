#pragma once

#include <kel/src/Export.h>
#include <kel/src/kernels/Dispatch.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace kel::src::detail {

/// The sum of triangles' areas in single precision, in the order in which they come. Areas that are not normal
/// floats (0, subnormal, infinite, NaN) add nothing.
class AreaSum {
public:
    void add(float area) {
        const float magnitude = std::fabs(area);
        if (magnitude >= std::numeric_limits<float>::min() &&
            magnitude <= std::numeric_limits<float>::max()) {
            total += area;
        }
    }
    float get() const { return total; }

private:
    float total = 0.0f;
};

/// Positions of three floats in memory, `stride` bytes apart, without need of alignment.
struct PositionsInMemory {
    const unsigned char* first;
    std::size_t stride;
    std::size_t count;
};

/// Adds the areas of the triangles of a list, one after the other, as utils::computeTriangleArea gives them.
/// Index is std::uint16_t or std::uint32_t.
///
/// indices  3 * triangles indices
/// returns  how many triangles it has added: it stops before the first with an index past the positions
template<typename Index>
std::size_t addTriangleAreas(const PositionsInMemory& positions, const Index* indices, std::size_t triangles,
                             AreaSum& sum);

extern template KELSRC_EXPORT std::size_t
addTriangleAreas<std::uint16_t>(const PositionsInMemory&, const std::uint16_t*, std::size_t, AreaSum&);
extern template KELSRC_EXPORT std::size_t
addTriangleAreas<std::uint32_t>(const PositionsInMemory&, const std::uint32_t*, std::size_t, AreaSum&);

} // namespace kel::src::detail
