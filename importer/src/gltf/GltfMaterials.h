#pragma once

#include "../model/Model.h"
#include "GltfJson.h"

#include <vector>

namespace kel::importer::detail {

/// throws  ImportError
std::vector<ModelMaterial> readMaterials(const GltfObject& document);

} // namespace kel::importer::detail
