#pragma once

#include <cstddef>
#include <string>

namespace kel::importer::detail {

/// What a format can hold.
struct ExportFormat {
    const char* extension;
    const char* assimpId;
    bool names, materials, metadata, pointsAndLines, normals, colours;
    bool metallicRoughness; ///< instead of specular colour and shininess
    std::size_t texcoordSets;
};

inline constexpr ExportFormat EXPORT_FORMATS[] = {
    {"glb", "glb2", true, true, true, true, true, true, true, 4},
    {"gltf", "gltf2", true, true, true, true, true, true, true, 4},
    {"obj", "obj", true, true, false, true, true, true, false, 1},
    {"ply", "plyb", false, false, false, false, true, true, false, 1},
    {"stl", "stlb", false, false, false, false, false, false, false, 0},
};

/// throws  ExportError when no format has the extension of the file
const ExportFormat& exportFormatOf(const std::string& fileName);

} // namespace kel::importer::detail
