#pragma once

#include <picojson.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace kel::prepare::detail {

enum class JsonFault {
    NONE,
    SYNTAX, ///< not one JSON value, or something after it
    DEPTH,  ///< objects and arrays nested deeper than MAX_METADATA_DEPTH
    NUMBER  ///< a number beyond the range of doubles
};

struct JsonCheck {
    JsonFault fault = JsonFault::NONE;
    std::size_t at = 0; ///< byte in the text
};

/// Whether a text is exactly one JSON value (RFC 8259) that a writer's parser can take. Needs no stack,
/// however deeply the text nests.
JsonCheck checkJson(std::string_view text);

/// The value of a text that checkJson has nothing against; null of any other.
picojson::value parseChecked(const std::string& text);

/// The first byte that is not part of UTF-8 as RFC 3629 defines it; text.size() when all of it is.
std::size_t firstNonUtf8(std::string_view text);

} // namespace kel::prepare::detail
