#include <kel/src/format/FileLayout.h>
#include <kel/src/reader/HeaderTables_p.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace kel::src::detail {

std::uint32_t readPreamble(ByteView bytes, const ReadLimits& limits, FindingSink& sink) {
    // No more than a stream has read by now, so that both say the same.
    const std::string_view text(reinterpret_cast<const char*>(bytes.data),
                                std::min(bytes.size, format::PREAMBLE_BYTES));
    const auto refuse = [&](SrcCode code, std::uint64_t offset, std::string detail) {
        sink.report(code, offset, {}, std::move(detail));
        return 0u;
    };
    if (text.empty()) return refuse(SrcCode::EMPTY_FILE, 0, {});
    // The signature is compared as far as there is a beginning.
    const format::PreambleBytes expected(0);
    if (text.substr(0, LAYOUT_AT) != expected.text().substr(0, std::min(text.size(), LAYOUT_AT))) {
        if (text.substr(0, 4) == "glTF") return refuse(SrcCode::LOOKS_LIKE_GLB, 0, {});
        const std::size_t mark = text.substr(0, 3) == "\xef\xbb\xbf" ? 3 : 0;
        const std::size_t first = std::min(text.find_first_not_of(" \t\r\n", mark), text.size());
        if (text.substr(first, 1) == "<") return refuse(SrcCode::LOOKS_LIKE_HTML, first, {});
        return refuse(SrcCode::WRONG_SIGNATURE, 0, {});
    }
    if (text.size() < format::PREAMBLE_BYTES)
        return refuse(SrcCode::TRUNCATED_PREAMBLE, text.size(), std::to_string(text.size()) + " bytes");
    const std::uint32_t layout = format::readUint32(bytes.data + LAYOUT_AT);
    if (layout != format::LAYOUT)
        return refuse(SrcCode::UNKNOWN_LAYOUT, LAYOUT_AT, "found " + std::to_string(layout));
    const std::uint32_t headerBytes = format::readUint32(bytes.data + HEADER_BYTES_AT);
    if (headerBytes == 0) return refuse(SrcCode::HEADER_EMPTY, HEADER_BYTES_AT, {});
    if (headerBytes > limits.headerBytes)
        return refuse(SrcCode::LIMIT_EXCEEDED, HEADER_BYTES_AT,
                      "a header of " + std::to_string(headerBytes) + " bytes; headerBytes is " +
                          std::to_string(limits.headerBytes));
    return headerBytes;
}

} // namespace kel::src::detail
