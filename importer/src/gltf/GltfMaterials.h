#pragma once

#include "../model/Model.h"
#include "GltfJson.h"

#include <cstddef>
#include <map>
#include <vector>

namespace kel::importer::detail {

/// How KHR_texture_transform maps texture coordinates: scaled, then turned, then moved.
struct GltfTextureTransform {
    double offset[2] = {0, 0}, rotation = 0, scale[2] = {1, 1};

    bool operator==(const GltfTextureTransform& other) const;
};

struct GltfMaterials {
    std::vector<ModelMaterial> materials;
    /// For each material, the transform that all of its textures apply to the coordinates of a set, where they
    /// agree on one. It is what coordinates stored as whole numbers need to mean anything.
    std::vector<std::map<std::size_t, GltfTextureTransform>> transforms;
};

/// throws  ImportError
GltfMaterials readMaterials(const GltfObject& document);

} // namespace kel::importer::detail
