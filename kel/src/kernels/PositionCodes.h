#pragma once

#include <kel/src/Export.h>
#include <kel/src/kernels/Dispatch.h>

#include <cstddef>

namespace kel::src::detail {

/// Codes of kel::mesh::quantizeVec3<float, unsigned short>(min, max), 6 bytes per vertex.
///
/// positions  count packed positions of three floats, without need of alignment
/// codes      each vertex's codes begin `stride` bytes after those of the vertex before
/// stride     6, or 8: then the two bytes behind each vertex's codes are set to zero
/// returns    the kernels that ran; all give the same bytes
KELSRC_EXPORT KernelSet quantizePositions(const unsigned char* positions, std::size_t count,
                                          const float min[3], const float max[3], unsigned char* codes,
                                          std::size_t stride);

} // namespace kel::src::detail
