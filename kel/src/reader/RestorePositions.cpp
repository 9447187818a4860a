#include <kel/src/reader/RestorePositions_p.h>

#include <kel/mesh/QuantizeVec3.h>

#include <optional>

namespace kel::src::detail {

namespace {

std::uint16_t codeIn(float value, float min, float max) {
    return kel::mesh::quantizeComponent<float, std::uint16_t>(value, min, max);
}

/// One axis of the writer's box, and the outermost positions that it came from.
struct Range {
    float min, max;
    float first, last;
};

/// The writer goes from the outermost positions to centre and size and from there to min and max, rounding to
/// float at every step, so the outermost positions lie within a few roundings of min and max. Those of the
/// larger of the two decide: a position of 0 comes out as 1e-8 when the other end is at 1.
std::optional<Range> rangeOf(double center, double size, double offset, double scale, std::uint16_t smallest,
                             std::uint16_t largest) {
    constexpr int REACH = 12; // in quarters of a rounding
    // A file may say anything: only a box of floats with a side can be this writer's.
    if (!(size > 0.0 && std::fabs(center) + size < static_cast<double>(std::numeric_limits<float>::max())))
        return std::nullopt;
    const auto nearMin = static_cast<float>(center - size * 0.5),
               nearMax = static_cast<float>(center + size * 0.5);
    if (smallest == largest) { // a flat side, which the writer widens: one position, in the middle
        const auto middle = static_cast<float>(center);
        if (codeIn(middle, nearMin, nearMax) != smallest) return std::nullopt;
        return Range{nearMin, nearMax, middle, middle};
    }
    const float outer = std::max(std::fabs(nearMin), std::fabs(nearMax));
    const float quarter = 0.25f * (std::nextafterf(outer, std::numeric_limits<float>::infinity()) - outer);
    // From the middle outwards: 0, 1, -1, 2, -2 and so on.
    const auto outwards = [](int i) { return static_cast<float>(i % 2 == 0 ? -i / 2 : (i + 1) / 2); };
    for (int low = 0; low <= 2 * REACH; ++low) {
        for (int high = 0; high <= 2 * REACH; ++high) {
            const float first = nearMin + outwards(low) * quarter, last = nearMax + outwards(high) * quarter;
            const float side = last - first, middle = (last + first) * 0.5f;
            const float min = middle - side * 0.5f, max = middle + side * 0.5f;
            const double sideScale = static_cast<double>(65535.0f / side);
            if (side > 0.0f && sideScale == scale && static_cast<double>(min) * sideScale == offset &&
                codeIn(first, min, max) == smallest && codeIn(last, min, max) == largest)
                return Range{min, max, first, last};
        }
    }
    return std::nullopt;
}

} // namespace

void restorePositions(const SrcMesh& mesh, const SrcAttributeView& view,
                      const std::vector<std::uint16_t>& codes, std::vector<float>& values) {
    if (!mesh.hasBounds) return;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        std::uint16_t smallest = 0xffff, largest = 0;
        for (std::size_t i = axis; i < codes.size(); i += 3) {
            smallest = std::min(smallest, codes[i]);
            largest = std::max(largest, codes[i]);
        }
        const auto range = rangeOf(mesh.boundsCenter[axis], mesh.boundsSize[axis], view.decodeOffset[axis],
                                   view.decodeScale[axis], smallest, largest);
        if (!range) continue;
        const double step = (static_cast<double>(range->max) - range->min) / 65535.0;
        for (std::size_t i = axis; i < codes.size(); i += 3) {
            if (codes[i] == smallest) {
                values[i] = range->first;
            } else if (codes[i] == largest) {
                values[i] = range->last;
            } else {
                values[i] = onItsCode(std::clamp(values[i], range->first, range->last), codes[i], step,
                                      [&](float value) { return codeIn(value, range->min, range->max); });
            }
        }
    }
}

} // namespace kel::src::detail
