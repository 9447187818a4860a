#include "terminal/JsonOutput.h"

#include <kel/src/text/Utf8.h>

#include <cmath>

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

picojson::value jsonBounds(const kel::convert::Bounds& bounds) {
    if (bounds.isEmpty()) return {};
    return picojson::value(
        picojson::object{{"min", jsonVector(bounds.min)}, {"max", jsonVector(bounds.max)}});
}

picojson::value jsonTexts(const std::vector<std::string>& texts) {
    return jsonList(texts, jsonText);
}

void addCounts(picojson::object& object, const kel::convert::GeometryCounts& counts) {
    object["meshes"] = jsonCount(counts.meshes);
    object["triangles"] = jsonCount(counts.triangles);
    object["lines"] = jsonCount(counts.lines);
    object["points"] = jsonCount(counts.points);
    object["vertices"] = jsonCount(counts.vertices);
}

} // namespace kelsrc::cli
