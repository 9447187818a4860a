#pragma once

#include <kel/convert/Bounds.h>

#include <picojson.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kelsrc::cli {

/// Values of the reports for programs. Texts come from files and paths, so what is not UTF-8 in them is
/// replaced by U+FFFD; numbers that are not finite, for which JSON has no text, become null.
picojson::value jsonText(std::string_view text);
picojson::value jsonNumber(double number);
picojson::value jsonCount(std::uint64_t count);
/// null where there is none.
picojson::value jsonNumber(const std::optional<double>& number);
picojson::value jsonVector(const std::array<double, 3>& vector);
/// {"min":[..],"max":[..]}, or null for an empty box.
picojson::value jsonBounds(const kel::convert::Bounds& bounds);
/// A list of what `toJson` makes of each entry.
template<typename Entries, typename ToJson>
picojson::value jsonList(const Entries& entries, const ToJson& toJson) {
    picojson::array array;
    array.reserve(entries.size());
    for (const auto& entry : entries)
        array.push_back(toJson(entry));
    return picojson::value(std::move(array));
}
picojson::value jsonTexts(const std::vector<std::string>& texts);
/// Adds "meshes", "triangles", "lines", "points" and "vertices".
void addCounts(picojson::object& object, const kel::convert::GeometryCounts& counts);

} // namespace kelsrc::cli
