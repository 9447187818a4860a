#pragma once

#include <kel/src/Export.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kel::src::text {

/// Deepest nesting of objects and arrays in one metadata text. In the file it stands four levels down in the
/// header, and a header of 64 levels is one that readers follow and that no parser runs out of stack over.
constexpr std::size_t MAX_METADATA_DEPTH = 60;

// clang-format off
/// Everything that can be wrong with a JSON text: X(CODE, what stands or should stand at the place).
#define KELSRC_JSON_FAULTS(X) \
    X(OBJECT_EXPECTED, "an object was expected") \
    X(VALUE_EXPECTED, "a JSON value was expected") \
    X(KEY_EXPECTED, "a key in quotes was expected") \
    X(COLON_EXPECTED, "\":\" was expected") \
    X(MEMBER_END_EXPECTED, "\",\" or \"}\" was expected") \
    X(ELEMENT_END_EXPECTED, "\",\" or \"]\" was expected") \
    X(TEXT_END_EXPECTED, "the text should end") \
    X(DIGIT_EXPECTED, "a digit was expected") \
    X(STRING_NOT_CLOSED, "a string without an end stands") \
    X(CONTROL_CHARACTER, "a control character in a string stands") \
    X(BAD_ESCAPE, "a wrong escape stands") \
    X(HALF_SURROGATE_PAIR, "half a surrogate pair stands") \
    X(NOT_UTF8, "a byte that is not UTF-8 stands") \
    X(NUMBER_TOO_LARGE, "a number that no double holds stands") \
    X(TOO_DEEP, "nesting deeper than readers follow")
// clang-format on

enum class JsonFault : std::uint8_t {
    NONE,
#define KELSRC_JSON_FAULT(name, sentence) name,
    KELSRC_JSON_FAULTS(KELSRC_JSON_FAULT)
#undef KELSRC_JSON_FAULT
};

/// What stands or should stand at the place of a fault; empty for NONE.
KELSRC_EXPORT const char* sentenceOf(JsonFault fault);

struct JsonCheck {
    JsonFault fault = JsonFault::NONE;
    std::size_t at = 0; ///< byte of the text

    explicit operator bool() const { return fault == JsonFault::NONE; }
};

/// Whether a text is exactly one JSON value (RFC 8259) in UTF-8, nested at most `maxDepth` deep (64 at most),
/// with numbers that a double holds. One pass, no tree, and no stack however deeply the text nests.
KELSRC_EXPORT JsonCheck checkJson(std::string_view text, std::size_t maxDepth = MAX_METADATA_DEPTH);

/// The same for one JSON object, which is appended to `out` without blanks and with numbers in the header's
/// form. What has been appended before a fault is found is of no use.
KELSRC_EXPORT JsonCheck appendCompactObject(std::string& out, std::string_view text, std::size_t maxDepth);

} // namespace kel::src::text
