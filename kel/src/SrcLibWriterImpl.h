#pragma once

#include <kel/material/Material.h>
#include <kel/mesh/Mesh.h>
#include <kel/src/Export.h>
#include <kel/src/SrcWriterInput.h>

#include <src/builder/MeshBuilder.h>
#include <src/builder/SrcBuilder.h>

#include <iosfwd>
#include <map>
#include <memory>
#include <string>

/// The export through the SRC builder library. Which operations it calls, on the input and on the builder,
/// and in which order, is a contract: meshes and builder may be other libraries' own. Only buffers of exactly
/// our types are read in bulk.
namespace kel::src::detail {

using MeshBuilderPtr = std::shared_ptr<::src::builder::MeshBuilder>;
using SrcBuilderPtr = std::shared_ptr<::src::builder::SrcBuilder>;

/// Adds one mesh's attributes and bounds.
using MeshEncoder = void (*)(const kel::mesh::MeshPtr&, MeshBuilderPtr&, SrcBuilderPtr&);

/// Every attribute as stored; bounds from three-float positions, none without.
KELSRC_EXPORT void createMeshUncompressed(const kel::mesh::MeshPtr& mesh, MeshBuilderPtr& meshBuilder,
                                          SrcBuilderPtr& builder);

/// "position" as three 16-bit codes, everything else as stored. Every mesh must have three-float positions: with
/// others it looks for them again and again and does not return.
KELSRC_EXPORT void createMeshPosCompressed(const kel::mesh::MeshPtr& mesh, MeshBuilderPtr& meshBuilder,
                                           SrcBuilderPtr& builder);

/// The one attribute "pos3us_nor2ub_oct", 8 bytes per vertex: three 16-bit position codes and two octahedral
/// normal bytes. Where there are fewer normals than positions, the missing ones are zero bytes. A mesh
/// without three-float normals goes to createMeshPosCompressed.
///
/// Positions are read as three floats. A foreign buffer is not asked whether it has them; of one that has fewer,
/// the others are 0.
///
/// throws  std::invalid_argument for a mesh with such normals but without positions, or with positions in a buffer
///         of this project's own that does not hold three floats
KELSRC_EXPORT void createMeshPosNormalCompressed(const kel::mesh::MeshPtr& mesh, MeshBuilderPtr& meshBuilder,
                                                 SrcBuilderPtr& builder);

/// The same number for 5121 to 5126, BYTE for everything else.
KELSRC_EXPORT ::src::ComponentType meshComponentTypeToSrcComponentType(kel::mesh::ComponentType type);

/// Adds the standard technique, always, and every material, and tells which is which. An empty pointer and a
/// material that is not classic become an empty builder material.
KELSRC_EXPORT std::map<std::shared_ptr<kel::material::Material>, std::shared_ptr<::src::Material>>
processMaterials(SrcBuilderPtr& builder, const decltype(SrcWriterInput::materials)& materials);

/// The builder material with those parameters of the technique that the material has as attributes.
KELSRC_EXPORT std::shared_ptr<::src::Material>
createSrcMaterial(std::shared_ptr<kel::material::Material> material,
                  std::shared_ptr<::src::Technique> technique, const std::string& name);

/// {"key" : value,"key" : value}: keys and values as they come, so a value must be a JSON text already.
KELSRC_EXPORT std::string createJsonValueString(std::map<std::string, std::string> values);

/// The two maps one after the other: a to second[first[a]], without the pairs that `second` does not know.
template<typename A, typename B, typename C>
std::map<A, C> concatenate(const std::map<A, B>& first, const std::map<B, C>& second) {
    std::map<A, C> both;
    for (const auto& [a, b] : first) {
        const auto found = second.find(b);
        if (found != second.end()) both.emplace_hint(both.end(), a, found->second);
    }
    return both;
}

/// Walks the meshes: one builder mesh each, then the whole document to `out`. Nothing is written before the
/// last mesh is done.
template<typename MeshCreateFunction>
KELSRC_EXPORT void writeMeshSrcTemplate(const decltype(SrcWriterInput::meshes)& meshes,
                                        const decltype(SrcWriterInput::metaData)& metaData,
                                        const decltype(SrcWriterInput::materials)& materials,
                                        const decltype(SrcWriterInput::meshMaterials)& meshMaterials,
                                        std::ostream& out, MeshCreateFunction createMesh);

KELSRC_EXPORT void writeMeshSrcUncompressed(const SrcWriterInput& input, std::ostream& out);
KELSRC_EXPORT void writeMeshSrcPosCompressed(const SrcWriterInput& input, std::ostream& out);
KELSRC_EXPORT void writeMeshSrcPosNormalCompressed(const SrcWriterInput& input, std::ostream& out);

} // namespace kel::src::detail
