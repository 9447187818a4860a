#pragma once

#include <kel/convert/Bounds.h>
#include <kel/convert/Export.h>
#include <kel/convert/ProcessHooks.h>
#include <kel/src/SrcReader.h>
#include <kel/src/SrcWriterInput.h>

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace kel::convert {

/// A mesh made comparable: single primitives, positions and normals as floats.
struct KEL_CONVERT_EXPORT ComparableMesh {
    std::string name;
    std::size_t cornersPerPrimitive = 3; ///< 1 points, 2 lines, 3 triangles
    std::vector<std::array<float, 3>> positions;
    std::vector<std::array<float, 3>> normals; ///< one per position, or none
    std::vector<std::uint32_t> corners;        ///< all below the number of positions
    bool hasMaterial = false;
    std::map<std::string, std::vector<double>> material; ///< by parameter
    std::map<std::string, std::string> metadata;         ///< JSON texts
    std::set<std::string> attributes;                    ///< all names

    std::size_t primitives() const { return corners.size() / cornersPerPrimitive; }
    GeometryCounts counts() const; ///< of one mesh
    Bounds bounds() const;         ///< of the vertices that are drawn
};

struct ComparableScene {
    std::vector<ComparableMesh> meshes;
};

/// The meshes of a file, decoded, and moved back from a preset's box.
///
/// name    for messages
/// throws  ConvertError when an index is not below the number of vertices; kel::src::SrcError
KEL_CONVERT_EXPORT ComparableScene comparableScene(const kel::src::SrcFile& file, const std::string& name);
/// Expects float attributes, as the importer gives, and indices below the number of vertices.
KEL_CONVERT_EXPORT ComparableScene comparableScene(const kel::src::SrcWriterInput& input);

/// An SRC file, or any model that the importer reads.
///
/// throws  ConvertError
KEL_CONVERT_EXPORT ComparableScene openComparable(const std::string& path, const ProcessHooks& hooks = {});

} // namespace kel::convert
