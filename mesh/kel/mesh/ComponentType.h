#pragma once

#include <kel/mesh/Export.h>

#include <cstddef>
#include <cstdint>

namespace kel::mesh {

// Repeats what kel/src/format/ElementTypes.h states: this library stands alone. A test holds the two equal.

/// Type of one component of a buffer element. The values are the WebGL data type codes, so they can be handed
/// on as they are.
enum ComponentType : std::uint32_t {
    BYTE = 5120,
    UNSIGNED_BYTE = 5121,
    SHORT = 5122,
    UNSIGNED_SHORT = 5123,
    INT = 5124,
    UNSIGNED_INT = 5125,
    FLOAT = 5126
};

/// Width of one component in bytes: 1, 2 or 4.
///
/// throws  std::invalid_argument for a value that is none of the seven types
KEL_MESH_EXPORT std::size_t getComponentSizeInBytes(ComponentType type);

} // namespace kel::mesh
