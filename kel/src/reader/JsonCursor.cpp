#include <kel/src/reader/JsonCursor_p.h>

#include <kel/src/text/JsonValues.h>

#include <new>

namespace kel::src::detail {

JsonCursor::JsonCursor(std::string_view text, std::uint32_t maxDepth) : text(text), maxDepth(maxDepth) {
    if (text.size() > simdjson::SIMDJSON_MAXSIZE_BYTES) throw JsonSyntaxError{0, "longer than 4 GiB"};
    const auto created =
        simdjson::get_active_implementation()->create_dom_parser_implementation(text.size(), 1, parser);
    if (created != simdjson::SUCCESS) throw std::bad_alloc();
    const auto found = parser->stage1(reinterpret_cast<const std::uint8_t*>(text.data()), text.size(),
                                      simdjson::stage1_mode::regular);
    if (found != simdjson::SUCCESS) throw JsonSyntaxError{0, simdjson::error_message(found)};
    starts = parser->structural_indexes.get();
    count = parser->n_structural_indexes;
}

void JsonCursor::fail(const char* what) const {
    if (next >= count) throw JsonSyntaxError{text.size(), std::string(what) + ", found the end"};
    throw JsonSyntaxError{position(), what};
}

std::string_view JsonCursor::rawString() {
    if (peek() != '"') fail("expected a string");
    const std::size_t first = position() + 1;
    // A closing quote is known to be there, but not that it belongs to this token, so the end is still minded.
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
                if (at >= text.size() || text::hexValue(text[at]) < 0)
                    throw JsonSyntaxError{at, "expected a hexadecimal digit"};
            }
        } else if (std::string_view("\"\\/bfnrt").find(escaped) == std::string_view::npos) {
            throw JsonSyntaxError{at, "unknown escape in a string"};
        }
    }
    fail("a string is not closed");
}

std::string_view JsonCursor::textFrom(std::size_t first, std::uint32_t ahead) const {
    std::size_t last = next + ahead < count ? starts[next + ahead] : text.size();
    while (last > first && text::isJsonSpace(text[last - 1]))
        --last;
    return text.substr(first, last - first);
}

double JsonCursor::number() {
    double value = 0;
    if (!text::parseJsonNumber(textFrom(position(), 1), value)) fail("expected a number");
    ++next;
    return value;
}

std::string_view JsonCursor::skip() {
    const std::size_t first = position();
    skipValue();
    return textFrom(first, 0);
}

void JsonCursor::skipValue() {
    const char first = peek();
    if (first == '{') return object([&](std::string_view) { skipValue(); });
    if (first == '[') return list([&] { skipValue(); });
    if (first == '"') return static_cast<void>(rawString());
    if (numberIsNext()) return static_cast<void>(number());
    const std::string_view word = textFrom(position(), 1); // empty at the end
    if (word != "true" && word != "false" && word != "null") fail("expected a value");
    ++next;
}

void JsonCursor::expectEnd() const {
    if (next != count) fail("expected nothing more");
}

} // namespace kel::src::detail
