#pragma once

#include <kel/src/SrcWriterInput.h>

#include <array>
#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// What the importer makes and preparation works on, before a writer gets it: a list of meshes, each with
/// everything that belongs to it. Not installed: callers hold a SrcWriterInput.
namespace kel::scene {

using MetaData = kel::src::MetaDataPtr::element_type;

/// A mesh with its material and metadata.
struct SceneMesh {
    kel::mesh::MeshPtr mesh;                           ///< may be empty only in a caller's own input
    std::shared_ptr<kel::material::Material> material; ///< empty for none
    kel::src::MetaDataPtr metaData;                    ///< JSON texts by key; empty for none
    bool ownsMetaData = false; ///< false: the map is the caller's and is copied before it is changed

    /// The map, to be changed: nobody else's any more, made where there was none.
    MetaData& editMetaData() {
        if (!metaData || !ownsMetaData)
            metaData = metaData ? std::make_shared<MetaData>(*metaData) : std::make_shared<MetaData>();
        ownsMetaData = true;
        return *metaData;
    }
    /// Adds an entry, or replaces the one of this key.
    void setMetaData(std::string_view key, std::string json) {
        editMetaData()[std::string(key)] = std::move(json);
    }
    /// The text of an entry; null where there is none.
    const std::string* find(std::string_view key) const {
        if (!metaData) return nullptr;
        const auto found = metaData->find(std::string(key));
        return found == metaData->end() ? nullptr : &found->second;
    }
};

/// Moved from step to step; a step changes the entries that it has to and leaves the others alone.
struct Scene {
    std::vector<SceneMesh> meshes;
    /// Every material that the public writer writes, used or not.
    std::set<std::shared_ptr<kel::material::Material>> materials;
    /// Where the zero of all positions lies in the model: what the metadata's "origin" says of each mesh.
    std::array<double, 3> origin{};
    bool useCompressedPreset = false;
    /// Whether several entries may have the same mesh; they have the same material and metadata then. Only a
    /// caller's own input lists meshes twice.
    bool repeatsMeshes = false;
};

/// The caller's input as a scene. Nothing is copied: meshes, maps and materials are shared. A mesh that is
/// listed twice becomes two entries. What the input says of meshes that it does not list is left out.
Scene fromInput(const kel::src::SrcWriterInput& input);

/// What a writer takes. Meshes and maps are moved there.
kel::src::SrcWriterInput toInput(Scene scene);

/// The name of a mesh for people: the content of its metadata's "name"; empty when there is none.
std::string nameOfMesh(const SceneMesh& mesh);

/// For messages: `Mesh 3 ("bolt")`, or `Mesh 3` without a name.
std::string placeOfMesh(std::size_t position, const std::string& name);
std::string placeOfMesh(const Scene& scene, std::size_t position);

} // namespace kel::scene
