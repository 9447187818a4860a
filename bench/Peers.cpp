// The other writers, each used as its documentation shows.

#include "Peers.h"

#include <draco/compression/encode.h>
#include <draco/mesh/mesh.h>
#include <meshoptimizer.h>

#include <assimp/Exporter.hpp>
#include <assimp/material.h>
#include <assimp/mesh.h>
#include <assimp/scene.h>

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"
#endif
#include <tiny_gltf.h>
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

#include <algorithm>
#include <ostream>
#include <stdexcept>
#include <string>

namespace kel::bench {

namespace {

tinygltf::Model toGltf(const Scene& s, std::size_t nodesPerMesh) {
    tinygltf::Model model;
    model.asset.version = "2.0";
    model.buffers.resize(1);
    auto& bytes = model.buffers[0].data;
    bytes.reserve(s.inputBytes());
    const auto add = [&](const void* data, std::size_t size, int target, int componentType, int type,
                         std::size_t count) {
        tinygltf::BufferView view;
        view.buffer = 0;
        view.byteOffset = bytes.size();
        view.byteLength = size;
        view.target = target;
        const auto* from = static_cast<const unsigned char*>(data);
        bytes.insert(bytes.end(), from, from + size);
        model.bufferViews.push_back(view);
        tinygltf::Accessor accessor;
        accessor.bufferView = static_cast<int>(model.bufferViews.size()) - 1;
        accessor.componentType = componentType;
        accessor.count = count;
        accessor.type = type;
        model.accessors.push_back(accessor);
        return static_cast<int>(model.accessors.size()) - 1;
    };
    const std::size_t vertices = s.verticesPerMesh();
    const bool narrow = s.hasShortIndices();
    tinygltf::Scene root;
    for (std::size_t i = 0; i < s.meshes; ++i) {
        const Sphere& sphere = s.spheres[i];
        std::vector<std::uint16_t> indices16;
        if (narrow) indices16.assign(sphere.indices.begin(), sphere.indices.end());
        tinygltf::Primitive primitive;
        primitive.mode = TINYGLTF_MODE_TRIANGLES;
        primitive.attributes["POSITION"] =
            add(sphere.positions.data(), vertices * 12, TINYGLTF_TARGET_ARRAY_BUFFER,
                TINYGLTF_COMPONENT_TYPE_FLOAT, TINYGLTF_TYPE_VEC3, vertices);
        model.accessors.back().minValues.assign(sphere.lower.begin(), sphere.lower.end());
        model.accessors.back().maxValues.assign(sphere.upper.begin(), sphere.upper.end());
        primitive.attributes["NORMAL"] =
            add(sphere.normals.data(), vertices * 12, TINYGLTF_TARGET_ARRAY_BUFFER,
                TINYGLTF_COMPONENT_TYPE_FLOAT, TINYGLTF_TYPE_VEC3, vertices);
        primitive.attributes["TEXCOORD_0"] =
            add(sphere.texcoords.data(), vertices * 8, TINYGLTF_TARGET_ARRAY_BUFFER,
                TINYGLTF_COMPONENT_TYPE_FLOAT, TINYGLTF_TYPE_VEC2, vertices);
        primitive.indices =
            add(narrow ? static_cast<const void*>(indices16.data()) : sphere.indices.data(),
                s.indexBytes() / s.meshes, TINYGLTF_TARGET_ELEMENT_ARRAY_BUFFER,
                narrow ? TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT : TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT,
                TINYGLTF_TYPE_SCALAR, sphere.indices.size());
        tinygltf::Mesh mesh;
        mesh.name = std::to_string(i);
        mesh.primitives.push_back(primitive);
        model.meshes.push_back(mesh);
        for (std::size_t n = 0; n < nodesPerMesh; ++n) {
            tinygltf::Node node;
            node.mesh = static_cast<int>(i);
            if (n > 0) node.translation = {static_cast<double>(n), 0.0, 0.0};
            root.nodes.push_back(static_cast<int>(model.nodes.size()));
            model.nodes.push_back(node);
        }
    }
    model.scenes.push_back(root);
    model.defaultScene = 0;
    return model;
}

} // namespace

void writeTinygltf(const Scene& scene, std::ostream& out, std::size_t nodesPerMesh) {
    tinygltf::Model model = toGltf(scene, nodesPerMesh);
    tinygltf::TinyGLTF writer;
    if (!writer.WriteGltfSceneToStream(&model, out, false, true)) throw std::runtime_error("tinygltf fails");
}

// ---- Assimp ---------------------------------------------------------------------------------------------

struct AssimpInput::Data {
    aiScene scene;
};

AssimpInput::AssimpInput(const Scene& s) : data(new Data) {
    aiScene& scene = data->scene;
    scene.mNumMaterials = 1;
    scene.mMaterials = new aiMaterial* [1] { new aiMaterial };
    scene.mNumMeshes = static_cast<unsigned>(s.meshes);
    scene.mMeshes = new aiMesh*[s.meshes];
    scene.mRootNode = new aiNode("root");
    scene.mRootNode->mNumChildren = scene.mNumMeshes;
    scene.mRootNode->mChildren = new aiNode*[s.meshes];
    const std::size_t vertices = s.verticesPerMesh(), triangles = s.indicesPerMesh() / 3;
    for (std::size_t i = 0; i < s.meshes; ++i) {
        const Sphere& sphere = s.spheres[i];
        auto* mesh = scene.mMeshes[i] = new aiMesh;
        mesh->mName = std::to_string(i);
        mesh->mPrimitiveTypes = aiPrimitiveType_TRIANGLE;
        mesh->mNumVertices = static_cast<unsigned>(vertices);
        mesh->mVertices = new aiVector3D[vertices];
        mesh->mNormals = new aiVector3D[vertices];
        mesh->mTextureCoords[0] = new aiVector3D[vertices];
        mesh->mNumUVComponents[0] = 2;
        for (std::size_t v = 0; v < vertices; ++v) {
            mesh->mVertices[v] = {sphere.positions[3 * v], sphere.positions[3 * v + 1],
                                  sphere.positions[3 * v + 2]};
            mesh->mNormals[v] = {sphere.normals[3 * v], sphere.normals[3 * v + 1], sphere.normals[3 * v + 2]};
            mesh->mTextureCoords[0][v] = {sphere.texcoords[2 * v], sphere.texcoords[2 * v + 1], 0};
        }
        mesh->mNumFaces = static_cast<unsigned>(triangles);
        mesh->mFaces = new aiFace[triangles];
        for (std::size_t t = 0; t < triangles; ++t) {
            mesh->mFaces[t].mNumIndices = 3;
            mesh->mFaces[t].mIndices =
                new unsigned[3]{sphere.indices[3 * t], sphere.indices[3 * t + 1], sphere.indices[3 * t + 2]};
        }
        auto* node = scene.mRootNode->mChildren[i] = new aiNode(std::to_string(i));
        node->mParent = scene.mRootNode;
        node->mNumMeshes = 1;
        node->mMeshes = new unsigned[1]{static_cast<unsigned>(i)};
    }
}

AssimpInput::~AssimpInput() = default;

void AssimpInput::write(std::ostream& out) const {
    Assimp::Exporter exporter;
    const aiExportDataBlob* blob = exporter.ExportToBlob(&data->scene, "glb2");
    if (!blob) throw std::runtime_error(exporter.GetErrorString());
    out.write(static_cast<const char*>(blob->data), static_cast<std::streamsize>(blob->size));
}

// ---- Draco ----------------------------------------------------------------------------------------------

struct DracoInput::Data {
    std::vector<std::unique_ptr<draco::Mesh>> meshes;
};

namespace {

void addDracoAttribute(draco::Mesh& mesh, draco::GeometryAttribute::Type type,
                       const std::vector<float>& values, int components) {
    const auto count = static_cast<std::uint32_t>(values.size() / static_cast<std::size_t>(components));
    draco::GeometryAttribute attribute;
    attribute.Init(type, nullptr, static_cast<std::int8_t>(components), draco::DT_FLOAT32, false,
                   static_cast<std::int64_t>(sizeof(float)) * components, 0);
    const int id = mesh.AddAttribute(attribute, true, count);
    for (std::uint32_t v = 0; v < count; ++v) {
        mesh.attribute(id)->SetAttributeValue(draco::AttributeValueIndex(v),
                                              &values[v * static_cast<std::size_t>(components)]);
    }
}

} // namespace

DracoInput::DracoInput(const Scene& s) : data(new Data) {
    for (std::size_t i = 0; i < s.meshes; ++i) {
        const Sphere& sphere = s.spheres[i];
        auto mesh = std::make_unique<draco::Mesh>();
        mesh->set_num_points(static_cast<std::uint32_t>(sphere.positions.size() / 3));
        addDracoAttribute(*mesh, draco::GeometryAttribute::POSITION, sphere.positions, 3);
        addDracoAttribute(*mesh, draco::GeometryAttribute::NORMAL, sphere.normals, 3);
        addDracoAttribute(*mesh, draco::GeometryAttribute::TEX_COORD, sphere.texcoords, 2);
        mesh->SetNumFaces(sphere.indices.size() / 3);
        for (std::uint32_t t = 0; t < mesh->num_faces(); ++t) {
            const std::uint32_t* corner = &sphere.indices[3 * static_cast<std::size_t>(t)];
            mesh->SetFace(draco::FaceIndex(t), {draco::PointIndex(corner[0]), draco::PointIndex(corner[1]),
                                                draco::PointIndex(corner[2])});
        }
        data->meshes.push_back(std::move(mesh));
    }
}

DracoInput::~DracoInput() = default;

void DracoInput::write(std::ostream& out, int speed) const {
    for (const auto& mesh : data->meshes) {
        draco::Encoder encoder;
        encoder.SetSpeedOptions(speed, speed);
        encoder.SetAttributeQuantization(draco::GeometryAttribute::POSITION, 11);
        encoder.SetAttributeQuantization(draco::GeometryAttribute::NORMAL, 8);
        encoder.SetAttributeQuantization(draco::GeometryAttribute::TEX_COORD, 10);
        draco::EncoderBuffer buffer;
        const draco::Status status = encoder.EncodeMeshToBuffer(*mesh, &buffer);
        if (!status.ok()) throw std::runtime_error(status.error_msg_string());
        out.write(buffer.data(), static_cast<std::streamsize>(buffer.size()));
    }
}

// ---- meshoptimizer --------------------------------------------------------------------------------------

void MeshoptimizerInput::write(std::ostream& out) const {
    struct Vertex {
        std::uint16_t position[4];
        std::int8_t normal[4];
        std::uint16_t texcoord[2];
    };
    const std::size_t vertices = scene.verticesPerMesh();
    std::vector<Vertex> quantized(vertices);
    std::vector<unsigned char> encoded(
        std::max(meshopt_encodeVertexBufferBound(vertices, sizeof(Vertex)),
                 meshopt_encodeIndexBufferBound(scene.indicesPerMesh(), vertices)));
    for (const Sphere& sphere : scene.spheres) {
        for (std::size_t v = 0; v < vertices; ++v) {
            for (std::size_t a = 0; a < 3; ++a) {
                quantized[v].position[a] =
                    static_cast<std::uint16_t>(meshopt_quantizeUnorm(sphere.positions[3 * v + a] + 0.5f, 16));
                quantized[v].normal[a] =
                    static_cast<std::int8_t>(meshopt_quantizeSnorm(sphere.normals[3 * v + a], 8));
            }
            for (std::size_t a = 0; a < 2; ++a) {
                quantized[v].texcoord[a] =
                    static_cast<std::uint16_t>(meshopt_quantizeUnorm(sphere.texcoords[2 * v + a], 16));
            }
        }
        std::size_t size = meshopt_encodeVertexBuffer(encoded.data(), encoded.size(), quantized.data(),
                                                      vertices, sizeof(Vertex));
        out.write(reinterpret_cast<const char*>(encoded.data()), static_cast<std::streamsize>(size));
        size = meshopt_encodeIndexBuffer(encoded.data(), encoded.size(), sphere.indices.data(),
                                         sphere.indices.size());
        out.write(reinterpret_cast<const char*>(encoded.data()), static_cast<std::streamsize>(size));
    }
}

} // namespace kel::bench
