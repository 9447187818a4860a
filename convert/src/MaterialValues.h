#pragma once

#include <kel/material/Material.h>
#include <kel/src/format/MaterialParameters.h>

#include <utility>
#include <vector>

namespace kel::convert {

/// The parameters that writers give a classic material, and their values; none for another material, or null.
std::vector<std::pair<kel::src::format::MaterialParameterIndex, std::vector<double>>>
classicValues(const kel::material::Material* material);

} // namespace kel::convert
