#pragma once

#include "../ModelSource.h"

#include <assimp/scene.h>

#include <cmath>
#include <cstddef>

/// What a scene that Assimp has read must keep before anybody looks into its meshes.
namespace kel::importer::detail {

inline bool isFinite(const aiVector3D& v) {
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

/// Puts meshes that no node reaches any more where the reader of RAW files lost them.
void repairTree(aiScene& scene);

/// Refuses faces with indices beyond the vertices of their mesh.
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

/// Refuses nodes that use meshes that do not exist.
void checkMeshesOf(const ModelSource& source, const aiScene& scene, const aiNode& node);

} // namespace kel::importer::detail
