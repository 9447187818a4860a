#include "page/HttpRequest.h"

#include <kel/src/text/JsonCharacters.h>

#include <algorithm>
#include <charconv>

namespace kelsrc::cli {

using kel::src::text::hexValue;

namespace {

std::string_view trimmed(std::string_view text) {
    const std::size_t first = std::min(text.find_first_not_of(" \t"), text.size());
    return text.substr(first, text.find_last_not_of(" \t") + 1 - first);
}

/// Calls `visit` with each part between the separators, without spaces around it.
template<typename Visit>
void forEachPart(std::string_view text, char separator, const Visit& visit) {
    for (;;) {
        const std::size_t end = std::min(text.find(separator), text.size());
        visit(trimmed(text.substr(0, end)));
        if (end == text.size()) return;
        text.remove_prefix(end + 1);
    }
}

std::optional<std::uint64_t> numberOf(std::string_view text) {
    std::uint64_t number = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isWhole = failure == std::errc() && end == text.data() + text.size() && text.size() <= 18;
    return isWhole ? std::optional(number) : std::nullopt;
}

} // namespace

std::string percentEncoded(const std::string& text) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string result;
    for (const char c : text) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                           c == '-' || c == '.' || c == '_' || c == '~';
        if (plain) {
            result += c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        result += '%';
        result += digits[byte >> 4];
        result += digits[byte & 15];
    }
    return result;
}

std::optional<std::string> percentDecoded(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            result += text[i];
            continue;
        }
        if (text.size() - i < 3) return std::nullopt;
        const int high = hexValue(text[i + 1]), low = hexValue(text[i + 2]);
        if (high < 0 || low < 0) return std::nullopt;
        result += static_cast<char>(high << 4 | low);
        i += 2;
    }
    return result;
}

std::string lowerCase(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
}

bool acceptsGzip(const std::string& acceptEncoding) {
    bool accepts = false;
    forEachPart(lowerCase(acceptEncoding), ',', [&](std::string_view entry) {
        bool isGzip = false, isFirst = true, isRefused = false;
        forEachPart(entry, ';', [&](std::string_view part) {
            if (isFirst) isGzip = part == "gzip";
            if (!isFirst && part.substr(0, 2) == "q=")
                isRefused = part.find_first_not_of("0.", 2) == std::string_view::npos;
            isFirst = false;
        });
        accepts = accepts || (isGzip && !isRefused);
    });
    return accepts;
}

std::optional<ByteRange> rangeOf(std::string_view header, std::uint64_t size) {
    constexpr std::string_view unit = "bytes=";
    if (header.substr(0, unit.size()) != unit) return std::nullopt;
    const std::string_view range = trimmed(header.substr(unit.size()));
    const std::size_t dash = range.find('-');
    if (dash == std::string_view::npos) return std::nullopt;
    const auto first = numberOf(range.substr(0, dash)), last = numberOf(range.substr(dash + 1));
    if (dash == 0) return last ? std::optional(ByteRange{size - std::min(*last, size), size}) : std::nullopt;
    const bool isOpen = dash + 1 == range.size();
    if (!first || (!last && !isOpen) || (last && *last < *first)) return std::nullopt;
    if (*first >= size) return ByteRange{size, size};
    return ByteRange{*first, last ? std::min(*last, size - 1) + 1 : size};
}

} // namespace kelsrc::cli
