#pragma once

#include "../model/Model.h"
#include "Archive.h"

#include <string>

/// What goes from one process to the other, field by field. A field that is added to a struct and not here does not
/// compile.
namespace kel::importer::detail {

template<>
constexpr kel::mesh::PrimitiveType LARGEST<kel::mesh::PrimitiveType> = kel::mesh::TRIANGLE_FAN;
template<>
constexpr ImportCode LARGEST<ImportCode> = static_cast<ImportCode>(IMPORT_CODE_COUNT - 1);
template<>
constexpr BadGeometry LARGEST<BadGeometry> = BadGeometry::DROP;
template<>
constexpr Origin::Choice LARGEST<Origin::Choice> = Origin::GIVEN;

// ---- What is asked for ----------------------------------------------------------------------------------

/// Which reader shall read.
enum class ReaderKind : std::uint8_t { ASSIMP, GLTF };
template<>
constexpr ReaderKind LARGEST<ReaderKind> = ReaderKind::GLTF;

struct ReadRequest {
    ReaderKind reader = ReaderKind::ASSIMP;
    std::string name, disk, path, guess; ///< see ModelSource
    bool isInMemory = false;             ///< whether the bytes come along
    BadGeometry onBadGeometry = BadGeometry::FAIL;
    Origin origin;
    std::optional<std::string> scene;
    std::uint64_t maxCopiedBytes = 0;
    std::uint64_t memory = 0; ///< bytes; 0 for no limit
};

template<typename Archive>
void forEachField(Archive& archive, Origin& value) {
    auto& [choice, at] = value;
    archive(choice, at);
}

template<typename Archive>
void forEachField(Archive& archive, ReadRequest& value) {
    auto& [reader, name, disk, path, guess, isInMemory, onBadGeometry, origin, scene, maxCopiedBytes,
           memory] = value;
    archive(reader, name, disk, path, guess, isInMemory, onBadGeometry, origin, scene, maxCopiedBytes,
            memory);
}

// ---- What comes back ------------------------------------------------------------------------------------

/// An ImportError without the file.
struct Refusal {
    ImportCode code = ImportCode::INVALID_MODEL;
    std::string what, place, remedy;
};

template<typename Archive>
void forEachField(Archive& archive, Refusal& value) {
    auto& [code, what, place, remedy] = value;
    archive(code, what, place, remedy);
}

template<typename Archive>
void forEachField(Archive& archive, Dropped& value) {
    auto& [kind, count, detail] = value;
    archive(kind, count, detail);
}

template<typename Archive>
void forEachField(Archive& archive, ModelAttribute& value) {
    auto& [name, width, values, doubles] = value;
    archive(name, width, values, doubles);
}

template<typename Archive>
void forEachField(Archive& archive, ModelPart& value) {
    auto& [type, indices, attributes, isIndexed, hasMadeNormals, material] = value;
    archive(type, indices, attributes, isIndexed, hasMadeNormals, material);
}

template<typename Archive>
void forEachField(Archive& archive, ModelMesh& value) {
    auto& [name, place, metaData] = value;
    archive(name, place, metaData);
}

template<typename Archive>
void forEachField(Archive& archive, ModelNode& value) {
    auto& [name, parent, transform, meshes, meshesInScene, instances, extras, isOwn] = value;
    archive(name, parent, transform, meshes, meshesInScene, instances, extras, isOwn);
}

template<typename Archive>
void forEachField(Archive& archive, ModelMaterial::MetallicRoughness& value) {
    auto& [baseColor, metallic, roughness, blends, unlit] = value;
    archive(baseColor, metallic, roughness, blends, unlit);
}

template<typename Archive>
void forEachField(Archive& archive, ModelMaterial& value) {
    auto& [name, identifier, metallicRoughness, diffuse, ambient, specular, emissive, specularStrength,
           phongExponent, glossiness, opacity, twoSided, metaData] = value;
    archive(name, identifier, metallicRoughness, diffuse, ambient, specular, emissive, specularStrength,
            phongExponent, glossiness, opacity, twoSided, metaData);
}

/// All but the parts of the meshes.
template<typename Archive>
void forEachField(Archive& archive, Model& value) {
    auto& [format, unit, upAxis, nodes, meshes, materials, metaData, dropped, notes, mayCrash] = value;
    archive(format, unit, upAxis, nodes, meshes, materials, metaData, dropped, notes, mayCrash);
}

} // namespace kel::importer::detail
