#pragma once

#include "CornerComparison.h"

#include <cstdint>
#include <vector>

namespace kel::convert {

/// Which primitives of two meshes are the same.
struct PrimitiveMatches {
    std::vector<std::uint32_t> onlyA, onlyB; ///< without an equal one, ascending
    std::size_t flipped = 0;                 ///< triangles that face the other way
    std::optional<Point> firstFlipped;
    ComparedBy by = ComparedBy::ORDER;
};

/// Brings the primitives of both sides together, each with one at most, and records them: first those that
/// meet in the order of the lists, then those that meet anywhere; of the rest those whose corners meet while
/// their attributes do not, and those that meet with their corners turned round.
PrimitiveMatches matchPrimitives(CornerComparison& corners);

} // namespace kel::convert
