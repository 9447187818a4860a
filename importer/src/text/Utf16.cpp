#include "Utf16.h"

#include <kel/src/text/Utf8.h>

#include <cstddef>
#include <cstdint>

namespace kel::importer::detail {

bool isUtf16(std::string_view text) {
    return text.substr(0, 2) == "\xFF\xFE" || text.substr(0, 2) == "\xFE\xFF";
}

std::string utf8OfUtf16(std::string_view text) {
    const bool isBigEndian = text[0] == '\xFE';
    const auto unitAt = [&](std::size_t i) -> std::uint32_t {
        const auto first = static_cast<unsigned char>(text[i]),
                   second = static_cast<unsigned char>(text[i + 1]);
        return isBigEndian ? first << 8 | second : second << 8 | first;
    };
    std::string result;
    result.reserve(text.size() / 2);
    for (std::size_t i = 2; i + 1 < text.size(); i += 2) {
        std::uint32_t code = unitAt(i);
        const bool isHalf = code >= 0xD800 && code <= 0xDFFF;
        const std::uint32_t low = isHalf && code < 0xDC00 && i + 3 < text.size() ? unitAt(i + 2) : 0;
        if (low >= 0xDC00 && low <= 0xDFFF) {
            code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
            i += 2;
        } else if (isHalf) {
            code = 0xFFFD;
        }
        kel::src::text::appendUtf8(result, code);
    }
    return result;
}

} // namespace kel::importer::detail
