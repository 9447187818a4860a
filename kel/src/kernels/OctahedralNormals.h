#pragma once

#include <kel/src/Export.h>
#include <kel/src/kernels/Dispatch.h>

#include <cstddef>

#if KELSRC_BUNDLED_MESH

namespace kel::src::detail {

/// Codes of kel::mesh::encodeOctahedralNormal, the encoder of this tree's own mesh library, 2 bytes per
/// vertex. Another mesh library may have another encoder, and then only its own may run.
///
/// normals  count packed normals of three floats, without need of alignment
/// codes    each vertex's codes begin `stride` bytes after those of the vertex before; what lies between is
///          left alone
/// returns  the kernels that ran; all give the same bytes
KELSRC_EXPORT KernelSet encodeNormals(const unsigned char* normals, std::size_t count, unsigned char* codes,
                                      std::size_t stride);

} // namespace kel::src::detail

#endif
