#pragma once

#include <kel/src/reader/Findings_p.h>
#include <kel/src/reader/HeaderTables_p.h>

#include <cstdint>
#include <string_view>
#include <vector>

namespace kel::src::detail {

/// What a mesh names besides its attributes.
struct MeshReferences {
    std::string_view indices;
    std::string_view material;
};

/// The references of a header by name, kept until all sections are read.
struct HeaderReferences {
    std::vector<std::string_view> chunks;           ///< of all buffer views, in order
    std::vector<std::string_view> indexBuffers;     ///< beside HeaderTables::indexViews
    std::vector<std::string_view> attributeBuffers; ///< beside HeaderTables::attributeViews
    std::vector<std::string_view> attributeViews;   ///< beside HeaderTables::attributes
    std::vector<std::string_view> techniques;       ///< beside HeaderTables::materials
    std::vector<MeshReferences> meshes;             ///< beside HeaderTables::meshes

    // What names an entry of a section that is missing is not told on top.
    bool hasChunks = false, hasBufferViews = false, hasIndexViews = false, hasAttributeViews = false;
};

/// Turns names into positions, takes out entries that a later one of the same ID replaces, puts meshes into
/// writing order, and checks that every view lies inside the bytes of its buffer view.
void resolveReferences(HeaderTables& tables, HeaderReferences& references, FindingSink& sink);

/// Checks the chunks, and what buffer views make of them, against the bytes that the data section has.
void checkChunks(HeaderTables& tables, std::uint64_t dataBytes, FindingSink& sink);

} // namespace kel::src::detail
