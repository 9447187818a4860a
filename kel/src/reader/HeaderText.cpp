#include <kel/src/reader/HeaderText_p.h>

#include <simdjson.h>

#include <charconv>
#include <limits>
#include <new>

namespace kel::src::detail {

namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isSpace(char c) {
    return c == ' ' || c == '\n' || c == '\r' || c == '\t';
}

int hexValue(char c) {
    if (isDigit(c)) return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

/// The four hexadecimal digits at `at`, which are known to be there.
std::uint32_t codeUnit(std::string_view text, std::size_t at) {
    std::uint32_t unit = 0;
    for (std::size_t i = at; i < at + 4; ++i)
        unit = unit << 4 | static_cast<std::uint32_t>(hexValue(text[i]));
    return unit;
}

void appendUtf8(std::string& target, std::uint32_t code) {
    const auto put = [&](std::uint32_t byte) { target += static_cast<char>(byte); };
    if (code < 0x80) {
        put(code);
    } else if (code < 0x800) {
        put(0xc0 | code >> 6);
        put(0x80 | (code & 0x3f));
    } else if (code < 0x10000) {
        put(0xe0 | code >> 12);
        put(0x80 | (code >> 6 & 0x3f));
        put(0x80 | (code & 0x3f));
    } else {
        put(0xf0 | code >> 18);
        put(0x80 | (code >> 12 & 0x3f));
        put(0x80 | (code >> 6 & 0x3f));
        put(0x80 | (code & 0x3f));
    }
}

} // namespace

struct HeaderText::Tokens {
    std::unique_ptr<simdjson::internal::dom_parser_implementation> parser;
};

HeaderText::HeaderText(std::string_view text, std::uint32_t maxDepth)
    : text(text), tokens(std::make_unique<Tokens>()), maxDepth(maxDepth) {
    if (text.size() > simdjson::SIMDJSON_MAXSIZE_BYTES) throw JsonFault{0, "longer than 4 GiB"};
    const auto created = simdjson::get_active_implementation()->create_dom_parser_implementation(
        text.size(), 1, tokens->parser);
    if (created != simdjson::SUCCESS) throw std::bad_alloc();
    const auto found = tokens->parser->stage1(reinterpret_cast<const std::uint8_t*>(text.data()), text.size(),
                                              simdjson::stage1_mode::regular);
    if (found != simdjson::SUCCESS) throw JsonFault{0, simdjson::error_message(found)};
    starts = tokens->parser->structural_indexes.get();
    count = tokens->parser->n_structural_indexes;
}

HeaderText::~HeaderText() = default;

void HeaderText::fail(const char* what) const {
    if (next >= count) throw JsonFault{text.size(), std::string(what) + ", found the end"};
    throw JsonFault{position(), what};
}

void HeaderText::enter() {
    if (depth == maxDepth) throw JsonTooDeep{position()};
    ++depth;
    ++next;
}

void HeaderText::leave() {
    --depth;
    ++next;
}

std::string_view HeaderText::rawString() {
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
                    throw JsonFault{at, "expected a hexadecimal digit"};
            }
        } else if (std::string_view("\"\\/bfnrt").find(escaped) == std::string_view::npos) {
            throw JsonFault{at, "unknown escape in a string"};
        }
    }
    fail("a string is not closed");
}

std::string_view HeaderText::scalar() {
    const std::size_t first = position();
    std::size_t last = next + 1 < count ? starts[next + 1] : text.size();
    while (last > first && isSpace(text[last - 1]))
        --last;
    return text.substr(first, last - first);
}

double HeaderText::number() {
    double value = 0;
    if (!parseJsonNumber(scalar(), value)) fail("expected a number");
    ++next;
    return value;
}

std::string_view HeaderText::skip() {
    const std::size_t first = position();
    skipValue();
    std::size_t last = position();
    while (last > first && isSpace(text[last - 1]))
        --last;
    return text.substr(first, last - first);
}

void HeaderText::skipValue() {
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

void HeaderText::expectEnd() const {
    if (next != count) fail("expected nothing more");
}

void appendUnescaped(std::string& target, std::string_view raw) {
    for (std::size_t at = 0; at < raw.size(); ++at) {
        if (raw[at] != '\\') {
            target += raw[at];
            continue;
        }
        ++at;
        switch (raw[at]) {
        case 'b':
            target += '\b';
            break;
        case 'f':
            target += '\f';
            break;
        case 'n':
            target += '\n';
            break;
        case 'r':
            target += '\r';
            break;
        case 't':
            target += '\t';
            break;
        case 'u': {
            std::uint32_t code = codeUnit(raw, at + 1);
            at += 4;
            if (code >= 0xd800 && code < 0xe000) {
                const bool pairFollows =
                    code < 0xdc00 && at + 6 < raw.size() && raw[at + 1] == '\\' && raw[at + 2] == 'u';
                const std::uint32_t low = pairFollows ? codeUnit(raw, at + 3) : 0;
                if (low >= 0xdc00 && low < 0xe000) {
                    code = 0x10000 + ((code - 0xd800) << 10) + (low - 0xdc00);
                    at += 6;
                } else {
                    code = 0xfffd;
                }
            }
            appendUtf8(target, code);
            break;
        }
        default:
            target += raw[at];
        }
    }
}

bool parseJsonNumber(std::string_view number, double& value) {
    // The grammar first: from_chars also takes "01", ".5", "inf" and hexadecimal digits.
    std::size_t at = 0;
    const auto digits = [&] {
        const std::size_t first = at;
        while (at < number.size() && isDigit(number[at]))
            ++at;
        return at - first;
    };
    const bool negative = !number.empty() && number[0] == '-';
    if (negative) ++at;
    const std::size_t firstDigit = at;
    const std::size_t whole = digits();
    if (whole == 0 || (whole > 1 && number[firstDigit] == '0')) return false;
    if (at == number.size() && whole <= 15) { // what headers are mostly made of
        std::int64_t integer = 0;
        for (std::size_t i = firstDigit; i < at; ++i)
            integer = integer * 10 + (number[i] - '0');
        value = negative ? -static_cast<double>(integer) : static_cast<double>(integer);
        return true;
    }
    if (at < number.size() && number[at] == '.') {
        ++at;
        if (digits() == 0) return false;
    }
    bool tiny = whole == 1 && number[firstDigit] == '0';
    if (at < number.size() && (number[at] == 'e' || number[at] == 'E')) {
        ++at;
        if (at < number.size() && (number[at] == '+' || number[at] == '-')) {
            tiny = number[at] == '-';
            ++at;
        }
        if (digits() == 0) return false;
    }
    if (at != number.size()) return false;
    const auto result = std::from_chars(number.data(), number.data() + number.size(), value);
    if (result.ec == std::errc::result_out_of_range) {
        value = tiny ? 0.0 : std::numeric_limits<double>::infinity();
        if (negative) value = -value;
    }
    return true;
}

} // namespace kel::src::detail
