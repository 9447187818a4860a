#pragma once

#include <kel/mesh/Mesh.h>
#include <kel/src/Export.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace kel::src::detail {

/// Element types of index and attribute data in an SRC file. Also reached as
/// ShapeResourceContainer::SRCDataType.
enum class SRCDataType : std::uint32_t {
    UBYTE = 0,
    BYTE = 1,
    USHORT = 2,
    SHORT = 3,
    UINT = 4,
    INT = 5,
    FLOAT = 6
};

/// Primitive types that the container writes. Also reached as ShapeResourceContainer::SRCPrimitiveType.
enum class SRCPrimitiveType : std::uint32_t { TRIANGLES = 0, LINES = 1, POINTS = 2 };

/// The enumerator's name, e.g. "USHORT"; "UNKNOWN" for any other value.
KELSRC_EXPORT std::string getTypeString(SRCDataType type);

/// Bytes of one component: 1, 2 or 4; all 32 bits set for an unknown value.
KELSRC_EXPORT std::uint32_t getTypeSizeInBytes(SRCDataType type);

/// The WebGL data type code, 5120 to 5126; 5126 (FLOAT) for an unknown value.
KELSRC_EXPORT std::uint32_t getWebGLTypeIdentifier(SRCDataType type);

/// The WebGL primitive mode: 4 triangles, 1 lines, 0 points; 4 for an unknown value.
KELSRC_EXPORT std::uint32_t getWebGLPrimitiveTypeIdentifier(SRCPrimitiveType type);

/// "SCALAR", "VEC2", "VEC3" or "VEC4" for 1 to 4 components; "INVALID" for any other count.
KELSRC_EXPORT std::string getComponentTypeString(unsigned int components);

/// Narrows `count` little-endian 32-bit values at `data` to their low 16 bits; no range check.
///
/// returns  a new array of `count` values that the caller frees with delete[]
KELSRC_EXPORT unsigned short* convertUint32ToUshort16(const unsigned char* data, unsigned int count);

/// The number of attribute buffers of the mesh.
KELSRC_EXPORT std::size_t getNumAttributeValues(std::shared_ptr<kel::mesh::Mesh> mesh);

} // namespace kel::src::detail
