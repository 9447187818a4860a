#include <kel/convert/ComparableScene.h>

#include "MeshFacts.h"

#include <kel/convert/ConvertError.h>
#include <kel/convert/OpenSrc.h>
#include <kel/importer/detail/ImportScene.h>
#include <kel/mesh/AttributeNames.h>
#include <kel/mesh/ForEachPrimitive.h>
#include <kel/mesh/Mesh.h>
#include <kel/scene/Scene.h>
#include <kel/src/format/MetadataKeys.h>

#include <cstring>
#include <utility>

namespace kel::convert {

namespace {

namespace format = kel::src::format;
using kel::mesh::DEFAULT_NORMALS_NAME;
using kel::mesh::DEFAULT_POSITIONS_NAME;
using kel::src::SRC_NONE;

/// Lists single primitives; `indexAt` gives the vertex of a position in the index list. False when an index
/// is not below the number of vertices.
template<typename IndexAt>
bool fillCorners(kel::mesh::PrimitiveType type, std::size_t count, const IndexAt& indexAt,
                 ComparableMesh& mesh) {
    mesh.cornersPerPrimitive = kel::mesh::cornersPerPrimitive(type);
    bool inside = true;
    kel::mesh::forEachPrimitive(type, count, [&](const std::array<std::size_t, 3>& places, std::size_t size) {
        for (std::size_t i = 0; i < size; ++i) {
            const std::size_t index = indexAt(places[i]);
            inside = inside && index < mesh.positions.size();
            mesh.corners.push_back(static_cast<std::uint32_t>(index));
        }
    });
    return inside;
}

std::vector<std::array<float, 3>> vectorsOf(const std::vector<float>& values) {
    std::vector<std::array<float, 3>> vectors(values.size() / 3);
    if (!vectors.empty()) std::memcpy(vectors.data(), values.data(), vectors.size() * sizeof vectors[0]);
    return vectors;
}

std::vector<std::array<float, 3>> vectorsOf(const kel::mesh::Mesh& mesh, const std::string& name) {
    const auto buffer = mesh.getAttributeBuffer(name);
    if (!buffer || !buffer->isVec3f()) return {};
    std::vector<std::array<float, 3>> vectors(buffer->getElementCount());
    for (std::size_t i = 0; i < vectors.size(); ++i)
        buffer->getElement(i, vectors[i].data());
    return vectors;
}

ComparableScene fromScene(kel::scene::Scene scene) {
    ComparableScene comparable;
    comparable.meshes.reserve(scene.meshes.size());
    for (auto& entry : scene.meshes) {
        ComparableMesh& mesh = comparable.meshes.emplace_back();
        const kel::mesh::MeshPtr source = std::move(entry.mesh);
        if (!source) continue;
        mesh.name = nameOfMesh(entry);
        for (std::size_t i = 0; i < source->getNumAttributeBuffers(); ++i)
            mesh.attributes.insert(source->getAttributeBuffer(i)->getAttributeName());
        mesh.positions = vectorsOf(*source, DEFAULT_POSITIONS_NAME);
        mesh.normals = vectorsOf(*source, DEFAULT_NORMALS_NAME);
        if (mesh.normals.size() != mesh.positions.size()) mesh.normals.clear();
        const auto indices = source->getIndexBuffer();
        fillCorners(
            source->getPrimitiveType(), indices ? indices->getElementCount() : mesh.positions.size(),
            [&](std::size_t place) { return indices ? indices->getIndex(place) : place; }, mesh);
        mesh.hasMaterial = entry.material != nullptr;
        for (auto& [parameter, values] : classicValues(entry.material.get()))
            mesh.material.emplace(parameterName(parameter), std::move(values));
        if (entry.metaData) mesh.metadata = *entry.metaData;
    }
    return comparable;
}

} // namespace

Bounds ComparableMesh::bounds() const {
    Bounds box;
    for (const std::uint32_t corner : corners) {
        const auto& p = positions[corner];
        box.add(std::array<double, 3>{static_cast<double>(p[0]), static_cast<double>(p[1]),
                                      static_cast<double>(p[2])});
    }
    return box;
}

GeometryCounts ComparableMesh::counts() const {
    GeometryCounts counts;
    counts.meshes = 1;
    counts.vertices = positions.size();
    primitivesIn(counts, cornersPerPrimitive) = primitives();
    return counts;
}

ComparableScene comparableScene(const kel::src::SrcFile& file, const std::string& name) {
    ComparableScene scene;
    std::vector<std::map<std::string, std::vector<double>>> materials;
    for (const auto& source : file.materials()) {
        auto& material = materials.emplace_back();
        for (const auto& parameter : format::MATERIAL_PARAMETERS)
            material[std::string(parameter.name)] = file.materialParameter(source, parameter.name);
        // Not the technique's default: its writer has no word for transparency.
        auto& transparency = material[std::string(parameterName(format::TRANSPARENCY))];
        transparency = {0.0};
        for (const auto& member : kel::src::jsonMembers(source.values)) {
            if (member.key == parameterName(format::TRANSPARENCY))
                kel::src::jsonNumbers(member.json, transparency);
        }
    }
    for (const auto& source : file.meshes()) {
        ComparableMesh mesh;
        kel::src::DecodedMesh decoded = decodeMesh(file, source);
        for (auto& attribute : decoded.attributes) {
            mesh.attributes.insert(attribute.name);
            if (attribute.components != 3) continue;
            if (attribute.name == DEFAULT_POSITIONS_NAME) mesh.positions = vectorsOf(attribute.values);
            if (attribute.name == DEFAULT_NORMALS_NAME) mesh.normals = vectorsOf(attribute.values);
        }
        if (mesh.normals.size() != mesh.positions.size()) mesh.normals.clear();
        const bool inside = fillCorners(
            source.primitive, decoded.indexed ? decoded.indices.size() : mesh.positions.size(),
            [&](std::size_t place) -> std::size_t {
                return decoded.indexed ? decoded.indices[place] : place;
            },
            mesh);
        if (!inside) throw ConvertError(ConvertCode::INDEX_WITHOUT_VERTEX, name, source.id);
        mesh.hasMaterial = source.material != SRC_NONE;
        if (mesh.hasMaterial) mesh.material = materials[source.material];
        for (auto& member : kel::src::jsonMembers(source.metadata)) {
            if (member.key == format::metadata::NAME) kel::src::jsonString(member.json, mesh.name);
            mesh.metadata.emplace(std::move(member.key), member.json);
        }
        scene.meshes.push_back(std::move(mesh));
    }
    return scene;
}

ComparableScene comparableScene(const kel::src::SrcWriterInput& input) {
    return fromScene(kel::scene::fromInput(input));
}

ComparableScene openComparable(const std::string& path, const ProcessHooks& hooks) {
    try {
        if (looksLikeSrc(path)) return comparableScene(openSrc(path), path);
        const auto token = hooks.onImport ? hooks.onImport(path) : ProcessHooks::Token();
        return fromScene(kel::importer::detail::importScene(std::filesystem::path(path)).scene);
    } catch (const kel::importer::ImportError& error) {
        throw ConvertError(ConvertCode::IMPORT_REFUSED, "", error.what());
    } catch (const kel::src::SrcError& error) {
        throw ConvertError(ConvertCode::SRC_REFUSED, path, error.what());
    }
}

} // namespace kel::convert
