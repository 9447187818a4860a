#include "GltfContainer.h"

#include <kel/src/text/JsonCharacters.h>

#include <array>
#include <cstring>

namespace kel::importer::detail {

namespace {

[[noreturn]] void refuseShort(const ModelSource& source, const std::string& what, std::uint64_t offset) {
    source.refuse(ImportCode::TRUNCATED, what, "byte " + std::to_string(offset));
}

std::string percentDecoded(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto digit = [&](std::size_t at) {
            return at < text.size() ? kel::src::text::hexValue(text[at]) : -1;
        };
        if (text[i] == '%' && digit(i + 1) >= 0 && digit(i + 2) >= 0) {
            result += static_cast<char>(digit(i + 1) * 16 + digit(i + 2));
            i += 2;
        } else {
            result += text[i];
        }
    }
    return result;
}

/// The values of base64's digits, of both of its alphabets; -1 for any other byte.
constexpr std::array<std::int8_t, 256> base64Values() {
    constexpr char DIGITS[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::array<std::int8_t, 256> values{};
    for (std::int8_t& value : values)
        value = -1;
    for (std::int8_t i = 0; i < 64; ++i)
        values[static_cast<unsigned char>(DIGITS[i])] = i;
    values['-'] = 62;
    values['_'] = 63;
    return values;
}

std::string base64Decoded(std::string_view text) {
    static constexpr std::array<std::int8_t, 256> VALUES = base64Values();
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3 + 3);
    std::uint32_t bits = 0;
    int have = 0;
    for (const char c : text) {
        const int value = VALUES[static_cast<unsigned char>(c)];
        if (value < 0) continue;
        bits = bits << 6 | static_cast<std::uint32_t>(value);
        have += 6;
        if (have < 8) continue;
        have -= 8;
        bytes.push_back(static_cast<char>(bits >> have & 0xFF));
    }
    return bytes;
}

} // namespace

std::string glb::front(std::string json, std::uint64_t tail) {
    json.resize((json.size() + 3) / 4 * 4, ' '); // where chunks end
    std::string result;
    result.reserve(PREAMBLE_BYTES + CHUNK_HEAD_BYTES + json.size());
    for (const std::uint64_t value : {std::uint64_t{MAGIC}, std::uint64_t{VERSION},
                                      PREAMBLE_BYTES + CHUNK_HEAD_BYTES + json.size() + tail,
                                      std::uint64_t{json.size()}, std::uint64_t{JSON_CHUNK}}) {
        for (int shift = 0; shift < 32; shift += 8)
            result += static_cast<char>(value >> shift & 0xFF); // little-endian
    }
    return result += json;
}

GltfPieces gltfPieces(const ModelSource& source, const Content& content) {
    const std::string_view file(content.data(), static_cast<std::size_t>(content.size()));
    GltfPieces pieces;
    if (file.substr(0, 4) != "glTF") {
        pieces.json = file;
        return pieces;
    }
    std::array<std::uint32_t, 3> header{};
    static_assert(sizeof header == glb::PREAMBLE_BYTES);
    if (content.read(0, header.data(), sizeof header) != sizeof header)
        refuseShort(source, "the file ends within its header of 12 bytes", file.size());
    pieces.version = header[1];
    if (header[2] > file.size()) {
        refuseShort(source,
                    "the header announces " + std::to_string(header[2]) + " bytes, the file has " +
                        std::to_string(file.size()),
                    8);
    }
    if (pieces.version != glb::VERSION) return pieces;
    std::uint64_t offset = sizeof header;
    for (int index = 0; offset + glb::CHUNK_HEAD_BYTES <= header[2]; ++index) {
        std::array<std::uint32_t, 2> chunk{};
        static_assert(sizeof chunk == glb::CHUNK_HEAD_BYTES);
        content.read(offset, chunk.data(), sizeof chunk);
        const std::uint64_t start = offset + sizeof chunk;
        if (chunk[0] > header[2] - start) {
            refuseShort(source,
                        "a chunk announces " + std::to_string(chunk[0]) + " bytes, the file has " +
                            std::to_string(header[2] - start) + " left",
                        offset);
        }
        const std::string_view inside = file.substr(static_cast<std::size_t>(start), chunk[0]);
        if (index == 0) {
            if (chunk[1] != glb::JSON_CHUNK) {
                source.refuse(ImportCode::INVALID_MODEL, "the first chunk is not JSON",
                              "byte " + std::to_string(offset));
            }
            pieces.json = inside;
        } else if (chunk[1] == glb::BINARY_CHUNK && !pieces.binary.data()) {
            pieces.binary = inside;
        }
        offset = start + chunk[0];
    }
    if (!pieces.json.data()) refuseShort(source, "the file ends before its JSON", offset);
    return pieces;
}

std::string bytesOfDataUri(std::string_view uri) {
    const std::size_t comma = uri.find(',');
    if (comma == std::string_view::npos) return {};
    const std::string_view data = uri.substr(comma + 1);
    return uri.substr(0, comma).find(";base64") != std::string_view::npos ? base64Decoded(data)
                                                                          : percentDecoded(data);
}

Content contentBeside(const ModelSource& source, const std::string& uri) {
    const auto slash = source.path.rfind('/');
    const std::string folder = slash == std::string::npos ? "" : source.path.substr(0, slash + 1);
    // Some writers do not encode what they should, so the name may stand there as it is.
    Content content(folder + uri);
    return content.opened() ? std::move(content) : Content(folder + percentDecoded(uri));
}

} // namespace kel::importer::detail
