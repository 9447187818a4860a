#pragma once

#include <kel/mesh/Export.h>

#include <string>

namespace kel::mesh {

/// The two attribute names that writers look up: "position" and "normal". Built once when the library is
/// loaded.
KEL_MESH_EXPORT extern const std::string DEFAULT_POSITIONS_NAME;
KEL_MESH_EXPORT extern const std::string DEFAULT_NORMALS_NAME;

} // namespace kel::mesh
