#pragma once

#include <kel/mesh/Export.h>

#include <cstdint>
#include <string>

namespace kel::mesh {

/// How a mesh's indices form primitives. The values are the WebGL primitive modes.
enum PrimitiveType : std::uint32_t {
    POINTS = 0,         ///< one vertex per point
    LINES = 1,          ///< independent segments, two indices each
    LINE_LOOP = 2,      ///< closed polyline
    LINE_STRIP = 3,     ///< open polyline
    TRIANGLES = 4,      ///< independent triangles, three indices each
    TRIANGLE_STRIP = 5, ///< triangle k uses indices k, k + 1, k + 2
    TRIANGLE_FAN = 6    ///< triangle k uses indices 0, k + 1, k + 2
};

/// Name of the type for people, e.g. "TRIANGLE_FAN"; an unknown value reads "UNKNOWN (9)".
KEL_MESH_EXPORT std::string getStringForPrimitiveType(PrimitiveType type);

} // namespace kel::mesh
