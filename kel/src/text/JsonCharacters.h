#pragma once

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

} // namespace kel::src::text
