#pragma once

#include "GltfMaterials.h"
#include "GltfPose.h"

#include <map>

namespace kel::importer::detail {

/// Reads one primitive, bent by a pose.
///
/// place       of the primitive, for messages
/// transforms  of texture coordinates, of the primitive's material
/// dropped     gets what the part does not take along, and notes what is worth knowing
/// throws      ImportError
ModelPart readPart(const ModelSource& source, const GltfData& data, const GltfPrimitive& primitive,
                   const GltfPlace& place, const std::map<std::size_t, GltfTextureTransform>& transforms,
                   const GltfPose& pose, std::vector<Dropped>& dropped, std::vector<std::string>& notes);

} // namespace kel::importer::detail
