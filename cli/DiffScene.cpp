#include "DiffScene.h"

#include "ImporterCrash.h"
#include "Status.h"

#include <kel/importer/Importer.h>
#include <kel/material/MaterialClassic.h>
#include <kel/mesh/AttributeNames.h>
#include <kel/mesh/ForEachPrimitive.h>
#include <kel/mesh/Mesh.h>
#include <kel/prepare/MeshName.h>

#include <cstring>
#include <fstream>

namespace kelsrc::cli {

namespace {

using kel::mesh::DEFAULT_NORMALS_NAME;
using kel::mesh::DEFAULT_POSITIONS_NAME;
using kel::src::SRC_NONE;

/// Lists single primitives; `indexAt` gives the vertex of a position in the index list. False when an index
/// is not below the number of vertices.
template<typename IndexAt>
bool fillCorners(kel::mesh::PrimitiveType type, std::size_t count, const IndexAt& indexAt, DiffMesh& mesh) {
    const std::string kind = kindOf(type);
    mesh.cornersPerPrimitive = kind == "points" ? 1 : kind == "lines" ? 2 : 3;
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

std::vector<double> numbersOf(const glm::vec3& v) {
    return {static_cast<double>(v.x), static_cast<double>(v.y), static_cast<double>(v.z)};
}

} // namespace

Bounds DiffMesh::bounds() const {
    Bounds box;
    for (const std::uint32_t corner : corners) {
        const auto& p = positions[corner];
        box.add(std::array<double, 3>{static_cast<double>(p[0]), static_cast<double>(p[1]),
                                      static_cast<double>(p[2])});
    }
    return box;
}

DiffScene sceneOf(const kel::src::SrcFile& file, const std::string& name, bool applyFit) {
    DiffScene scene;
    std::vector<std::map<std::string, std::vector<double>>> materials;
    for (const auto& source : file.materials()) {
        auto& material = materials.emplace_back();
        for (const char* parameter :
             {"diffuseColor", "specularColor", "emissiveColor", "ambientIntensity", "shininess"})
            material[parameter] = file.materialParameter(source, parameter);
        // Not the technique's default: its writer has no word for transparency.
        material["transparency"] = {0.0};
        for (const auto& member : kel::src::jsonMembers(source.values)) {
            if (member.key == "transparency") kel::src::jsonNumbers(member.json, material["transparency"]);
        }
    }
    for (const auto& source : file.meshes()) {
        DiffMesh mesh;
        mesh.name = nameOf(source);
        kel::src::DecodeOptions options;
        options.applyFit = applyFit;
        kel::src::DecodedMesh decoded = decodeMesh(file, source, options);
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
        if (!inside)
            throw Failure(STATUS_INPUT, name,
                          "mesh \"" + std::string(source.id) + "\" uses vertices that it does not have",
                          "\"kelsrc validate\" tells where.");
        mesh.hasMaterial = source.material != SRC_NONE;
        if (mesh.hasMaterial) mesh.material = materials[source.material];
        for (auto& member : kel::src::jsonMembers(source.metadata))
            mesh.metadata.emplace(std::move(member.key), member.json);
        scene.meshes.push_back(std::move(mesh));
    }
    return scene;
}

DiffScene sceneOf(const kel::src::SrcWriterInput& input) {
    DiffScene scene;
    for (const auto& source : input.meshes) {
        DiffMesh mesh;
        mesh.name = kel::prepare::meshName(input, source);
        for (std::size_t i = 0; i < source->getNumAttributeBuffers(); ++i)
            mesh.attributes.insert(source->getAttributeBuffer(i)->getAttributeName());
        mesh.positions = vectorsOf(*source, DEFAULT_POSITIONS_NAME);
        mesh.normals = vectorsOf(*source, DEFAULT_NORMALS_NAME);
        if (mesh.normals.size() != mesh.positions.size()) mesh.normals.clear();
        const auto indices = source->getIndexBuffer();
        fillCorners(
            source->getPrimitiveType(), indices ? indices->getElementCount() : mesh.positions.size(),
            [&](std::size_t place) { return indices ? indices->getIndex(place) : place; }, mesh);
        const auto material = input.meshMaterials.find(source);
        if (material != input.meshMaterials.end()) {
            mesh.hasMaterial = material->second != nullptr;
            const auto classic = std::dynamic_pointer_cast<kel::material::MaterialClassic>(material->second);
            if (classic) {
                mesh.material["diffuseColor"] = numbersOf(classic->getDiffuse());
                mesh.material["specularColor"] = numbersOf(classic->getSpecular());
                mesh.material["emissiveColor"] = numbersOf(classic->getEmissive());
                mesh.material["ambientIntensity"] = {static_cast<double>(classic->getAmbient())};
                mesh.material["shininess"] = {static_cast<double>(classic->getShininess())};
                mesh.material["transparency"] = {static_cast<double>(classic->getTransparency())};
            }
        }
        const auto metadata = input.metaData.find(source);
        if (metadata != input.metaData.end() && metadata->second) mesh.metadata = *metadata->second;
        scene.meshes.push_back(std::move(mesh));
    }
    return scene;
}

DiffScene openScene(const std::string& path) {
    try {
        if (looksLikeSrc(path)) {
            std::ifstream unused;
            return sceneOf(openSrcFile(path, unused), path);
        }
        const ImporterCrash onCrash(path);
        return sceneOf(kel::importer::importModel(std::filesystem::path(path)).input);
    } catch (const kel::importer::ImportError& error) {
        throw Failure(STATUS_INPUT, "", error.what());
    } catch (const kel::src::SrcError& error) {
        throw Failure(STATUS_INPUT, path, error.what());
    }
}

} // namespace kelsrc::cli
