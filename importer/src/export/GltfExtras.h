#pragma once

#include <picojson.h>

#include <string>
#include <vector>

namespace kel::importer::detail {

/// Puts metadata into a glTF's JSON, as "extras" of the nodes that the scene's first node holds: Assimp's
/// exporter leaves them out.
///
/// extras  one entry per node, in their order; empty ones are left out
/// throws  ExportError
std::string withExtras(const char* begin, const char* end, const std::vector<picojson::object>& extras);
/// The same for a GLB.
std::string withExtrasInGlb(const std::string& bytes, const std::vector<picojson::object>& extras);

} // namespace kel::importer::detail
