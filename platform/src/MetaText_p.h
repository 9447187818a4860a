#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace src {

struct JsonFault {
    std::size_t offset; ///< in bytes from the start of the text
    const char* what;
};

/// Checks strictly that `text` is one JSON object in UTF-8, not nested deeper than readers follow, with
/// numbers that a double holds, and appends it to `out` without blanks and with numbers in the header's form.
/// What has been appended before a fault is found is of no use. One pass, no tree.
std::optional<JsonFault> appendCompactJsonObject(std::string_view text, std::string& out);

/// The text with everything that is not UTF-8 replaced by U+FFFD.
std::string validUtf8(std::string_view text);

} // namespace src
