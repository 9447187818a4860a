#pragma once

#include "CornerComparison.h"
#include "MatchPrimitives.h"

#include <cstddef>
#include <optional>

namespace kel::convert {

/// Primitives that have no equal one, after those were set aside that draw nothing, are too small for their
/// encoding, or have only moved.
struct LostPrimitives {
    std::size_t onlyA = 0, onlyB = 0;
    std::optional<Point> first; ///< a corner
};

/// Measures the primitives that have no equal one. Where they stand at the same places of the lists and both
/// have a corner without a vertex at its place on the other side, they have moved, and their corners are
/// recorded. All others are measured to the surface of the other side: their vertices, and points on them by
/// area; what belongs to these points is compared where the surfaces meet.
LostPrimitives measureUnmatched(CornerComparison& corners, PrimitiveMatches& matches);

} // namespace kel::convert
