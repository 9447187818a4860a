#pragma once

#include <cstddef>
#include <string_view>

namespace kel::src::detail {

/// Deepest nesting of objects and arrays in one metadata text. In the file it stands four levels down in the
/// header, and a header of 64 levels is one that readers follow and that no parser runs out of stack over.
constexpr std::size_t MAX_METADATA_DEPTH = 60;

/// The start of a text, taken as UTF-8 (RFC 3629).
struct Utf8Sequence {
    std::size_t length = 0; ///< bytes of the character, or 0 where none is
    std::size_t broken = 1; ///< then how many bytes one U+FFFD stands for
};

/// `text` is not empty.
inline Utf8Sequence utf8SequenceAt(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80) return {1, 0};
    std::size_t length = 0;
    unsigned char low = 0x80, high = 0xbf;
    if (lead >= 0xc2 && lead <= 0xdf) {
        length = 2;
    } else if (lead >= 0xe0 && lead <= 0xef) {
        length = 3;
        if (lead == 0xe0) low = 0xa0;  // shorter forms exist
        if (lead == 0xed) high = 0x9f; // surrogates
    } else if (lead >= 0xf0 && lead <= 0xf4) {
        length = 4;
        if (lead == 0xf0) low = 0x90;
        if (lead == 0xf4) high = 0x8f; // beyond U+10FFFF
    } else {
        return {};
    }
    for (std::size_t i = 1; i < length; ++i) {
        if (i >= text.size() || byte(i) < low || byte(i) > high) return {0, i};
        low = 0x80;
        high = 0xbf;
    }
    return {length, 0};
}

} // namespace kel::src::detail
