#pragma once

#include "AssimpReader.h"
#include "Source.h"

namespace kel::importer::detail {

/// Turns the scene into meshes and frees each part of it after its last use.
///
/// throws  ImportError
ImportResult convertScene(AssimpScene scene, const Findings& findings, const Source& source,
                          const ImportOptions& options, Stages& stages);

} // namespace kel::importer::detail
