#include "GltfJson.h"

#include <cctype>
#include <cmath>

namespace kel::importer::detail {

namespace {

constexpr double LARGEST_WHOLE = 9007199254740992.0; // doubles hold every integer up to there

} // namespace

const picojson::value* member(const picojson::value* value, const char* name) {
    if (!value || !value->is<picojson::object>()) return nullptr;
    const picojson::object& object = value->get<picojson::object>();
    const auto found = object.find(name);
    return found == object.end() ? nullptr : &found->second;
}

const picojson::array& arrayOf(const picojson::value* value) {
    static const picojson::array NONE;
    return value && value->is<picojson::array>() ? value->get<picojson::array>() : NONE;
}

const picojson::object& objectOf(const picojson::value* value) {
    static const picojson::object NONE;
    return value && value->is<picojson::object>() ? value->get<picojson::object>() : NONE;
}

std::string stringOf(const picojson::value* value) {
    return value && value->is<std::string>() ? value->get<std::string>() : std::string();
}

std::optional<std::uint64_t> wholeNumber(const picojson::value* value) {
    if (!value || !value->is<double>()) return std::nullopt;
    const double number = value->get<double>();
    if (number < 0.0 || number > LARGEST_WHOLE || number != std::floor(number)) return std::nullopt;
    return static_cast<std::uint64_t>(number);
}

std::string percentDecoded(const std::string& uri) {
    std::string path;
    for (std::size_t i = 0; i < uri.size(); ++i) {
        const auto digit = [&](std::size_t at) {
            return at < uri.size() && std::isxdigit(static_cast<unsigned char>(uri[at])) != 0;
        };
        if (uri[i] == '%' && digit(i + 1) && digit(i + 2)) {
            path += static_cast<char>(std::stoi(uri.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            path += uri[i];
        }
    }
    return path;
}

std::string GltfPlace::text() const {
    std::string place = above ? above->text() + "." : std::string();
    place += name;
    if (index) place += "[" + std::to_string(*index) + "]";
    return place;
}

} // namespace kel::importer::detail
