#include "MaterialValues.h"

#include <kel/material/MaterialClassic.h>

namespace kel::convert {

namespace {

std::vector<double> numbersOf(const glm::vec3& v) {
    return {static_cast<double>(v.x), static_cast<double>(v.y), static_cast<double>(v.z)};
}

std::vector<double> numbersOf(float value) {
    return {static_cast<double>(value)};
}

} // namespace

std::vector<std::pair<kel::src::format::MaterialParameterIndex, std::vector<double>>>
classicValues(const kel::material::Material* material) {
    using namespace kel::src::format;
    const auto* classic = dynamic_cast<const kel::material::MaterialClassic*>(material);
    if (!classic) return {};
    return {{AMBIENT_INTENSITY, numbersOf(classic->getAmbient())},
            {DIFFUSE_COLOR, numbersOf(classic->getDiffuse())},
            {EMISSIVE_COLOR, numbersOf(classic->getEmissive())},
            {SHININESS, numbersOf(classic->getShininess())},
            {SPECULAR_COLOR, numbersOf(classic->getSpecular())},
            {TRANSPARENCY, numbersOf(classic->getTransparency())}};
}

} // namespace kel::convert
