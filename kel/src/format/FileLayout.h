#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// The facts of an SRC file, each once: writers, readers and tools take them from here.
namespace kel::src::format {

/// A file begins with three 32-bit numbers, little-endian: SIGNATURE, LAYOUT, and the length of the header.
/// The header follows, and behind it, to the end, the data section that chunks lie in.
constexpr std::uint32_t SIGNATURE = 23;
constexpr std::uint32_t LAYOUT = 42;
constexpr std::size_t PREAMBLE_BYTES = 12;

/// The 32-bit number whose four bytes begin at `bytes`, lowest first.
inline std::uint32_t readUint32(const void* bytes) {
    const auto* byte = static_cast<const unsigned char*>(bytes);
    return std::uint32_t(byte[0]) | std::uint32_t(byte[1]) << 8 | std::uint32_t(byte[2]) << 16 |
           std::uint32_t(byte[3]) << 24;
}

/// The preamble as bytes.
struct PreambleBytes {
    char bytes[PREAMBLE_BYTES];

    /// headerBytes  is cut to 32 bits, all that the file can state
    explicit constexpr PreambleBytes(std::uint64_t headerBytes) : bytes() {
        const std::uint64_t numbers[3] = {SIGNATURE, LAYOUT, headerBytes};
        for (std::size_t i = 0; i < PREAMBLE_BYTES; ++i)
            bytes[i] = static_cast<char>(numbers[i / 4] >> (8 * (i % 4)) & 255);
    }
    std::string_view text() const { return {bytes, PREAMBLE_BYTES}; }
};

/// The sections of the header; the two kinds of views stand inside "accessors".
namespace section {
inline constexpr std::string_view ACCESSORS = "accessors";
inline constexpr std::string_view ATTRIBUTE_VIEWS = "attributeViews";
inline constexpr std::string_view INDEX_VIEWS = "indexViews";
inline constexpr std::string_view BUFFER_CHUNKS = "bufferChunks";
inline constexpr std::string_view BUFFER_VIEWS = "bufferViews";
inline constexpr std::string_view MATERIALS = "materials";
inline constexpr std::string_view MESHES = "meshes";
inline constexpr std::string_view META = "meta";
inline constexpr std::string_view TECHNIQUES = "techniques";
inline constexpr std::string_view TEXTURE_VIEWS = "textureViews";
inline constexpr std::string_view TEXTURES = "textures";
} // namespace section

/// The entries of the objects in these sections.
namespace key {
inline constexpr std::string_view ATTRIBUTES = "attributes";
inline constexpr std::string_view BBOX_CENTER = "bboxCenter";
inline constexpr std::string_view BBOX_SIZE = "bboxSize";
inline constexpr std::string_view BUFFER_VIEW = "bufferView";
inline constexpr std::string_view BYTE_LENGTH = "byteLength";
inline constexpr std::string_view BYTE_OFFSET = "byteOffset";
inline constexpr std::string_view BYTE_STRIDE = "byteStride";
inline constexpr std::string_view CHUNKS = "chunks";
inline constexpr std::string_view COMPONENT_TYPE = "componentType";
inline constexpr std::string_view COUNT = "count";
inline constexpr std::string_view DECODE_OFFSET = "decodeOffset";
inline constexpr std::string_view DECODE_SCALE = "decodeScale";
inline constexpr std::string_view INDICES = "indices";
inline constexpr std::string_view INSTANCE_TECHNIQUE = "instanceTechnique";
inline constexpr std::string_view MATERIAL = "material";
inline constexpr std::string_view META = "meta";
inline constexpr std::string_view PARAMETERS = "parameters";
inline constexpr std::string_view PRIMITIVE = "primitive";
inline constexpr std::string_view TECHNIQUE = "technique";
inline constexpr std::string_view TYPE = "type";
inline constexpr std::string_view VALUE = "value";
inline constexpr std::string_view VALUES = "values";
} // namespace key

/// What IDs begin with; a number follows.
namespace id_prefix {
inline constexpr std::string_view INDEX_VIEW = "indexView";
inline constexpr std::string_view ATTRIBUTE_VIEW = "attributeView";
inline constexpr std::string_view BUFFER_VIEW = "bufferView";
inline constexpr std::string_view CHUNK = "chunk";
// Of the container writer: a mesh's position.
inline constexpr std::string_view CONTAINER_MATERIAL = "material";
// Of the public writer: the material's identifier, and the mesh's position.
inline constexpr std::string_view PUBLIC_MATERIAL = "mat";
inline constexpr std::string_view PUBLIC_MESH = "mesh";
} // namespace id_prefix

/// An attribute that exists in files only: three 16-bit position codes and two bytes of an octahedral normal,
/// read as four 16-bit numbers.
inline constexpr std::string_view COMBINED_POSITION_NORMAL = "pos3us_nor2ub_oct";

} // namespace kel::src::format
