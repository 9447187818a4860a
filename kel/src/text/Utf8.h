#pragma once

#include <kel/src/Export.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kel::src::text {

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

/// The first byte that is not part of UTF-8; text.size() when all of it is.
KELSRC_EXPORT std::size_t firstNonUtf8(std::string_view text);

/// The text with every maximal run of bytes that cannot be UTF-8 replaced by U+FFFD.
///
/// changed  set to whether anything was replaced; may be null
KELSRC_EXPORT std::string validUtf8(std::string_view text, bool* changed = nullptr);

/// Appends the character `code`, which is below 0x110000 and no surrogate.
KELSRC_EXPORT void appendUtf8(std::string& target, std::uint32_t code);

} // namespace kel::src::text
