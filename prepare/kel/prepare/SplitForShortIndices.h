#pragma once

#include <kel/prepare/Export.h>
#include <kel/src/SrcWriterInput.h>

#include <cstddef>

namespace kel::prepare {

/// The public writer stores indices in 16 bits and wraps larger ones; WebGL 2 takes 65535 as the restart
/// index. So a mesh that it writes may have 65,535 vertices, numbered 0 to 65534.
struct SplitOptions {
    /// Most vertices of one part, 3 to 65,535.
    std::size_t maxVertices = 65535;
};

/// What splitForShortIndices did.
struct SplitReport {
    std::size_t meshes = 0;              ///< meshes that were cut
    std::size_t parts = 0;               ///< into this many
    std::size_t verticesAdded = 0;       ///< copies of vertices that more than one part uses
    std::size_t verticesUnused = 0;      ///< left out: no primitive used them
    std::size_t degenerateTriangles = 0; ///< left out: strip and fan triangles that name a vertex twice
    std::size_t indicesIncomplete = 0;   ///< left out: indices at the end that make no whole primitive
};

/// A copy of the input in which no mesh has more than `maxVertices` vertices. Meshes within the limit pass as
/// the same pointer with the same metadata map; a longer one is replaced, at its place in the list, by its
/// parts.
///
/// Parts take whole primitives in the mesh's order, each as many as fit, and only the vertices these use, in
/// the order of first use. So a mesh whose triangles lie near each other in the list is cut into few parts
/// with few vertices doubled; optimizeForGpu before the split makes such an order.
///
/// Lists stay lists, points stay points. Strips and fans become triangle lists with the same facing (every
/// other triangle of a strip is turned), loops and line strips become line lists. Parts of an indexed mesh,
/// and of strips, fans and loops, have 16-bit indices; lists and points without an index buffer are cut
/// without one.
///
/// A part has the mesh's material, every attribute with its type and name, and metadata of its own: the
/// mesh's entries with "part" (0, 1, ...) and "parts" (how many) added. A mesh that fits into one part once
/// unused vertices are left out gets neither. A mesh that is listed twice is cut once, and its parts are
/// listed twice.
///
/// A mesh's vertices are the elements of "position", or of its longest attribute when it has none. Linear in
/// vertices and indices.
///
/// throws  std::invalid_argument for maxVertices outside 3 to 65,535; for a mesh over the limit also when an
///         index has no vertex, an attribute ends before the positions do, the primitive type is unknown, or
///         an attribute pointer is empty, with a message that names the mesh
KEL_PREPARE_EXPORT kel::src::SrcWriterInput splitForShortIndices(const kel::src::SrcWriterInput& input,
                                                                 const SplitOptions& options = {},
                                                                 SplitReport* report = nullptr);

} // namespace kel::prepare
