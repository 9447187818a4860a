#pragma once

#include <kel/src/Export.h>
#include <kel/src/SrcWriterInput.h>

#include <cstdint>
#include <iosfwd>

namespace kel::src {

/// The public writer: a scene into one SRC file.
///
///     std::ofstream file("scene.src", std::ios::binary);
///     kel::src::SrcWriter::write(input, file, kel::src::SrcWriter::UNCOMPRESSED);
class KELSRC_EXPORT SrcWriter {
public:
    /// How the vertices are stored. In every mode indices are 16 bits wide and those above 65,535 wrap, so a
    /// mesh may have at most 65,536 vertices; a larger one must be cut into parts before.
    enum Compression : std::int32_t {
        /// Every attribute as it is stored in the mesh.
        UNCOMPRESSED = 0,
        /// "position" as three 16-bit codes relative to the mesh's box, 6 bytes per vertex; other attributes
        /// as they are. Every mesh must have positions of three floats: with others the call does not return.
        /// kel::prepare::writeChecked refuses them.
        POSITION_COMPRESSED = 1,
        /// One attribute, "pos3us_nor2ub_oct", of 8 bytes per vertex: the position as above and the normal as
        /// two octahedral bytes (kel::mesh::quantizeNormals tells how to decode them). All other attributes
        /// are left out. A mesh without normals of three floats is written as POSITION_COMPRESSED.
        POSITION_NORMAL_COMPRESSED = 2
    };

    /// Writes all meshes and materials of `input` as one SRC file to `out`, which is neither flushed nor
    /// closed; whether it took the bytes is told by its own state. input.useCompressedPreset is not read.
    ///
    /// Adds the statistics of each mesh to its map in input.metaData, which the caller shares and so sees:
    /// do not write scenes that share such maps at the same time. A mesh without metadata is written without,
    /// and "Missing meta data" is logged as an error.
    ///
    /// throws  std::invalid_argument for another mode, and for a mesh with normals but without positions in
    ///         POSITION_NORMAL_COMPRESSED (or with positions of a DefaultMesh that are not three floats);
    ///         std::overflow_error for bounds that are not finite; whatever meshes, buffers and materials throw.
    ///         Nothing has been written then, though maps may have gained statistics.
    static void write(const SrcWriterInput& input, std::ostream& out, Compression mode);
};

} // namespace kel::src
