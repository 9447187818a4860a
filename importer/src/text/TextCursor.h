#pragma once

#include "../ModelSource.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

namespace kel::importer::detail {

/// Walks over the words and numbers of a text. Numbers are read as the floating point numbers nearest to
/// them, whatever the locale.
class TextCursor {
public:
    /// joinsLines  whether a backslash at the end of a line joins it and the next
    TextCursor(const char* first, const char* last, const ModelSource& source, bool joinsLines = false)
        : first(first), at(first), last(last), source(source), joinsLines(joinsLines) {}

    bool atEnd() const { return at == last; }
    /// The next character; not at the end.
    char peek() const { return *at; }
    std::size_t offset() const { return static_cast<std::size_t>(at - first); }
    /// Goes to a place that offset() told.
    void moveTo(std::size_t offset) { at = first + offset; }

    /// Skips the mark that some editors put before UTF-8.
    void skipByteOrderMark() {
        if (std::string_view(at, static_cast<std::size_t>(last - at)).substr(0, 3) == "\xEF\xBB\xBF") at += 3;
    }
    /// Skips blanks, and ends of lines that are joined.
    void skipBlanks() {
        while (at != last) {
            if (*at == ' ' || *at == '\t' || *at == '\r' || *at == '\v' || *at == '\f') {
                ++at;
            } else if (const std::size_t joint = lineJoint()) {
                at += joint;
            } else {
                return;
            }
        }
    }
    /// Whether the line holds nothing more but a comment; skips blanks.
    bool atLineEnd() {
        skipBlanks();
        return at == last || *at == '\n' || *at == '#';
    }
    /// To the start of the next line.
    void skipLine() {
        while (at != last) {
            const auto left = static_cast<std::size_t>(last - at);
            const std::size_t stop = std::min(std::string_view(at, left).find('\n'), left - 1);
            const bool joined = at[stop] == '\n' && isJoined(at + stop);
            at += stop + 1;
            if (!joined) return;
        }
    }
    /// Skips blanks and line ends.
    void skipSpace() {
        while (at != last && (static_cast<unsigned char>(*at) <= ' '))
            ++at;
    }
    /// Up to the next blank or line end; skips blanks before.
    std::string_view word() {
        skipBlanks();
        const char* begin = at;
        while (at != last && !isSeparator(*at) && lineJoint() == 0)
            ++at;
        return {begin, static_cast<std::size_t>(at - begin)};
    }
    /// What is left of the line, without blanks around it.
    std::string_view restOfLine() {
        skipBlanks();
        const char* begin = at;
        while (at != last && *at != '\n')
            ++at;
        const char* end = at;
        while (end != begin && isSeparator(end[-1]))
            --end;
        return {begin, static_cast<std::size_t>(end - begin)};
    }
    /// Whether this is the next character, which is passed then.
    bool take(char c) {
        if (at == last || *at != c) return false;
        ++at;
        return true;
    }
    bool atSeparator() const { return at == last || isSeparator(*at) || lineJoint() != 0; }

    /// A number, right here. "nan" and "inf" are ones, in all their spellings.
    ///
    /// throws  ImportError
    template<typename Number>
    Number number() {
        const char* begin = at;
        at += at != last && *at == '+';
        Number value{};
        const auto [end, failure] = std::from_chars(at, last, value);
        at = end;
        if (failure == std::errc{} && atSeparator()) return value;
        at = begin;
        return oddNumber<Number>();
    }

    /// The number that the word here begins with; 0 where it does not.
    template<typename Number>
    Number leadingNumber() {
        Number value{};
        at += at != last && *at == '+';
        std::from_chars(at, last, value);
        word();
        return value;
    }

    /// A whole number with or without sign, right here; none where there is no such number.
    std::optional<std::int64_t> integer() {
        const char* begin = at;
        at += at != last && *at == '+';
        std::int64_t value = 0;
        const auto [end, failure] = std::from_chars(at, last, value);
        at = failure == std::errc{} ? end : begin;
        return failure == std::errc{} ? std::optional(value) : std::nullopt;
    }

    /// Lines are counted from 1.
    std::string place() const { return "line " + std::to_string(lineAt(offset())); }
    std::size_t lineAt(std::size_t offset) const {
        return 1 + static_cast<std::size_t>(std::count(first, first + offset, '\n'));
    }
    [[noreturn]] void refuse(ImportCode code, const std::string& what) const {
        source.refuse(code, what, place());
    }

private:
    const char* first;
    const char* at;
    const char* last;
    const ModelSource& source;
    bool joinsLines;

    static bool isSeparator(char c) {
        return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
    }
    /// The length of a backslash that joins two lines, with the end of the line; 0 where there is none.
    std::size_t lineJoint() const {
        if (!joinsLines || at == last || *at != '\\') return 0;
        const auto left = static_cast<std::size_t>(last - at);
        if (left >= 2 && at[1] == '\n') return 2;
        return left >= 3 && at[1] == '\r' && at[2] == '\n' ? 3 : 0;
    }
    bool isJoined(const char* lineEnd) const {
        if (!joinsLines) return false;
        if (lineEnd != first && lineEnd[-1] == '\r') --lineEnd;
        return lineEnd != first && lineEnd[-1] == '\\';
    }

    /// What is too large or too small for the type, or no number at all.
    template<typename Number>
    Number oddNumber() {
        std::string text = smallLetters(std::string(word()));
        const bool minus = !text.empty() && text[0] == '-';
        const std::string_view digits =
            std::string_view(text).substr(!text.empty() && (minus || text[0] == '+'));
        if constexpr (std::is_floating_point_v<Number>) {
            Number value{};
            const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
            const bool isWhole = end == digits.data() + digits.size();
            if (failure == std::errc::result_out_of_range && isWhole) {
                const bool isTiny =
                    digits.find("e-") != std::string_view::npos || digits[0] == '0' || digits[0] == '.';
                value = isTiny ? Number(0) : std::numeric_limits<Number>::infinity();
                return minus ? -value : value;
            }
            // As some C libraries print them: 1.#QNAN, -1.#IND, 1.#INF.
            const std::size_t odd = digits.find('#');
            if (odd != std::string_view::npos && digits.substr(0, odd) == "1.") {
                if (digits.substr(odd + 1, 3) != "inf") return std::numeric_limits<Number>::quiet_NaN();
                return minus ? -std::numeric_limits<Number>::infinity()
                             : std::numeric_limits<Number>::infinity();
            }
        }
        refuse(ImportCode::INVALID_MODEL, "\"" + text.substr(0, 40) + "\" stands where a number belongs");
    }
};

} // namespace kel::importer::detail
