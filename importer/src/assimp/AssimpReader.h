#pragma once

#include "../ModelSource.h"
#include "../ProgressReporter.h"
#include "../checks/Findings.h"

#include <assimp/scene.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace kel::importer::detail {

struct AssimpScene {
    std::unique_ptr<aiScene> scene;
    std::string format; ///< for people
    /// Files beside the model that it names and that could not be opened, each once.
    std::vector<std::string> missingFiles;
    /// Whether every position is finite that a primitive of a mesh in use has.
    bool positionsAreFinite = false;
    /// Polygons of more than three corners that were left out since a position is not finite.
    std::size_t brokenPolygons = 0;
};

/// Reads the scene with polygons triangulated and otherwise as it is in the file.
///
/// Every index of the scene is valid on return: faces to vertices, nodes to meshes, meshes to materials.
///
/// findings       what the reader gets in place of the model is freed as soon as it has been read
/// onBadGeometry  FAIL refuses positions that are not finite; DROP leaves those of points, lines and
///                triangles to the caller
/// throws         ImportError
AssimpScene readWithAssimp(const ModelSource& source, Findings& findings, BadGeometry onBadGeometry,
                           ProgressReporter& progress);

} // namespace kel::importer::detail
