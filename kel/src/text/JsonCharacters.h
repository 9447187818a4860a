#pragma once

#include <string_view>

namespace kel::src::text {

constexpr bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

/// What may stand between the tokens of JSON.
constexpr bool isJsonSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

/// The value of a hexadecimal digit; -1 for any other character.
constexpr int hexValue(char c) {
    if (isDigit(c)) return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

/// The number of the four hexadecimal digits at `at`, as in an escape; -1 where they are not.
constexpr long codeUnitAt(std::string_view text, std::size_t at) {
    if (at + 4 > text.size()) return -1;
    long unit = 0;
    for (const char c : text.substr(at, 4)) {
        if (hexValue(c) < 0) return -1;
        unit = unit << 4 | hexValue(c);
    }
    return unit;
}

/// Characters that may stand in a string as a backslash and the letter at the same place below.
inline constexpr std::string_view ESCAPED_CHARACTERS = "\"\\/\b\f\n\r\t";
inline constexpr std::string_view ESCAPE_LETTERS = "\"\\/bfnrt";

} // namespace kel::src::text
