#pragma once

#include <kel/importer/Exporter.h>
#include <kel/src/SrcReader.h>

#include <assimp/scene.h>
#include <picojson.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace kel::importer::detail {

/// What a format can hold.
struct ExportFormat {
    const char* extension;
    const char* assimpId;
    bool names, materials, metadata, pointsAndLines, normals, colours;
    bool metallicRoughness; ///< instead of specular colour and shininess
    std::size_t texcoordSets;
};

/// An SRC file as a scene that Assimp's exporters take.
struct ExportScene {
    std::unique_ptr<aiScene> scene;
    /// What the nodes of meshes get in the JSON of a glTF: their metadata as "extras", their origin as "translation".
    std::vector<picojson::object> nodeMembers;
    bool hasColours = false;
    ExportResult result; ///< all but the files
};

/// throws  ExportError; kel::src::SrcError
ExportScene makeExportScene(const kel::src::SrcFile& file, const ExportFormat& format);

} // namespace kel::importer::detail
