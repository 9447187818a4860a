#pragma once

#include "ExportFormat.h"

#include <kel/importer/Exporter.h>
#include <kel/src/SrcReader.h>

#include <assimp/scene.h>
#include <picojson.h>

#include <memory>
#include <vector>

namespace kel::importer::detail {

/// An SRC file as a scene that Assimp's exporters take.
struct ExportScene {
    std::unique_ptr<aiScene> scene;
    std::vector<picojson::object> nodeExtras; ///< metadata of the meshes that became nodes
    bool hasColours = false;
    ExportResult result; ///< all but the files
};

/// throws  ExportError; kel::src::SrcError
ExportScene makeExportScene(const kel::src::SrcFile& file, const ExportFormat& format);

} // namespace kel::importer::detail
