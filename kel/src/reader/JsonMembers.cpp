#include <kel/src/SrcReader.h>
#include <kel/src/reader/HeaderText_p.h>

#include <algorithm>
#include <cmath>

namespace kel::src {

namespace {

bool isSpace(char c) {
    return c == ' ' || c == '\n' || c == '\r' || c == '\t';
}

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
        while (last > first && isSpace(text[last - 1]))
            --last;
        return text.substr(first, last - first);
    }

private:
    void spaces() {
        while (at < text.size() && isSpace(text[at]))
            ++at;
    }

    std::string_view text;
    std::size_t at = 0;
};

} // namespace

std::vector<SrcMember> jsonMembers(std::string_view object) {
    std::vector<SrcMember> members;
    KnownJson json(object);
    if (json.peek() != '{') return members;
    json.take();
    while (json.peek() == '"') {
        SrcMember member;
        detail::appendUnescaped(member.key, json.rawString());
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

bool jsonNumbers(std::string_view text, std::vector<double>& numbers) {
    numbers.clear();
    KnownJson json(text);
    const auto number = [&] {
        double value = 0;
        if (!detail::parseJsonNumber(json.value(), value) || !std::isfinite(value)) return false;
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

bool jsonString(std::string_view text, std::string& result) {
    KnownJson json(text);
    if (json.peek() != '"') return false;
    result.clear();
    detail::appendUnescaped(result, json.rawString());
    return true;
}

} // namespace kel::src
