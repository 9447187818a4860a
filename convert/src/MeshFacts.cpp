#include "MeshFacts.h"

#include <kel/material/MaterialClassic.h>

#include <picojson.h>

#include <cmath>

namespace kel::convert {

double degreesBetween(const float* a, const float* b) {
    double dot = 0, crossed = 0;
    const auto at = [](const float* v, std::size_t c) { return static_cast<double>(v[c % 3]); };
    for (std::size_t c = 0; c < 3; ++c) {
        dot += at(a, c) * at(b, c);
        const double part = at(a, c + 1) * at(b, c + 2) - at(a, c + 2) * at(b, c + 1);
        crossed += part * part;
    }
    return std::atan2(std::sqrt(crossed), dot) * 180.0 / 3.14159265358979323846;
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

bool sameJson(std::string_view a, std::string_view b) {
    if (a == b) return true;
    picojson::value first, second;
    return picojson::parse(first, std::string(a)).empty() &&
           picojson::parse(second, std::string(b)).empty() && first == second;
}

} // namespace kel::convert
