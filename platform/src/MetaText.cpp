#include "MetaText_p.h"

#include <kel/src/json/JsonText.h>
#include <kel/src/json/MetadataText.h>

#include <charconv>
#include <cstdint>

namespace src {

namespace {

/// The object around the metadata's own texts is one level more.
constexpr std::size_t MAX_DEPTH = kel::src::detail::MAX_METADATA_DEPTH + 1;

/// Bytes of the UTF-8 sequence at `i`, or 0 where none is.
std::size_t utf8Length(std::string_view text, std::size_t i) {
    return kel::src::detail::utf8SequenceAt(text.substr(i)).length;
}

class Compactor {
public:
    Compactor(std::string_view text, std::string& out) : text(text), out(out) {}

    std::optional<JsonFault> run() {
        skipBlanks();
        if (peek() != '{') {
            fail("an object was expected");
        } else if (value(0)) {
            skipBlanks();
            if (at != text.size()) fail("the text should end");
        }
        return fault;
    }

private:
    char peek() const { return at < text.size() ? text[at] : '\0'; }

    bool fail(const char* what) {
        if (!fault) fault = JsonFault{at, what};
        return false;
    }

    void skipBlanks() {
        while (at < text.size() &&
               (text[at] == ' ' || text[at] == '\t' || text[at] == '\n' || text[at] == '\r'))
            ++at;
    }

    bool value(std::size_t depth) {
        switch (peek()) {
        case '{':
            return list(depth, '}', &Compactor::member);
        case '[':
            return list(depth, ']', &Compactor::element);
        case '"':
            return string();
        case 't':
            return word("true");
        case 'f':
            return word("false");
        case 'n':
            return word("null");
        default:
            return number();
        }
    }

    bool list(std::size_t depth, char close, bool (Compactor::*entry)(std::size_t)) {
        if (depth == MAX_DEPTH) return fail("nesting deeper than readers follow");
        out += text[at++];
        skipBlanks();
        if (peek() != close) {
            for (;;) {
                if (!(this->*entry)(depth + 1)) return false;
                skipBlanks();
                if (peek() != ',') break;
                out += text[at++];
                skipBlanks();
            }
            if (peek() != close)
                return fail(close == '}' ? "\",\" or \"}\" was expected" : "\",\" or \"]\" was expected");
        }
        out += text[at++];
        return true;
    }

    bool member(std::size_t depth) {
        if (peek() != '"') return fail("a key in quotes was expected");
        if (!string()) return false;
        skipBlanks();
        if (peek() != ':') return fail("\":\" was expected");
        out += text[at++];
        return element(depth);
    }

    bool element(std::size_t depth) {
        skipBlanks();
        return value(depth);
    }

    bool word(std::string_view expected) {
        if (text.substr(at, expected.size()) != expected) return fail("a JSON value was expected");
        at += expected.size();
        out += expected;
        return true;
    }

    bool digits() {
        const std::size_t from = at;
        while (peek() >= '0' && peek() <= '9')
            ++at;
        return at != from;
    }

    bool number() {
        const std::size_t from = at;
        if (peek() == '-') ++at;
        if (peek() == '0') {
            ++at;
        } else if (!digits()) {
            at = from;
            return fail("a JSON value was expected");
        }
        if (peek() == '.') {
            ++at;
            if (!digits()) return fail("a digit was expected");
        }
        if (peek() == 'e' || peek() == 'E') {
            ++at;
            if (peek() == '+' || peek() == '-') ++at;
            if (!digits()) return fail("a digit was expected");
        }
        double parsed = 0.0;
        if (std::from_chars(text.data() + from, text.data() + at, parsed).ec != std::errc()) {
            at = from;
            return fail("a number that no double holds stands");
        }
        kel::src::detail::appendJsonNumber(out, parsed);
        return true;
    }

    /// The four digits of an escape \uXXXX, -1 where they are not.
    long codeUnit(std::size_t from) const {
        const std::string_view hex = text.substr(from < text.size() ? from : text.size(), 4);
        unsigned unit = 0;
        const auto end = std::from_chars(hex.data(), hex.data() + hex.size(), unit, 16);
        return hex.size() == 4 && end.ptr == hex.data() + 4 ? static_cast<long>(unit) : -1;
    }

    bool escape() {
        switch (at + 1 < text.size() ? text[at + 1] : '\0') {
        case '"':
        case '\\':
        case '/':
        case 'b':
        case 'f':
        case 'n':
        case 'r':
        case 't':
            at += 2;
            return true;
        case 'u': {
            const long unit = codeUnit(at + 2);
            if (unit < 0 || (unit >= 0xdc00 && unit <= 0xdfff)) return fail("a wrong escape stands");
            if (unit >= 0xd800 && unit <= 0xdbff) {
                const long low = text.substr(at + 6, 2) == "\\u" ? codeUnit(at + 8) : -1;
                if (low < 0xdc00 || low > 0xdfff) return fail("half a surrogate pair stands");
                at += 6;
            }
            at += 6;
            return true;
        }
        default:
            return fail("a wrong escape stands");
        }
    }

    bool string() {
        const std::size_t from = at++;
        for (;;) {
            if (at >= text.size()) return fail("a string without an end stands");
            const auto c = static_cast<unsigned char>(text[at]);
            if (c == '"') break;
            if (c < 0x20) return fail("a control character in a string stands");
            if (c == '\\') {
                if (!escape()) return false;
            } else {
                const std::size_t length = utf8Length(text, at);
                if (length == 0) return fail("a byte that is not UTF-8 stands");
                at += length;
            }
        }
        ++at;
        out.append(text, from, at - from);
        return true;
    }

    std::string_view text;
    std::string& out;
    std::size_t at = 0;
    std::optional<JsonFault> fault;
};

} // namespace

std::optional<JsonFault> appendCompactJsonObject(std::string_view text, std::string& out) {
    return Compactor(text, out).run();
}

std::string validUtf8(std::string_view text) {
    std::string valid;
    valid.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const auto sequence = kel::src::detail::utf8SequenceAt(text.substr(i));
        if (sequence.length == 0) {
            valid += "\xef\xbf\xbd";
            i += sequence.broken;
        } else {
            valid.append(text, i, sequence.length);
            i += sequence.length;
        }
    }
    return valid;
}

} // namespace src
