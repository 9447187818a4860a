#pragma once

#include "AssimpReader.h"
#include "Source.h"

#include <kel/importer/detail/ImportScene.h>

namespace kel::importer::detail {

/// Turns the scene into meshes and frees each part of it after its last use.
///
/// throws  ImportError
ImportedScene convertScene(AssimpScene scene, const Findings& findings, const Source& source,
                           const ImportOptions& options, Stages& stages);

} // namespace kel::importer::detail
