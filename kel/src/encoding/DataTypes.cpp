#include <kel/src/encoding/DataTypes.h>

#include <kel/src/format/ElementTypes.h>

#include <limits>

namespace kel::src::detail {

namespace {

/// The facts of a type; null for an unknown value.
const format::ComponentTypeRow* rowOf(ShapeResourceContainer::SRCDataType type) {
    return type <= ShapeResourceContainer::FLOAT
               ? format::componentType(ShapeResourceContainer::getWebGLTypeIdentifier(type))
               : nullptr;
}

} // namespace

std::string getTypeString(ShapeResourceContainer::SRCDataType type) {
    const auto* row = rowOf(type);
    return row ? std::string(row->name) : "UNKNOWN";
}

std::uint32_t getTypeSizeInBytes(ShapeResourceContainer::SRCDataType type) {
    const auto* row = rowOf(type);
    return row ? row->bytes : std::numeric_limits<std::uint32_t>::max();
}

unsigned short* convertUint32ToUshort16(const unsigned char* data, unsigned int count) {
    auto* narrowed = new unsigned short[count];
    for (std::size_t i = 0; i < count; ++i)
        narrowed[i] = static_cast<unsigned short>(data[4 * i] | data[4 * i + 1] << 8);
    return narrowed;
}

std::size_t getNumAttributeValues(std::shared_ptr<kel::mesh::Mesh> mesh) {
    return mesh->getNumAttributeBuffers();
}

} // namespace kel::src::detail
