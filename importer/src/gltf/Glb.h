#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// The frame of a GLB file: a preamble of three 32-bit numbers (magic, version, length of the file), then
/// chunks of two numbers (length, kind) and content; the first is the JSON.
namespace kel::importer::detail::glb {

constexpr std::size_t PREAMBLE_BYTES = 12;
constexpr std::size_t CHUNK_HEAD_BYTES = 8;
constexpr std::uint32_t MAGIC = 0x46546C67; // "glTF"
constexpr std::uint32_t VERSION = 2;
constexpr std::uint32_t JSON_CHUNK = 0x4E4F534A;
constexpr std::uint32_t BINARY_CHUNK = 0x004E4942;

/// Little-endian.
inline void appendUint32(std::string& bytes, std::uint64_t value) {
    for (int shift = 0; shift < 32; shift += 8)
        bytes += static_cast<char>(value >> shift & 0xFF);
}

/// Blanks up to a multiple of four bytes, where chunks end.
inline void padJson(std::string& json) {
    json.resize((json.size() + 3) / 4 * 4, ' ');
}

} // namespace kel::importer::detail::glb
