#pragma once

#include <kel/src/Export.h>
#include <kel/src/kernels/Dispatch.h>

#include <cstddef>

namespace kel::src::detail {

/// The rule of bounds for one position: a coordinate replaces a bound unless the bound is strictly better. So
/// a NaN replaces a bound, and the next number replaces the NaN again. All three arguments are three floats.
inline void extendBoundsByOne(const float* position, float* min, float* max) {
    for (int axis = 0; axis < 3; ++axis) {
        min[axis] = min[axis] < position[axis] ? min[axis] : position[axis];
        max[axis] = max[axis] > position[axis] ? max[axis] : position[axis];
    }
}

/// The same for `count` packed positions, in order; min and max hold the bounds so far.
///
/// returns  the kernels that did the work: the fast ones hand over to the plain loop when they meet a NaN,
///          whose place in the order matters
KELSRC_EXPORT KernelSet extendBounds(const float* positions, std::size_t count, float* min, float* max);

} // namespace kel::src::detail
