#pragma once

#include <kel/convert/Convert.h>
#include <kel/scene/Scene.h>

#include <functional>
#include <string>

namespace kel::convert {

/// The scene of a source, whatever kind of source it is. Sets the format, the size, what was dropped and the
/// notes in the report.
///
/// throws  ConvertError
kel::scene::Scene importSource(const Source& source, const Recipe& recipe, const ConvertOptions& options,
                               ConvertReport& report);

} // namespace kel::convert
