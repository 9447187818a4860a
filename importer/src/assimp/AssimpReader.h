#pragma once

#include "../ModelSource.h"
#include "../model/Model.h"

#include <assimp/scene.h>

#include <cstddef>
#include <memory>
#include <set>
#include <string>

namespace Assimp {
class IOSystem;
}

namespace kel::importer::detail {

/// Reads a model with polygons triangulated and otherwise as it is in the file.
///
/// throws  ImportError
std::unique_ptr<Model> readWithAssimp(const ModelSource& source, const ImportOptions& options,
                                      ProgressReporter& progress);

// ---- Its parts ------------------------------------------------------------------------------------------

/// The stage in which Assimp reads.
constexpr const char* READING = "reading";

/// The file system, with the model in memory where there is one, and a list of what was asked for in vain.
///
/// missing  gets the names of files that could not be opened
/// returns  with new; Assimp takes it over. It refers to its arguments.
Assimp::IOSystem* newAssimpFiles(const ModelSource& source, ProgressReporter& progress,
                                 std::set<std::string>& missing);

// ---- What a scene must keep before anybody looks into its meshes ----------------------------------------

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
