#include <kel/src/text/JsonValues.h>

#include <kel/src/text/JsonCharacters.h>
#include <kel/src/text/Utf8.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>

namespace kel::src::text {

namespace {

/// Walks a text that is known to be JSON: it is a piece of a header that was checked as a whole, so all that
/// is left to do is to find where things end.
class KnownJson {
public:
    explicit KnownJson(std::string_view text) : text(text) { spaces(); }

    char peek() const { return at < text.size() ? text[at] : '\0'; }
    void take() {
        if (at < text.size()) ++at;
        spaces();
    }

    /// The string's text between its quotes.
    std::string_view rawString() {
        const std::size_t first = ++at;
        while (at < text.size() && text[at] != '"')
            at += text[at] == '\\' ? 2 : 1;
        const std::size_t last = std::min(at, text.size());
        take();
        return text.substr(first, last - first);
    }

    std::string_view value() {
        const std::size_t first = at;
        std::size_t depth = 0;
        while (at < text.size()) {
            const char c = text[at];
            if (c == '"') {
                rawString();
            } else if (c == '{' || c == '[') {
                ++depth;
                take();
            } else if (c == '}' || c == ']' || c == ',') {
                if (depth == 0) break;
                if (c != ',') --depth;
                take();
            } else {
                ++at;
                continue;
            }
            if (depth == 0) break;
        }
        std::size_t last = std::min(at, text.size());
        while (last > first && isJsonSpace(text[last - 1]))
            --last;
        return text.substr(first, last - first);
    }

private:
    void spaces() {
        while (at < text.size() && isJsonSpace(text[at]))
            ++at;
    }

    std::string_view text;
    std::size_t at = 0;
};

} // namespace

void appendUnescaped(std::string& target, std::string_view raw) {
    for (std::size_t at = 0; at < raw.size(); ++at) {
        if (raw[at] != '\\') {
            target += raw[at];
            continue;
        }
        ++at;
        if (raw[at] != 'u') {
            const std::size_t place = ESCAPE_LETTERS.find(raw[at]);
            target += place == std::string_view::npos ? raw[at] : ESCAPED_CHARACTERS[place];
            continue;
        }
        long code = codeUnitAt(raw, at + 1);
        at += 4;
        if (code >= 0xd800 && code < 0xe000) {
            const bool pairFollows = code < 0xdc00 && at + 6 < raw.size() && raw.substr(at + 1, 2) == "\\u";
            const long low = pairFollows ? codeUnitAt(raw, at + 3) : -1;
            if (low >= 0xdc00 && low < 0xe000) {
                code = 0x10000 + ((code - 0xd800) << 10) + (low - 0xdc00);
                at += 6;
            } else {
                code = 0xfffd;
            }
        }
        appendUtf8(target, static_cast<std::uint32_t>(code));
    }
}

bool parseJsonNumber(std::string_view number, double& value) {
    // The grammar first: from_chars also takes "01", ".5", "inf" and hexadecimal digits.
    const JsonNumberEnd end = jsonNumberEnd(number, 0);
    if (end.at != number.size() || !end.complete) return false;
    const bool negative = number[0] == '-';
    const std::size_t firstDigit = negative ? 1 : 0;
    if (firstDigit + end.wholeDigits == end.at && end.wholeDigits <= 15) { // what headers are mostly made of
        std::int64_t integer = 0;
        for (std::size_t i = firstDigit; i < end.at; ++i)
            integer = integer * 10 + (number[i] - '0');
        value = negative ? -static_cast<double>(integer) : static_cast<double>(integer);
        return true;
    }
    const auto result = std::from_chars(number.data(), number.data() + number.size(), value);
    if (result.ec == std::errc::result_out_of_range) {
        const std::size_t sign = number.find_first_of("+-", firstDigit);
        const bool tiny = sign == std::string_view::npos ? number[firstDigit] == '0' : number[sign] == '-';
        value = tiny ? 0.0 : std::numeric_limits<double>::infinity();
        if (negative) value = -value;
    }
    return true;
}

} // namespace kel::src::text

namespace kel::src {

std::vector<SrcMember> jsonMembers(std::string_view object) {
    std::vector<SrcMember> members;
    text::KnownJson json(object);
    if (json.peek() != '{') return members;
    json.take();
    while (json.peek() == '"') {
        SrcMember member;
        text::appendUnescaped(member.key, json.rawString());
        if (json.peek() != ':') break;
        json.take();
        member.json = json.value();
        members.push_back(std::move(member));
        if (json.peek() != ',') break;
        json.take();
    }
    const auto byKey = [](const SrcMember& a, const SrcMember& b) { return a.key < b.key; };
    const auto sameKey = [](const SrcMember& a, const SrcMember& b) { return a.key == b.key; };
    if (!std::is_sorted(members.begin(), members.end(), byKey) ||
        std::adjacent_find(members.begin(), members.end(), sameKey) != members.end()) {
        // Sorted backwards and stably, the last of equal keys is the first of its run.
        std::reverse(members.begin(), members.end());
        std::stable_sort(members.begin(), members.end(), byKey);
        members.erase(std::unique(members.begin(), members.end(), sameKey), members.end());
    }
    return members;
}

bool jsonNumbers(std::string_view list, std::vector<double>& numbers) {
    numbers.clear();
    text::KnownJson json(list);
    const auto number = [&] {
        double value = 0;
        if (!text::parseJsonNumber(json.value(), value) || !std::isfinite(value)) return false;
        numbers.push_back(value);
        return true;
    };
    if (json.peek() != '[') return number();
    json.take();
    while (json.peek() != ']') {
        if (!number()) {
            numbers.clear();
            return false;
        }
        if (json.peek() == ',') json.take();
    }
    return true;
}

bool jsonString(std::string_view json, std::string& result) {
    text::KnownJson known(json);
    if (known.peek() != '"') return false;
    result.clear();
    text::appendUnescaped(result, known.rawString());
    return true;
}

} // namespace kel::src
