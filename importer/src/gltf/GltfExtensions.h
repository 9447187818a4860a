#pragma once

#include "../model/Model.h"
#include "GltfJson.h"

namespace kel::importer::detail {

/// Refuses a document that requires an extension unknown here, and reports the others that are not read.
///
/// throws  ImportError UNSUPPORTED_EXTENSION
void checkExtensions(const GltfObject& document, Model& model);

} // namespace kel::importer::detail
