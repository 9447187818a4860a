#include <kel/src/reader/Preamble_p.h>

#include <kel/src/format/FileLayout.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

namespace kel::src::detail {

namespace {

/// Whether the file begins with the signature, as far as there is a beginning.
bool beginsWithSignature(std::string_view text) {
    const format::PreambleBytes expected(0);
    return text.substr(Preamble::SIGNATURE_AT, Preamble::LAYOUT_AT) ==
           expected.text().substr(Preamble::SIGNATURE_AT, std::min(text.size(), Preamble::LAYOUT_AT));
}

} // namespace

bool readPreamble(ByteView bytes, const ReadLimits& limits, FindingSink& sink, Preamble& preamble) {
    // No more than a stream has read by now, so that both say the same.
    const std::string_view text(reinterpret_cast<const char*>(bytes.data),
                                std::min(bytes.size, format::PREAMBLE_BYTES));
    const auto refuse = [&](SrcCode code, std::uint64_t offset, std::string detail) {
        sink.report(code, offset, {}, std::move(detail));
        return false;
    };
    if (text.empty()) return refuse(SrcCode::EMPTY_FILE, 0, {});
    if (!beginsWithSignature(text)) {
        if (text.substr(0, 4) == "glTF") return refuse(SrcCode::LOOKS_LIKE_GLB, 0, {});
        const std::size_t mark = text.substr(0, 3) == "\xef\xbb\xbf" ? 3 : 0;
        const std::size_t first = std::min(text.find_first_not_of(" \t\r\n", mark), text.size());
        if (text.substr(first, 1) == "<") return refuse(SrcCode::LOOKS_LIKE_HTML, first, {});
        return refuse(SrcCode::WRONG_SIGNATURE, Preamble::SIGNATURE_AT, {});
    }
    if (text.size() < format::PREAMBLE_BYTES)
        return refuse(SrcCode::TRUNCATED_PREAMBLE, text.size(), std::to_string(text.size()) + " bytes");
    const std::uint32_t layout = format::readUint32(bytes.data + Preamble::LAYOUT_AT);
    if (layout != format::LAYOUT)
        return refuse(SrcCode::UNKNOWN_LAYOUT, Preamble::LAYOUT_AT, "found " + std::to_string(layout));
    preamble.headerBytes = format::readUint32(bytes.data + Preamble::HEADER_BYTES_AT);
    if (preamble.headerBytes == 0) return refuse(SrcCode::HEADER_EMPTY, Preamble::HEADER_BYTES_AT, {});
    if (preamble.headerBytes > limits.headerBytes) {
        return refuse(SrcCode::LIMIT_EXCEEDED, Preamble::HEADER_BYTES_AT,
                      "a header of " + std::to_string(preamble.headerBytes) + " bytes; headerBytes is " +
                          std::to_string(limits.headerBytes));
    }
    return true;
}

} // namespace kel::src::detail
