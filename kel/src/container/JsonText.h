#pragma once

#include <kel/src/Export.h>

#include <picojson.h>

#include <string>
#include <string_view>

namespace kel::src::detail {

/// Appends JSON text, byte for byte as picojson's compact serialisation gives it, but without a string and a
/// formatted print per value: these three are the hot path of a header with many meshes.

/// throws  std::overflow_error for NaN and infinities, as a picojson number does
KELSRC_EXPORT void appendJsonNumber(std::string& text, double value);
KELSRC_EXPORT void appendJsonString(std::string& text, std::string_view value);
KELSRC_EXPORT void appendJson(std::string& text, const picojson::value& value);

} // namespace kel::src::detail
