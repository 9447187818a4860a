#include <kel/src/text/JsonScanner.h>

#include <kel/src/text/JsonCharacters.h>
#include <kel/src/text/JsonWriter.h>
#include <kel/src/text/Utf8.h>

#include <charconv>

namespace kel::src::text {

namespace {

class Scanner {
public:
    /// out  takes the text without blanks; may be null
    Scanner(std::string_view text, std::size_t maxDepth, std::string* out)
        : text(text), maxDepth(maxDepth), out(out) {}

    JsonCheck scan(bool objectExpected) {
        skipBlanks();
        if (objectExpected && peek() != '{') {
            fail(JsonFault::OBJECT_EXPECTED);
            return result;
        }
        bool inValue = true; // else behind one
        while (result && (inValue || depth != 0)) {
            skipBlanks();
            inValue = inValue ? readValue() : readSeparator();
        }
        skipBlanks();
        if (at != text.size()) fail(JsonFault::TEXT_END_EXPECTED);
        return result;
    }

private:
    char peek() const { return at < text.size() ? text[at] : '\0'; }

    void skipBlanks() {
        while (at < text.size() && isJsonSpace(text[at]))
            ++at;
    }

    /// The first fault counts.
    bool fail(JsonFault fault) {
        if (result) result = {fault, at};
        return false;
    }

    void take() {
        if (out) *out += text[at];
        ++at;
    }

    /// At the start of a value. Returns whether another value starts at once, inside this one.
    bool readValue() {
        switch (peek()) {
        case '{':
            return open(true) && readKey();
        case '[':
            return open(false);
        case '"':
            readString();
            return false;
        case 't':
            return readWord("true");
        case 'f':
            return readWord("false");
        case 'n':
            return readWord("null");
        default:
            readNumber();
            return false;
        }
    }

    /// Returns whether something stands in the object or array.
    bool open(bool object) {
        if (depth == maxDepth) return fail(JsonFault::TOO_DEEP);
        objects = object ? objects | bit() : objects & ~bit();
        ++depth;
        take();
        skipBlanks();
        if (peek() != (object ? '}' : ']')) return true;
        --depth;
        take();
        return false;
    }

    /// Behind a value, inside an object or array. Returns whether another value follows.
    bool readSeparator() {
        --depth; // to look at the bit of the innermost
        const bool inObject = (objects & bit()) != 0;
        if (peek() == ',') {
            ++depth;
            take();
            skipBlanks();
            return !inObject || readKey();
        }
        if (peek() != (inObject ? '}' : ']'))
            return fail(inObject ? JsonFault::MEMBER_END_EXPECTED : JsonFault::ELEMENT_END_EXPECTED);
        take();
        return false;
    }

    std::uint64_t bit() const { return std::uint64_t(1) << depth; }

    bool readKey() {
        if (peek() != '"') return fail(JsonFault::KEY_EXPECTED);
        if (!readString()) return false;
        skipBlanks();
        if (peek() != ':') return fail(JsonFault::COLON_EXPECTED);
        take();
        return true;
    }

    bool readWord(std::string_view expected) {
        if (text.substr(at, expected.size()) != expected) return fail(JsonFault::VALUE_EXPECTED);
        at += expected.size();
        if (out) *out += expected;
        return false;
    }

    bool readNumber() {
        const std::size_t from = at;
        const JsonNumberEnd end = jsonNumberEnd(text, from);
        if (end.wholeDigits == 0) return fail(JsonFault::VALUE_EXPECTED);
        at = end.at;
        if (!end.complete) return fail(JsonFault::DIGIT_EXPECTED);
        double parsed = 0.0;
        if (std::from_chars(text.data() + from, text.data() + at, parsed).ec != std::errc()) {
            at = from;
            return fail(JsonFault::NUMBER_TOO_LARGE);
        }
        if (out) appendJsonNumber(*out, parsed);
        return true;
    }

    bool readEscape() {
        const char letter = at + 1 < text.size() ? text[at + 1] : '\0';
        if (ESCAPE_LETTERS.find(letter) != std::string_view::npos) {
            at += 2;
            return true;
        }
        const long unit = letter == 'u' ? codeUnitAt(text, at + 2) : -1;
        if (unit < 0 || (unit >= 0xdc00 && unit <= 0xdfff)) return fail(JsonFault::BAD_ESCAPE);
        if (unit >= 0xd800 && unit <= 0xdbff) {
            const long low = text.substr(at + 6, 2) == "\\u" ? codeUnitAt(text, at + 8) : -1;
            if (low < 0xdc00 || low > 0xdfff) return fail(JsonFault::HALF_SURROGATE_PAIR);
            at += 6;
        }
        at += 6;
        return true;
    }

    bool readString() {
        const std::size_t from = at++;
        for (;;) {
            if (at >= text.size()) return fail(JsonFault::STRING_NOT_CLOSED);
            const auto c = static_cast<unsigned char>(text[at]);
            if (c == '"') break;
            if (c < 0x20) return fail(JsonFault::CONTROL_CHARACTER);
            if (c == '\\') {
                if (!readEscape()) return false;
            } else if (c < 0x80) {
                ++at;
            } else {
                const std::size_t length = utf8SequenceAt(text.substr(at)).length;
                if (length == 0) return fail(JsonFault::NOT_UTF8);
                at += length;
            }
        }
        ++at;
        if (out) out->append(text, from, at - from);
        return true;
    }

    std::string_view text;
    std::size_t maxDepth;
    std::string* out;
    std::size_t at = 0;
    std::size_t depth = 0;
    std::uint64_t objects = 0; ///< bit i: whether the i-th of those open is an object
    JsonCheck result;
};

} // namespace

const char* sentenceOf(JsonFault fault) {
    static constexpr const char* SENTENCES[] = {"",
#define KELSRC_JSON_FAULT(name, sentence) sentence,
                                                KELSRC_JSON_FAULTS(KELSRC_JSON_FAULT)
#undef KELSRC_JSON_FAULT
    };
    return SENTENCES[static_cast<std::size_t>(fault)];
}

JsonCheck checkJson(std::string_view text, std::size_t maxDepth) {
    return Scanner(text, maxDepth, nullptr).scan(false);
}

JsonCheck appendCompactObject(std::string& out, std::string_view text, std::size_t maxDepth) {
    return Scanner(text, maxDepth, &out).scan(true);
}

} // namespace kel::src::text
