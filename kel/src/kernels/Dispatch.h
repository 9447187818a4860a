#pragma once

#include <kel/src/Export.h>

namespace kel::src::detail {

/// Which of the equal implementations of a hot loop runs. PLAIN defines the result; the others give the same
/// bytes.
enum class KernelSet {
    PLAIN, ///< portable loops, on any processor
    AVX2   ///< x86-64 with AVX2; no fused multiply-add is used
};

/// The best set that this processor runs.
KELSRC_EXPORT KernelSet bestKernels();

/// The set in use: the best one, unless forced.
KELSRC_EXPORT KernelSet activeKernels();

/// Forces a set for the whole process, for tests and measurements.
///
/// returns  false, and changes nothing, when this processor cannot run the set
KELSRC_EXPORT bool forceKernels(KernelSet set);

/// Back to the best set.
KELSRC_EXPORT void unforceKernels();

} // namespace kel::src::detail
