#pragma once

#include <kel/convert/Bounds.h>
#include <kel/convert/Export.h>
#include <kel/src/SrcReader.h>

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kel::convert {

/// Bytes of a file that serve one purpose.
struct SectionInfo {
    enum Purpose { HEADER, INDICES, ATTRIBUTE, OTHER } purpose = OTHER;
    std::string name; ///< of the attribute
    std::uint64_t bytes = 0;
    std::string encoding; ///< for people, e.g. "16-bit codes"; several are joined by ", "
    /// The largest distance between neighbouring values, in units of the model: with a recorded fit undone.
    /// Of positions stored as floats it is that of the coordinate farthest from 0. None where values are not
    /// rounded to known steps.
    std::optional<double> step;
};

struct MaterialInfo {
    std::string id, technique;
    std::uint64_t meshes = 0;
    std::vector<double> diffuse; ///< three numbers, or none
};

struct MeshInfo {
    std::string id, name, material;
    const char* kind = "";   ///< "triangles", "lines" or "points"
    GeometryCounts counts;   ///< of one mesh
    std::uint64_t bytes = 0; ///< of its indices and of the attributes written for it
    Bounds bounds;

    std::uint64_t primitives() const { return counts.triangles + counts.lines + counts.points; }
};

/// What a file's header says.
struct FileInfo {
    std::uint64_t bytes = 0;
    GeometryCounts counts;
    std::vector<SectionInfo> sections;
    Bounds bounds; ///< in the model's coordinates; empty when no mesh has any
    /// What is to be added to decoded positions, when it is the same for all meshes and not zero.
    std::optional<std::array<double, 3>> origin;
    std::vector<MaterialInfo> materials;
    std::map<std::string, std::uint64_t> metadataKeys; ///< how many meshes have them
    std::vector<std::string> documentKeys;
    std::vector<MeshInfo> meshList;
};

/// Takes time in proportion to the header; the data section is not read.
///
/// listMeshes  fill FileInfo::meshList
KEL_CONVERT_EXPORT FileInfo describe(const kel::src::SrcFile& file, bool listMeshes = false);

} // namespace kel::convert
