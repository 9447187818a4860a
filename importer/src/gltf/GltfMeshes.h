#pragma once

#include "GltfData.h"

#include <kel/mesh/PrimitiveType.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kel::importer::detail {

/// What a document calls an attribute, and its accessor.
using GltfAttribute = std::pair<std::string, std::size_t>;

/// Geometry in Draco's form: a view, and the identifier of each attribute in it.
struct GltfDraco {
    std::size_t view = 0;
    std::vector<std::pair<std::string, std::uint32_t>> identifiers;
};

struct GltfPrimitive {
    /// "POSITION" is the first, then "NORMAL", "TEXCOORD_n", "COLOR_n", own names; then what only bends a mesh.
    std::vector<GltfAttribute> attributes;
    std::optional<std::size_t> indices;
    std::optional<std::size_t> material;
    kel::mesh::PrimitiveType mode = kel::mesh::TRIANGLES;
    std::unique_ptr<GltfDraco> draco;
    std::vector<std::vector<GltfAttribute>> targets;

    /// The accessor of an attribute.
    std::optional<std::size_t> find(std::string_view name) const;
};

struct GltfMesh {
    std::string name;
    std::vector<GltfPrimitive> primitives;
    std::vector<double> weights; ///< of the morph targets
    std::string extras;
};

/// What meshes have that no part takes along.
struct GltfMeshLosses {
    std::size_t tangents = 0, targets = 0, unknown = 0, matrices = 0;
    std::string firstUnknown, firstMatrix;
};

/// Attributes have the form that their names ask for, and as many elements as the mesh has vertices; indices are
/// unsigned whole numbers. Their values are not looked at.
///
/// throws  ImportError
std::vector<GltfMesh> readMeshes(const GltfObject& document, const GltfData& data, std::size_t materials,
                                 GltfMeshLosses& losses, std::vector<std::string>& notes);

/// The number of a set: 1 for "TEXCOORD_1" and "TEXCOORD_"; nothing for any other name.
std::optional<std::size_t> setOf(std::string_view name, std::string_view base);

} // namespace kel::importer::detail
