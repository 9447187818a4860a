#include <kel/src/encoding/DataTypes.h>

#include <limits>

namespace kel::src::detail {

namespace {

struct TypeRow {
    const char* name;
    std::uint32_t sizeInBytes;
    std::uint32_t webGLIdentifier;
};

constexpr TypeRow TYPES[] = {{"UBYTE", 1, 5121}, {"BYTE", 1, 5120}, {"USHORT", 2, 5123}, {"SHORT", 2, 5122},
                             {"UINT", 4, 5125},  {"INT", 4, 5124},  {"FLOAT", 4, 5126}};
constexpr TypeRow UNKNOWN_TYPE = {"UNKNOWN", std::numeric_limits<std::uint32_t>::max(), 5126};

const TypeRow& rowOf(SRCDataType type) {
    const auto value = static_cast<std::uint32_t>(type);
    return value < sizeof TYPES / sizeof TYPES[0] ? TYPES[value] : UNKNOWN_TYPE;
}

} // namespace

std::string getTypeString(SRCDataType type) {
    return rowOf(type).name;
}

std::uint32_t getTypeSizeInBytes(SRCDataType type) {
    return rowOf(type).sizeInBytes;
}

std::uint32_t getWebGLTypeIdentifier(SRCDataType type) {
    return rowOf(type).webGLIdentifier;
}

std::uint32_t getWebGLPrimitiveTypeIdentifier(SRCPrimitiveType type) {
    switch (type) {
    case SRCPrimitiveType::LINES:
        return kel::mesh::LINES;
    case SRCPrimitiveType::POINTS:
        return kel::mesh::POINTS;
    case SRCPrimitiveType::TRIANGLES:
        break;
    }
    return kel::mesh::TRIANGLES;
}

std::string getComponentTypeString(unsigned int components) {
    constexpr const char* NAMES[] = {"SCALAR", "VEC2", "VEC3", "VEC4"};
    return components >= 1 && components <= 4 ? NAMES[components - 1] : "INVALID";
}

unsigned short* convertUint32ToUshort16(const unsigned char* data, unsigned int count) {
    auto* narrowed = new unsigned short[count];
    for (std::size_t i = 0; i < count; ++i) {
        narrowed[i] = static_cast<unsigned short>(data[4 * i] | data[4 * i + 1] << 8);
    }
    return narrowed;
}

std::size_t getNumAttributeValues(std::shared_ptr<kel::mesh::Mesh> mesh) {
    return mesh->getNumAttributeBuffers();
}

} // namespace kel::src::detail
