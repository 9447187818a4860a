#pragma once

#include <kel/src/Export.h>
#include <kel/src/SrcWriterInput.h>

#include <iosfwd>

namespace kel::src {

namespace detail {

/// The container writer: writes all meshes with their metadata and classic materials as one SRC file.
///
/// Reads `meshes`, `metaData`, `meshMaterials` and `useCompressedPreset`; `materials` is not read. Mesh i
/// gets the ID i in decimal, its classic material (of that class or one derived from it) the ID "material" +
/// i, also when meshes share it. The technique "x3dStandardMaterialTechnique" is always there. How one mesh
/// is written, and what is reported and left out, is told at detail::addMeshToSrc.
///
/// Adds statistics to the caller's metadata maps. Stream errors are not checked; look at the stream
/// afterwards.
///
/// throws  std::overflow_error when a number for the header is NaN or infinite, std::bad_alloc, and whatever
///         the caller's meshes throw; the stream is then untouched
KELSRC_EXPORT void writeMeshSrcDefault(const SrcWriterInput& input, std::ostream& out);

} // namespace detail

using detail::writeMeshSrcDefault;

} // namespace kel::src
