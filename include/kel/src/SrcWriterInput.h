#pragma once

#include <kel/material/Material.h>
#include <kel/mesh/Mesh.h>
#include <kel/src/MetaDataPtr.h>

#include <map>
#include <memory>
#include <set>
#include <vector>

namespace kel::src {

/// What every writer takes. Meshes, materials and maps belong to the caller and are held through shared
/// pointers; meshes and materials are identified by pointer.
struct SrcWriterInput {
    /// Written in this order.
    std::vector<kel::mesh::MeshPtr> meshes;
    /// Every material that the public writer writes, once each; the container writer does not read it.
    std::set<std::shared_ptr<kel::material::Material>> materials;
    /// A mesh without an entry has no material.
    std::map<kel::mesh::MeshPtr, std::shared_ptr<kel::material::Material>> meshMaterials;
    /// Writers add statistics to these maps in place, so the caller sees them after the write.
    std::map<kel::mesh::MeshPtr, MetaDataPtr> metaData;
    /// Read by the container writer only: false selects the encoding preset "default", true "CMP1".
    bool useCompressedPreset = false;
};

} // namespace kel::src
