#pragma once

#include <kel/src/Export.h>

#include <picojson.h>

#include <string>
#include <string_view>

namespace kel::src::text {

/// Appends JSON text, byte for byte as picojson's compact serialisation gives it, but without a string and a
/// formatted print per value: these three are the hot path of a header with many meshes.

/// throws  std::overflow_error for NaN and infinities, as a picojson number does
KELSRC_EXPORT void appendJsonNumber(std::string& text, double value);
KELSRC_EXPORT void appendJsonString(std::string& text, std::string_view value);
KELSRC_EXPORT void appendJson(std::string& text, const picojson::value& value);

/// Appends what `append(element)` appends of each element, with commas between and `brackets` around.
template<typename Elements, typename Append>
void appendSeparated(std::string& text, std::string_view brackets, const Elements& elements,
                     const Append& append) {
    char separator = brackets[0];
    for (const auto& element : elements) {
        text += separator;
        separator = ',';
        append(element);
    }
    if (separator != ',') text += separator;
    text += brackets[1];
}

/// Append a member behind its key, which comes as it stands in the file: `,"count":`.
KELSRC_EXPORT void appendMember(std::string& text, std::string_view keyWithColon, double number);
KELSRC_EXPORT void appendMember(std::string& text, std::string_view keyWithColon, std::string_view string);

/// The same for an array of numbers, each of which `appendNumber(text, double)` appends.
template<typename Number, typename AppendNumber>
void appendArrayMember(std::string& text, std::string_view keyWithColon, const Number* numbers,
                       std::size_t count, const AppendNumber& appendNumber) {
    text += keyWithColon;
    text += '[';
    for (std::size_t i = 0; i < count; ++i) {
        if (i != 0) text += ',';
        appendNumber(text, static_cast<double>(numbers[i]));
    }
    text += ']';
}
template<typename Number>
void appendArrayMember(std::string& text, std::string_view keyWithColon, const Number* numbers,
                       std::size_t count) {
    appendArrayMember(text, keyWithColon, numbers, count, appendJsonNumber);
}

} // namespace kel::src::text
