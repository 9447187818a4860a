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
    /// Polygons of more than three corners that were left out since a position is not finite.
    std::size_t brokenPolygons = 0;
};

bool isFinite(const aiVector3D& v);

/// Reads the scene with polygons triangulated and otherwise as it is in the file.
///
/// Every index of the scene is valid on return: faces to vertices, nodes to meshes, meshes to materials.
///
/// onBadGeometry  FAIL refuses positions that are not finite; DROP leaves those of points, lines and
///                triangles to the caller
/// throws         ImportError
AssimpScene readWithAssimp(const Source& source, const Findings& findings, BadGeometry onBadGeometry,
                           Stages& stages);

} // namespace kel::importer::detail
