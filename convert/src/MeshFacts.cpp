#include "MeshFacts.h"

#include <kel/material/MaterialClassic.h>

#include <picojson.h>

#include <cmath>

namespace kel::convert {

double degreesBetween(const std::array<double, 3>& a, const std::array<double, 3>& b) {
    double dot = 0, crossed = 0;
    for (std::size_t c = 0; c < 3; ++c) {
        const std::size_t next = (c + 1) % 3, last = (c + 2) % 3;
        dot += a[c] * b[c];
        const double part = a[next] * b[last] - a[last] * b[next];
        crossed += part * part;
    }
    return std::atan2(std::sqrt(crossed), dot) * 180.0 / 3.14159265358979323846;
}

double degreesBetween(const float* a, const float* b) {
    const auto wide = [](const float* v) {
        return std::array<double, 3>{static_cast<double>(v[0]), static_cast<double>(v[1]),
                                     static_cast<double>(v[2])};
    };
    return degreesBetween(wide(a), wide(b));
}

std::vector<std::pair<kel::src::format::MaterialParameterIndex, std::vector<double>>>
classicValues(const kel::material::Material* material) {
    using namespace kel::src::format;
    const auto* classic = dynamic_cast<const kel::material::MaterialClassic*>(material);
    if (!classic) return {};
    const auto number = [](float value) { return std::vector<double>{static_cast<double>(value)}; };
    const auto colour = [](const glm::vec3& v) {
        return std::vector<double>{static_cast<double>(v.x), static_cast<double>(v.y),
                                   static_cast<double>(v.z)};
    };
    return {{AMBIENT_INTENSITY, number(classic->getAmbient())},
            {DIFFUSE_COLOR, colour(classic->getDiffuse())},
            {EMISSIVE_COLOR, colour(classic->getEmissive())},
            {SHININESS, number(classic->getShininess())},
            {SPECULAR_COLOR, colour(classic->getSpecular())},
            {TRANSPARENCY, number(classic->getTransparency())}};
}

std::vector<std::string> textsOf(std::string_view json) {
    std::vector<std::string> texts;
    picojson::value list;
    if (json.empty() || !picojson::parse(list, std::string(json)).empty() || !list.is<picojson::array>())
        return texts;
    for (const auto& entry : list.get<picojson::array>()) {
        if (entry.is<std::string>()) texts.push_back(entry.get<std::string>());
    }
    return texts;
}

bool sameJson(std::string_view a, std::string_view b) {
    if (a == b) return true;
    picojson::value first, second;
    return picojson::parse(first, std::string(a)).empty() &&
           picojson::parse(second, std::string(b)).empty() && first == second;
}

} // namespace kel::convert
