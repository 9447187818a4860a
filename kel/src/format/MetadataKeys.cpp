#include <kel/src/format/MetadataKeys.h>

#include <kel/src/SrcJson.h>
#include <kel/src/format/ElementTypes.h>
#include <kel/src/text/JsonScanner.h>
#include <kel/src/text/JsonValues.h>
#include <kel/src/text/JsonWriter.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <utility>

namespace kel::src::format {

namespace {

/// The members of an object that somebody else wrote; none where it is no valid JSON.
std::vector<SrcMember> checkedMembers(std::string_view json) {
    return text::checkJson(json) ? jsonMembers(json) : std::vector<SrcMember>();
}

bool isAxis(std::string_view name) {
    return name == "x" || name == "y" || name == "z";
}

bool isUpAxis(std::string_view name) {
    if (!name.empty() && name.front() == '-') name.remove_prefix(1);
    return name == "X" || name == "Y" || name == "Z";
}

/// The one number of a text, not of a list.
std::optional<double> readNumber(std::string_view json) {
    double number = 0;
    if (!text::parseJsonNumber(json, number) || !std::isfinite(number)) return std::nullopt;
    return number;
}

} // namespace

std::string fitText(const std::vector<Fit>& fits) {
    std::string json;
    text::appendSeparated(json, "{}", fits, [&](const Fit& fit) {
        text::appendJsonString(json, fit.attribute);
        text::appendArrayMember(json, ":{\"offset\":", fit.offset.data(), fit.offset.size());
        text::appendArrayMember(json, ",\"scale\":", fit.scale.data(), fit.scale.size());
        json += '}';
    });
    return json;
}

std::vector<Fit> readFit(std::string_view json) {
    std::vector<Fit> fits;
    for (SrcMember& attribute : checkedMembers(json)) {
        Fit fit;
        for (const SrcMember& vector : jsonMembers(attribute.json)) {
            if (vector.key == "offset") jsonNumbers(vector.json, fit.offset);
            if (vector.key == "scale") jsonNumbers(vector.json, fit.scale);
        }
        if (fit.offset.empty() || fit.offset.size() > MAX_COMPONENTS || fit.offset.size() != fit.scale.size())
            continue;
        fit.attribute = std::move(attribute.key);
        fits.push_back(std::move(fit));
    }
    return fits;
}

std::string transformText(const Transform& transform) {
    std::string json = "{\"from\":\"";
    json += transform.from;
    text::appendArrayMember(json, "\",\"matrix\":", transform.matrix.data(), transform.matrix.size());
    text::appendMember(json, ",\"scale\":", transform.scale);
    json += ",\"to\":\"";
    json += transform.to;
    return json + "\"}";
}

std::optional<Transform> readTransform(std::string_view json) {
    Transform transform;
    std::vector<double> matrix;
    std::optional<double> scale;
    std::string from, to;
    for (const SrcMember& member : checkedMembers(json)) {
        if (member.key == "matrix") jsonNumbers(member.json, matrix);
        if (member.key == "scale") scale = readNumber(member.json);
        if (member.key == "from") jsonString(member.json, from);
        if (member.key == "to") jsonString(member.json, to);
    }
    if (matrix.size() != transform.matrix.size() || !scale || !isAxis(from)) return std::nullopt;
    std::copy(matrix.begin(), matrix.end(), transform.matrix.begin());
    transform.scale = *scale;
    transform.from = from[0];
    transform.to = isAxis(to) ? to[0] : from[0];
    return transform;
}

std::string sourceText(const Source& source, std::string_view unitText) {
    std::string json = "{\"file\":";
    text::appendJsonString(json, source.file);
    if (!source.format.empty()) text::appendMember(json, ",\"format\":", source.format);
    if (source.unit && !unitText.empty()) {
        json.append(",\"unit\":").append(unitText);
    } else if (source.unit) {
        text::appendMember(json, ",\"unit\":", *source.unit);
    }
    if (!source.upAxis.empty()) text::appendMember(json, ",\"upAxis\":", source.upAxis);
    return json + '}';
}

std::optional<Source> readSource(std::string_view json) {
    const std::vector<SrcMember> members = checkedMembers(json);
    if (members.empty()) return std::nullopt;
    Source source;
    for (const SrcMember& member : members) {
        if (member.key == "file") jsonString(member.json, source.file);
        if (member.key == "format") jsonString(member.json, source.format);
        if (member.key == "unit") source.unit = readNumber(member.json);
        if (member.key == "upAxis") jsonString(member.json, source.upAxis);
    }
    if (source.unit && !(*source.unit > 0.0)) source.unit.reset();
    if (!isUpAxis(source.upAxis)) source.upAxis.clear();
    return source;
}

namespace {

/// A list of numbers for people to read, too.
template<std::size_t N>
std::string plainNumbersText(const std::array<double, N>& numbers) {
    std::string json;
    text::appendSeparated(json, "[]", numbers, [&](double number) {
        // The shortest form of 500000 would be 5e+05.
        const double size = std::abs(number);
        const bool plain = size == 0.0 || (size >= 1e-6 && size < 1e21);
        std::array<char, 40> digits;
        const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number,
                                       plain ? std::chars_format::fixed : std::chars_format::scientific);
        json.append(digits.data(), end.ptr);
    });
    return json;
}

/// Exactly so many, all finite.
template<std::size_t N>
std::optional<std::array<double, N>> readNumbers(std::string_view json) {
    std::vector<double> numbers;
    std::array<double, N> result{};
    if (!text::checkJson(json) || !jsonNumbers(json, numbers) || numbers.size() != N) return std::nullopt;
    std::copy(numbers.begin(), numbers.end(), result.begin());
    return result;
}

} // namespace

std::string originText(const Origin& origin) {
    return plainNumbersText(origin);
}

std::optional<Origin> readOrigin(std::string_view json) {
    return readNumbers<3>(json);
}

std::string boundsText(const Bounds& bounds) {
    const auto& [low, high] = bounds;
    return plainNumbersText<6>({low[0], low[1], low[2], high[0], high[1], high[2]});
}

std::optional<Bounds> readBounds(std::string_view json) {
    const auto numbers = readNumbers<6>(json);
    if (!numbers) return std::nullopt;
    Bounds bounds{};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        bounds[0][axis] = (*numbers)[axis];
        bounds[1][axis] = (*numbers)[axis + 3];
        if (bounds[0][axis] > bounds[1][axis]) return std::nullopt;
    }
    return bounds;
}

std::string namesText(const std::vector<std::string>& names) {
    std::string json;
    text::appendSeparated(json, "[]", names,
                          [&](const std::string& name) { text::appendJsonString(json, name); });
    return json;
}

std::string readName(std::string_view json) {
    std::string name;
    return text::checkJson(json) && jsonString(json, name) ? name : std::string(json);
}

} // namespace kel::src::format
