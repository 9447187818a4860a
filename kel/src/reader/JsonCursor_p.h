#pragma once

#include <kel/src/text/JsonCharacters.h>

#include <simdjson.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace kel::src::detail {

/// Where and why a text is no JSON.
struct JsonSyntaxError {
    std::size_t position;
    std::string detail;
};

/// Where a text is nested deeper than allowed.
struct JsonTooDeep {
    std::size_t position;
};

/// A cursor over the tokens of a JSON text.
///
/// simdjson's first stage finds where every token begins, checks that the text is UTF-8, that strings are
/// closed and hold no control characters, all at several GB/s and without a byte of padding behind the text.
/// The second stage, which would build simdjson's own tree, is not used: what is wanted from a header is a
/// handful of known keys, the places of everything else, and an error that says where. So the grammar between
/// the tokens is checked here, by whoever walks, and no value is passed over unchecked.
///
/// Every operation that meets a fault throws JsonSyntaxError or JsonTooDeep. No operation reads outside the text.
class JsonCursor {
public:
    /// Finds the tokens. The text must outlive the cursor.
    JsonCursor(std::string_view text, std::uint32_t maxDepth);

    /// Bytes that the constructor takes for a text of this length.
    static std::uint64_t memoryFor(std::uint64_t textBytes) { return 4 * textBytes + 4096; }

    /// The first character of the next token: one of {}[]:," or that of a number, true, false or null.
    char peek() const { return next < count ? text[starts[next]] : '\0'; }
    /// Where the next token begins.
    std::size_t position() const { return next < count ? starts[next] : text.size(); }

    bool numberIsNext() const { return peek() == '-' || text::isDigit(peek()); }

    /// Walks the members of the object that is next: `member(key)` is called behind each colon and must
    /// consume the value. The key is as it stands, escapes and all, without its quotes.
    template<typename Member>
    void object(Member&& member) {
        enclosed('}', "expected a comma or a closing brace", [&] {
            const std::string_view key = rawString();
            if (peek() != ':') fail("expected a colon");
            ++next;
            member(key);
        });
    }

    /// Walks the elements of the list that is next: `element()` must consume one value.
    template<typename Element>
    void list(Element&& element) {
        enclosed(']', "expected a comma or a closing bracket", element);
    }

    /// The string that is next, as it stands between its quotes. Its escapes are checked.
    std::string_view rawString();
    /// The number that is next; infinite when a double cannot hold it.
    double number();
    /// Consumes any value, checks it, and returns its text.
    std::string_view skip();
    /// Nothing may follow the last value.
    void expectEnd() const;

private:
    /// Walks what stands up to `close`, with commas between.
    template<typename Item>
    void enclosed(char close, const char* otherwise, Item&& item) {
        if (depth == maxDepth) throw JsonTooDeep{position()};
        ++depth;
        ++next;
        if (peek() != close) {
            for (item(); peek() != close; item()) {
                if (peek() != ',') fail(otherwise);
                ++next;
            }
        }
        --depth;
        ++next;
    }
    [[noreturn]] void fail(const char* what) const;
    void skipValue();
    /// The text of the tokens from the one at `first` to the one that is next or, for `ahead`, behind that.
    std::string_view textFrom(std::size_t first, std::uint32_t ahead) const;

    std::string_view text;
    std::unique_ptr<simdjson::internal::dom_parser_implementation> parser;
    const std::uint32_t* starts = nullptr;
    std::uint32_t count = 0;
    std::uint32_t next = 0;
    std::uint32_t depth = 0;
    std::uint32_t maxDepth;
};

} // namespace kel::src::detail
