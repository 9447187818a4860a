#pragma once

#include <cstddef>
#include <string_view>

namespace kel::src::format {

/// The one technique that both writers declare.
constexpr std::string_view STANDARD_TECHNIQUE = "x3dStandardMaterialTechnique";

/// A parameter of the standard technique, and the attribute of a classic material that it is written from.
struct MaterialParameter {
    std::string_view name;
    std::string_view attribute;
    std::size_t components; ///< 1 or, for colours, 3
    double defaultValue;    ///< of the technique, in each component
};

/// In the order of their names, which is the order in the header.
enum MaterialParameterIndex : std::size_t {
    AMBIENT_INTENSITY,
    DIFFUSE_COLOR,
    EMISSIVE_COLOR,
    SHININESS,
    SPECULAR_COLOR,
    TRANSPARENCY
};
inline constexpr MaterialParameter MATERIAL_PARAMETERS[] = {
    {"ambientIntensity", "ambient", 1, 0.2}, {"diffuseColor", "diffuse", 3, 0.8},
    {"emissiveColor", "emissive", 3, 0.0},   {"shininess", "shininess", 1, 0.2},
    {"specularColor", "specular", 3, 0.0},   {"transparency", "transparency", 1, 0.0},
};

/// The container writer's technique has this default, not 0, and its materials never state a transparency: readers
/// draw them so, and a file looks as its author saw it.
constexpr double CONTAINER_TRANSPARENCY = 0.2;

/// The name of a parameter in the file.
constexpr std::string_view parameterName(MaterialParameterIndex parameter) {
    return MATERIAL_PARAMETERS[parameter].name;
}

} // namespace kel::src::format
