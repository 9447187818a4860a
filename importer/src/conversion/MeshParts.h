#pragma once

#include <kel/mesh/PrimitiveType.h>

#include <assimp/mesh.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kel::importer::detail {

struct PartAttribute {
    std::string name;
    std::size_t width; ///< floats per vertex
    std::vector<float> values;
};

/// The primitives of one type of a mesh, in the mesh's own space, with joined vertices.
struct MeshPart {
    kel::mesh::PrimitiveType type; ///< POINTS, LINES or TRIANGLES
    std::vector<std::uint32_t> indices;
    std::vector<PartAttribute> attributes; ///< "position" is the first; "normal", if there, the second

    std::size_t vertices() const { return attributes[0].values.size() / attributes[0].width; }
    /// The normals, or null.
    PartAttribute* normals();
};

/// What was left out or replaced on the way, over any number of meshes.
struct PartLosses {
    std::size_t notFinite = 0;        ///< primitives with positions that are not finite
    std::size_t notTriangulated = 0;  ///< faces of more than three corners
    std::size_t unusedVertices = 0;   ///< of meshes that lost no primitive
    std::size_t undefinedNormals = 0; ///< normals where no triangle has an area
    std::size_t replacedNormals = 0;  ///< normals that were zero or not finite
    std::size_t replacedNumbers = 0;  ///< other numbers that were not finite
};

/// Takes a mesh apart by type of primitive and joins equal vertices.
///
/// mesh               its faces are freed as soon as they have been read
/// positionsAreFinite whether those are known to be that any primitive uses
std::vector<MeshPart> takeParts(aiMesh& mesh, bool positionsAreFinite, PartLosses& losses);

} // namespace kel::importer::detail
