#pragma once

#include <kel/src/Export.h>
#include <kel/src/SrcJson.h>

#include <string>
#include <string_view>

/// Finding things in a text that is known to be JSON: a piece of a header that was checked as a whole, or one
/// that checkJson has nothing against. None of these reads outside the text, whatever it holds. Members,
/// numbers and strings are found by the functions of SrcJson.h, which this room implements.
namespace kel::src::text {

/// Reads a number by the grammar of JSON.
///
/// returns  false when the whole text is none; `value` is infinite when a double cannot hold it
KELSRC_EXPORT bool parseJsonNumber(std::string_view text, double& value);

/// True when the text between a string's quotes needs no unescaping.
inline bool isPlain(std::string_view rawString) {
    return rawString.find('\\') == std::string_view::npos;
}

/// Appends what a string means: the text between its quotes, whose escapes are known to be valid. Half of a
/// surrogate pair, which UTF-8 cannot hold, becomes U+FFFD.
KELSRC_EXPORT void appendUnescaped(std::string& target, std::string_view rawString);

} // namespace kel::src::text
