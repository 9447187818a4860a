#pragma once

#include "../ModelSource.h"
#include "../checks/Content.h"
#include "../checks/Findings.h"
#include "GltfDocument.h"

#include <memory>

namespace kel::importer::detail {

/// Reads and checks the document; null for glTF 1.
///
/// throws  ImportError
std::shared_ptr<const GltfDocument> readGltf(const ModelSource& source, const Content& content, bool binary,
                                             Findings& findings);

} // namespace kel::importer::detail
