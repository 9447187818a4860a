#pragma once

#include "../ModelSource.h"
#include "../ProgressReporter.h"
#include "../assimp/AssimpReader.h"
#include "../checks/Findings.h"

#include <kel/importer/detail/ImportScene.h>

namespace kel::importer::detail {

/// Turns the scene into meshes and frees each part of it after its last use.
///
/// throws  ImportError
ImportedScene convertScene(AssimpScene read, const Findings& findings, const ModelSource& source,
                           ProgressReporter& progress);

} // namespace kel::importer::detail
