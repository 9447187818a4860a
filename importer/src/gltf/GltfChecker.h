#pragma once

#include "../checks/Findings.h"
#include "GltfAccessors.h"

namespace kel::importer::detail {

/// Walks through the document once, front to back of the references: buffers, views, accessors, primitives.
///
/// whole     the model; its binary chunk, which may be empty, lies at the offset
/// findings  gets what the reader will leave out
/// throws    ImportError
void checkGltf(const GltfFields& fields, std::shared_ptr<const Content> whole, std::uint64_t binaryOffset,
               std::uint64_t binaryLength, Findings& findings);

} // namespace kel::importer::detail
