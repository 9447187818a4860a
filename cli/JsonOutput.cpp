#include "JsonOutput.h"

#include <kel/src/text/Utf8.h>

#include <cmath>
#include <cstdio>

namespace kelsrc::cli {

picojson::value jsonText(std::string_view text) {
    return picojson::value(kel::src::text::validUtf8(text));
}

picojson::value jsonNumber(double number) {
    return std::isfinite(number) ? picojson::value(number) : picojson::value();
}

picojson::value jsonCount(std::uint64_t count) {
    return picojson::value(static_cast<double>(count));
}

picojson::value jsonNumber(const std::optional<double>& number) {
    return number ? jsonNumber(*number) : picojson::value();
}

picojson::value jsonVector(const std::array<double, 3>& vector) {
    picojson::array array;
    for (const double component : vector)
        array.push_back(jsonNumber(component));
    return picojson::value(std::move(array));
}

std::string shortNumber(double value, int digits) {
    char text[40];
    std::snprintf(text, sizeof text, "%.*g", digits, value);
    return text;
}

} // namespace kelsrc::cli
