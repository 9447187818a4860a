#include <kel/src/text/JsonWriter.h>

#include <kel/src/text/JsonCharacters.h>

#include <charconv>
#include <cmath>
#include <cstdint>

namespace kel::src::text {

void appendJsonNumber(std::string& text, double value) {
    const picojson::value checked(value); // refuses what JSON cannot hold, with picojson's own exception
    static_cast<void>(checked);
    char digits[32];
    std::to_chars_result end{};
    if (std::fabs(value) < 9007199254740992.0 && std::trunc(value) == value) {
        if (value == 0.0 && std::signbit(value)) text += '-';
        end = std::to_chars(digits, digits + sizeof digits, static_cast<std::int64_t>(value));
    } else {
        end = std::to_chars(digits, digits + sizeof digits, value, std::chars_format::general, 17);
    }
    text.append(digits, end.ptr);
}

void appendJsonString(std::string& text, std::string_view value) {
    text += '"';
    std::size_t plainFrom = 0;
    for (std::size_t i = 0; i < value.size(); ++i) {
        const char c = value[i];
        const auto code = static_cast<unsigned char>(c);
        if (code >= 0x20 && c != '"' && c != '\\' && c != '/' && code != 0x7f) continue;
        text.append(value, plainFrom, i - plainFrom);
        plainFrom = i + 1;
        text += '\\';
        if (const std::size_t place = ESCAPED_CHARACTERS.find(c); place != std::string_view::npos) {
            text += ESCAPE_LETTERS[place];
        } else {
            constexpr char HEX[] = "0123456789abcdef";
            text += "u00";
            text += HEX[code >> 4];
            text += HEX[code & 15];
        }
    }
    text.append(value, plainFrom, value.size() - plainFrom);
    text += '"';
}

void appendJson(std::string& text, const picojson::value& value) {
    if (value.is<picojson::object>()) {
        appendSeparated(text, "{}", value.get<picojson::object>(), [&](const auto& member) {
            appendJsonString(text, member.first);
            text += ':';
            appendJson(text, member.second);
        });
    } else if (value.is<picojson::array>()) {
        appendSeparated(text, "[]", value.get<picojson::array>(),
                        [&](const picojson::value& element) { appendJson(text, element); });
    } else if (value.is<std::string>()) {
        appendJsonString(text, value.get<std::string>());
    } else if (value.is<double>() && std::isfinite(value.get<double>())) {
        appendJsonNumber(text, value.get<double>());
    } else {
        text += value.serialize();
    }
}

void appendMember(std::string& text, std::string_view keyWithColon, double number) {
    text += keyWithColon;
    appendJsonNumber(text, number);
}

void appendMember(std::string& text, std::string_view keyWithColon, std::string_view string) {
    text += keyWithColon;
    appendJsonString(text, string);
}

} // namespace kel::src::text
