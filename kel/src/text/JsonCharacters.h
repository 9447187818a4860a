#pragma once

#include <cstddef>
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

/// Where the number that begins at `from` ends.
struct JsonNumberEnd {
    std::size_t at;
    std::size_t wholeDigits; ///< before the point; 0 where no number begins
    bool complete;           ///< else a digit should stand at `at`
};
constexpr JsonNumberEnd jsonNumberEnd(std::string_view text, std::size_t from) {
    std::size_t at = from;
    const auto take = [&](char a, char b) {
        const bool there = at < text.size() && (text[at] == a || text[at] == b);
        at += there ? 1 : 0;
        return there;
    };
    const auto digits = [&] {
        const std::size_t first = at;
        while (at < text.size() && isDigit(text[at]))
            ++at;
        return at - first;
    };
    take('-', '-');
    const std::size_t whole = take('0', '0') ? 1 : digits();
    if (whole == 0 || (take('.', '.') && digits() == 0)) return {at, whole, false};
    if (!take('e', 'E')) return {at, whole, true};
    take('+', '-');
    const bool exponent = digits() != 0;
    return {at, whole, exponent};
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
