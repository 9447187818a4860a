#pragma once

#include <string>

namespace kel::prepare::detail {

/// Whether the container writer's presets know an attribute of this name; it leaves all others out.
bool isInPresets(const std::string& attribute);

/// Whether the preset "CMP1" quantizes it.
bool isQuantizedByCmp1(const std::string& attribute);

} // namespace kel::prepare::detail
