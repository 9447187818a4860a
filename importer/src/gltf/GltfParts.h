#pragma once

#include "GltfPose.h"

namespace kel::importer::detail {

/// Reads one primitive, bent by a pose.
///
/// place    of the primitive, for messages
/// dropped  gets what the part does not take along, and notes what is worth knowing
/// throws   ImportError
ModelPart readPart(const ModelSource& source, const GltfData& data, const GltfPrimitive& primitive,
                   const GltfPlace& place, const GltfPose& pose, std::vector<Dropped>& dropped,
                   std::vector<std::string>& notes);

} // namespace kel::importer::detail
