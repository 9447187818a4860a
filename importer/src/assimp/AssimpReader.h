#pragma once

#include "../checks/Checks.h"

#include <assimp/scene.h>

#include <cmath>
#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace Assimp {
class IOSystem;
}

namespace kel::importer::detail {

struct AssimpScene {
    std::unique_ptr<aiScene> scene;
    std::string format;                 ///< for people
    std::set<std::string> missingFiles; ///< beside the model, which names them; they could not be opened
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

// ---- Its parts ------------------------------------------------------------------------------------------

/// The stage in which Assimp reads.
constexpr const char* READING = "reading";

/// The file system, with the model in memory where there is one, and a list of what was asked for in vain.
///
/// missing  gets the names of files that could not be opened
/// returns  with new; Assimp takes it over. It refers to its arguments.
Assimp::IOSystem* newAssimpFiles(const ModelSource& source, const Findings& findings,
                                 ProgressReporter& progress, std::set<std::string>& missing);

// ---- What a scene must keep before anybody looks into its meshes ----------------------------------------

/// Calls `visit` for the root and every node below it, children in no order that means anything.
template<typename Visit>
void forEachNode(const aiScene& scene, const Visit& visit) {
    // Not recursive: how deep the nodes are nested is the file's choice.
    std::vector<const aiNode*> waiting;
    if (scene.mRootNode) waiting.push_back(scene.mRootNode);
    while (!waiting.empty()) {
        const aiNode* node = waiting.back();
        waiting.pop_back();
        visit(*node);
        waiting.insert(waiting.end(), node->mChildren, node->mChildren + node->mNumChildren);
    }
}

inline bool isFinite(const aiVector3D& v) {
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

/// Puts meshes that no node reaches any more where the reader of RAW files lost them.
void repairTree(aiScene& scene);

/// Refuses faces with indices beyond the vertices of their mesh, and nodes with meshes that do not exist.
///
/// returns  whether there are polygons, of more than three corners
bool checkIndices(const ModelSource& source, const aiScene& scene);

/// Refuses positions that are not finite and that a primitive of a mesh in use needs.
void refuseNotFinite(const ModelSource& source, const aiScene& scene);

/// Takes out polygons with a position that is not finite.
///
/// polygons  whether there are polygons, before and afterwards
/// returns   how many were taken out
std::size_t removeBrokenPolygons(aiScene& scene, bool& polygons);

} // namespace kel::importer::detail
