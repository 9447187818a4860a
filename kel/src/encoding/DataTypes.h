#pragma once

#include <kel/mesh/Mesh.h>
#include <kel/src/Export.h>
#include <kel/src/container/ShapeResourceContainer.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace kel::src::detail {

/// The enumerator's name, e.g. "USHORT"; "UNKNOWN" for any other value.
KELSRC_EXPORT std::string getTypeString(ShapeResourceContainer::SRCDataType type);

/// Bytes of one component: 1, 2 or 4; all 32 bits set for an unknown value.
KELSRC_EXPORT std::uint32_t getTypeSizeInBytes(ShapeResourceContainer::SRCDataType type);

/// Narrows `count` little-endian 32-bit values at `data` to their low 16 bits; no range check.
///
/// returns  a new array of `count` values that the caller frees with delete[]
KELSRC_EXPORT unsigned short* convertUint32ToUshort16(const unsigned char* data, unsigned int count);

/// The number of attribute buffers of the mesh.
KELSRC_EXPORT std::size_t getNumAttributeValues(std::shared_ptr<kel::mesh::Mesh> mesh);

} // namespace kel::src::detail
