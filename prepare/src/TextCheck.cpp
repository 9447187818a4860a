#include "TextCheck.h"

#include <kel/src/json/MetadataText.h>

#include <charconv>

namespace kel::prepare::detail {

namespace {

class JsonScanner {
public:
    explicit JsonScanner(std::string_view text) : text(text) {}

    JsonCheck check() {
        bool inValue = true; // else behind one
        while (inValue || !open.empty()) {
            skipSpace();
            inValue = inValue ? readValue() : readSeparator();
            if (fault != JsonFault::NONE) return {fault, at};
        }
        skipSpace();
        if (at != text.size()) return {JsonFault::SYNTAX, at};
        return {};
    }

private:
    int peek() const { return at < text.size() ? static_cast<unsigned char>(text[at]) : -1; }

    void skipSpace() {
        while (peek() == ' ' || peek() == '\t' || peek() == '\n' || peek() == '\r')
            ++at;
    }

    bool fail(JsonFault which) {
        fault = which;
        return false;
    }

    bool take(char expected) {
        if (peek() != expected) return fail(JsonFault::SYNTAX);
        ++at;
        return true;
    }

    /// At the start of a value. Returns whether another value starts at once, inside this one.
    bool readValue() {
        const int first = peek();
        if (first == '{' || first == '[') {
            if (open.size() == kel::src::detail::MAX_METADATA_DEPTH) return fail(JsonFault::DEPTH);
            open += static_cast<char>(first);
            ++at;
            skipSpace();
            if (peek() == (first == '{' ? '}' : ']')) {
                open.pop_back();
                ++at;
                return false;
            }
            return first == '[' || readKey();
        }
        if (first == '"') {
            readString();
        } else if (first == '-' || isDigit(first)) {
            readNumber();
        } else {
            readWord();
        }
        return false;
    }

    /// Behind a value, inside an object or array. Returns whether another value follows.
    bool readSeparator() {
        const bool inObject = open.back() == '{';
        if (peek() == ',') {
            ++at;
            skipSpace();
            return !inObject || readKey();
        }
        if (take(inObject ? '}' : ']')) open.pop_back();
        return false;
    }

    bool readKey() {
        if (peek() != '"') return fail(JsonFault::SYNTAX);
        if (!readString()) return false;
        skipSpace();
        return take(':');
    }

    bool readString() {
        ++at;
        for (;;) {
            const int c = peek();
            if (c < ' ') return fail(JsonFault::SYNTAX); // the end of the text too
            ++at;
            if (c == '"') return true;
            if (c == '\\' && !readEscape()) return false;
        }
    }

    bool readEscape() {
        const int c = peek();
        if (c == 'u') {
            ++at;
            const int unit = readHex();
            if (unit < 0 || (unit >= 0xdc00 && unit <= 0xdfff)) return fail(JsonFault::SYNTAX);
            if (unit < 0xd800 || unit > 0xdbff) return true;
            if (!take('\\') || !take('u')) return false; // the other half of a pair
            const int second = readHex();
            return (second >= 0xdc00 && second <= 0xdfff) || fail(JsonFault::SYNTAX);
        }
        if (c < 0 || std::string_view("\"\\/bfnrt").find(static_cast<char>(c)) == std::string_view::npos) {
            return fail(JsonFault::SYNTAX);
        }
        ++at;
        return true;
    }

    int readHex() {
        int value = 0;
        if (text.size() - at < 4) return -1;
        const auto end = std::from_chars(text.data() + at, text.data() + at + 4, value, 16);
        if (end.ptr != text.data() + at + 4 || text[at] == '-') return -1;
        at += 4;
        return value;
    }

    static bool isDigit(int c) { return c >= '0' && c <= '9'; }

    bool readDigits() {
        if (!isDigit(peek())) return fail(JsonFault::SYNTAX);
        while (isDigit(peek()))
            ++at;
        return true;
    }

    void readNumber() {
        const std::size_t begin = at;
        if (peek() == '-') ++at;
        if (peek() == '0') {
            ++at;
        } else if (!readDigits()) {
            return;
        }
        if (peek() == '.') {
            ++at;
            if (!readDigits()) return;
        }
        if (peek() == 'e' || peek() == 'E') {
            ++at;
            if (peek() == '+' || peek() == '-') ++at;
            if (!readDigits()) return;
        }
        double value = 0.0;
        if (std::from_chars(text.data() + begin, text.data() + at, value).ec != std::errc()) {
            at = begin;
            fail(JsonFault::NUMBER);
        }
    }

    void readWord() {
        for (const std::string_view word : {"null", "true", "false"}) {
            if (text.substr(at, word.size()) == word) {
                at += word.size();
                return;
            }
        }
        fail(JsonFault::SYNTAX);
    }

    std::string_view text;
    std::size_t at = 0;
    std::string open; ///< the brackets not closed yet
    JsonFault fault = JsonFault::NONE;
};

} // namespace

JsonCheck checkJson(std::string_view text) {
    return JsonScanner(text).check();
}

picojson::value parseChecked(const std::string& text) {
    picojson::value value;
    if (checkJson(text).fault == JsonFault::NONE) picojson::parse(value, text);
    return value;
}

std::size_t firstNonUtf8(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t length = kel::src::detail::utf8SequenceAt(text.substr(i)).length;
        if (length == 0) return i;
        i += length;
    }
    return text.size();
}

} // namespace kel::prepare::detail
