#pragma once

#include <kel/src/text/JsonWriter.h>

#include <charconv>
#include <cmath>
#include <cstddef>
#include <string>
#include <string_view>

namespace src {

/// "prefix12", with the quotes.
inline void appendId(std::string& text, std::string_view prefix, std::size_t number) {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, number);
    text += '"';
    text += prefix;
    text.append(digits, end.ptr);
    text += '"';
}

/// What is wrong with a field that cannot be written, such as "bboxSize[1] is infinite, ..."; empty if it
/// can.
inline std::string faultOf(std::string_view field, const double* values, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        if (std::isfinite(values[i])) continue;
        return std::string(field) + "[" + std::to_string(i) + "] is " +
               (std::isnan(values[i]) ? "not a number" : "infinite") +
               ", which no file can hold. Make the numbers it comes from finite.";
    }
    return {};
}

/// A field of numbers, which must be finite.
inline void appendField(std::string& text, std::string_view field, const double* values, std::size_t count) {
    kel::src::text::appendJsonString(text, field);
    kel::src::text::appendArrayMember(text, ":", values, count);
}

} // namespace src
