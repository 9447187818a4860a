#pragma once

#include "GltfData.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace kel::importer::detail {

/// Refuses a compressed view whose numbers its decoder cannot take, or that claims more than its bytes can hold.
void checkPackedView(const GltfObject& object, const GltfPackedView& view);

/// Fills view.bytes; the view is checked.
///
/// throws  ImportError
void decodePackedView(const ModelSource& source, const GltfPlace& place, GltfPackedView& view);

/// One attribute of a mesh in Draco's form, element after element.
struct DracoAttribute {
    kel::mesh::ComponentType type = kel::mesh::FLOAT;
    std::uint32_t width = 1;
    std::vector<unsigned char> bytes;
};

struct DracoMesh {
    std::size_t vertices = 0;
    std::vector<std::uint32_t> indices;     ///< of triangles, each below `vertices`
    std::vector<DracoAttribute> attributes; ///< in the order of the identifiers asked for
};

/// Decodes a mesh in Draco's form.
///
/// identifiers  of the attributes that are wanted; their order in the data does not matter
/// throws       ImportError
DracoMesh decodeDraco(const ModelSource& source, const GltfPlace& place, const GltfBytes& bytes,
                      const std::vector<std::uint32_t>& identifiers);

} // namespace kel::importer::detail
