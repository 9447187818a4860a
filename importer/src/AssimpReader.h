#pragma once

#include "Source.h"
#include "checks/Checks.h"

#include <assimp/scene.h>

#include <memory>
#include <string>
#include <vector>

namespace kel::importer::detail {

struct AssimpScene {
    std::unique_ptr<aiScene> scene;
    std::string format; ///< for people
    /// Files beside the model that it names and that could not be opened, each once.
    std::vector<std::string> missingFiles;
};

/// Reads the scene with polygons triangulated and otherwise as it is in the file.
///
/// Every index of the scene is valid on return: faces to vertices, nodes to meshes, meshes to materials.
///
/// throws  ImportError
AssimpScene readWithAssimp(const Source& source, const Findings& findings, Stages& stages);

} // namespace kel::importer::detail
