#pragma once

#include "../checks/Checks.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kel::importer::detail {

/// The frame of a GLB file: a preamble of three 32-bit numbers (magic, version, length of the file), then
/// chunks of two numbers (length, kind) and content; the first is the JSON.
namespace glb {

constexpr std::size_t PREAMBLE_BYTES = 12;
constexpr std::size_t CHUNK_HEAD_BYTES = 8;
constexpr std::uint32_t MAGIC = 0x46546C67; // "glTF"
constexpr std::uint32_t VERSION = 2;
constexpr std::uint32_t JSON_CHUNK = 0x4E4F534A;
constexpr std::uint32_t BINARY_CHUNK = 0x004E4942;

/// The front of a file, up to the end of its JSON.
///
/// tail  how many bytes will follow
std::string front(std::string json, std::uint64_t tail);

} // namespace glb

/// The two pieces of a glTF file, which lie in its content.
struct GltfPieces {
    std::uint32_t version = glb::VERSION; ///< of the container; there are no pieces of another than 2
    std::string_view json;
    std::string_view binary; ///< its data is null where there is none
};

/// throws  ImportError when the file ends before what its headers announce
GltfPieces gltfPieces(const ModelSource& source, const Content& content);

/// The bytes that a data URI holds; base64 or percent-encoded. Characters that are no base64 are passed over.
std::string bytesOfDataUri(std::string_view uri);

/// The file beside the model that a URI names; ask the result whether it could be opened.
Content contentBeside(const ModelSource& source, const std::string& uri);

} // namespace kel::importer::detail
