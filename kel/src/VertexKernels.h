#pragma once

#include <kel/src/Export.h>
#include <kel/src/kernels/Dispatch.h>

#include <cstddef>
#include <cstdint>

namespace kel::src::detail {

/// The inner loops of the compressing encoders over vertices that lie in memory. Each has a plain loop that
/// defines the result and a fast kernel with the same bytes for every input. Sources are packed floats, three
/// per vertex, without need of alignment; results lie `stride` bytes apart. Each returns the kernels that
/// ran.

/// Codes of kel::mesh::quantizeVec3<float, unsigned short>(min, max), 6 bytes per vertex. With a stride of 8
/// the two bytes behind are set to zero; other strides must be 6.
KELSRC_EXPORT KernelSet quantizePositions(const unsigned char* positions, std::size_t count,
                                          const float min[3], const float max[3], unsigned char* codes,
                                          std::size_t stride);

#if KELSRC_BUNDLED_MESH
/// Codes of kel::mesh::encodeOctahedralNormal, the encoder of this tree's own mesh library, 2 bytes per
/// vertex; what lies between is left alone.
KELSRC_EXPORT KernelSet encodeNormals(const unsigned char* normals, std::size_t count, unsigned char* codes,
                                      std::size_t stride);
#endif

} // namespace kel::src::detail
