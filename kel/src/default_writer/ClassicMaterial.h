#pragma once

#include <kel/material/MaterialClassic.h>
#include <kel/src/Export.h>
#include <kel/src/container/ShapeResourceContainer.h>

#include <glm/vec3.hpp>
#include <picojson.h>

#include <memory>
#include <string>

namespace kel::src::detail {

/// Sets object[name] to an array: of the one number, or of the three. A scalar is an array of one on purpose:
/// readers tell a material's values from a technique's defaults by it.
KELSRC_EXPORT void addFieldValueToJSONObject(const std::string& name, float value, picojson::object& object);
KELSRC_EXPORT void addFieldValueToJSONObject(const std::string& name, const glm::tvec3<float>& value,
                                             picojson::object& object);

/// Adds one material entry of the X3D technique with the values of `material`, which must not be null,
/// unclamped. Transparency is not written: a reader takes the technique's default for it.
KELSRC_EXPORT void addMaterialDataToSRC(std::shared_ptr<kel::material::MaterialClassic> material,
                                        ShapeResourceContainer& container, const std::string& materialId);

/// The parameters of the X3D standard material technique with their defaults, a new value each call.
KELSRC_EXPORT picojson::value createStandardX3DMaterialTechnique();

} // namespace kel::src::detail
