#pragma once

#include <picojson.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kelsrc::cli {

/// Values of the reports for programs. Texts come from files and paths, so what is not UTF-8 in them is
/// replaced by U+FFFD; numbers that are not finite, for which JSON has no text, become null.
picojson::value jsonText(std::string_view text);
picojson::value jsonNumber(double number);
picojson::value jsonCount(std::uint64_t count);
/// null where there is none.
picojson::value jsonNumber(const std::optional<double>& number);
picojson::value jsonVector(const std::array<double, 3>& vector);

/// A number for people, in up to `digits` digits: "0.00031", "12.5".
std::string shortNumber(double value, int digits = 4);

} // namespace kelsrc::cli
