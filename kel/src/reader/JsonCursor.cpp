#include <kel/src/reader/JsonCursor_p.h>

#include <kel/src/text/JsonCharacters.h>
#include <kel/src/text/JsonValues.h>

#include <simdjson.h>

#include <new>

namespace kel::src::detail {

using text::hexValue;
using text::isJsonSpace;

struct JsonCursor::Tokens {
    std::unique_ptr<simdjson::internal::dom_parser_implementation> parser;
};

JsonCursor::JsonCursor(std::string_view text, std::uint32_t maxDepth)
    : text(text), tokens(std::make_unique<Tokens>()), maxDepth(maxDepth) {
    if (text.size() > simdjson::SIMDJSON_MAXSIZE_BYTES) throw JsonSyntaxError{0, "longer than 4 GiB"};
    const auto created = simdjson::get_active_implementation()->create_dom_parser_implementation(
        text.size(), 1, tokens->parser);
    if (created != simdjson::SUCCESS) throw std::bad_alloc();
    const auto found = tokens->parser->stage1(reinterpret_cast<const std::uint8_t*>(text.data()), text.size(),
                                              simdjson::stage1_mode::regular);
    if (found != simdjson::SUCCESS) throw JsonSyntaxError{0, simdjson::error_message(found)};
    starts = tokens->parser->structural_indexes.get();
    count = tokens->parser->n_structural_indexes;
}

JsonCursor::~JsonCursor() = default;

void JsonCursor::fail(const char* what) const {
    if (next >= count) throw JsonSyntaxError{text.size(), std::string(what) + ", found the end"};
    throw JsonSyntaxError{position(), what};
}

void JsonCursor::enter() {
    if (depth == maxDepth) throw JsonTooDeep{position()};
    ++depth;
    ++next;
}

void JsonCursor::leave() {
    --depth;
    ++next;
}

std::string_view JsonCursor::rawString() {
    if (peek() != '"') fail("expected a string");
    const std::size_t first = position() + 1;
    // A closing quote is known to be there, but not that it belongs to this token, so the end is still
    // minded.
    for (std::size_t at = first; at < text.size(); ++at) {
        if (text[at] == '"') {
            ++next;
            return text.substr(first, at - first);
        }
        if (text[at] != '\\') continue;
        ++at;
        const char escaped = at < text.size() ? text[at] : '\0';
        if (escaped == 'u') {
            for (int digit = 0; digit < 4; ++digit) {
                ++at;
                if (at >= text.size() || hexValue(text[at]) < 0)
                    throw JsonSyntaxError{at, "expected a hexadecimal digit"};
            }
        } else if (std::string_view("\"\\/bfnrt").find(escaped) == std::string_view::npos) {
            throw JsonSyntaxError{at, "unknown escape in a string"};
        }
    }
    fail("a string is not closed");
}

std::string_view JsonCursor::scalar() {
    const std::size_t first = position();
    std::size_t last = next + 1 < count ? starts[next + 1] : text.size();
    while (last > first && isJsonSpace(text[last - 1]))
        --last;
    return text.substr(first, last - first);
}

double JsonCursor::number() {
    double value = 0;
    if (!text::parseJsonNumber(scalar(), value)) fail("expected a number");
    ++next;
    return value;
}

std::string_view JsonCursor::skip() {
    const std::size_t first = position();
    skipValue();
    std::size_t last = position();
    while (last > first && isJsonSpace(text[last - 1]))
        --last;
    return text.substr(first, last - first);
}

void JsonCursor::skipValue() {
    switch (peek()) {
    case '{':
        object([&](std::string_view) { skipValue(); });
        break;
    case '[':
        list([&] { skipValue(); });
        break;
    case '"':
        rawString();
        break;
    case '-':
    case '0':
    case '1':
    case '2':
    case '3':
    case '4':
    case '5':
    case '6':
    case '7':
    case '8':
    case '9':
        number();
        break;
    default: {
        const std::string_view word = next < count ? scalar() : std::string_view();
        if (word != "true" && word != "false" && word != "null") fail("expected a value");
        ++next;
    }
    }
}

void JsonCursor::expectEnd() const {
    if (next != count) fail("expected nothing more");
}

} // namespace kel::src::detail
