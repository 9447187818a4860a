#pragma once

// Small meshes for tests, each with geometry that can be checked by eye.

#include <kel/material/MaterialClassic.h>
#include <kel/mesh/KelMesh.h>
#include <kel/src/SrcWriterInput.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace fixture {

using DefaultMeshPtr = std::shared_ptr<kel::mesh::DefaultMesh>;

/// The square from (0, 0, 0) to (1, 1, 0), facing +z: four vertices, two triangles of area 1/2, the
/// attributes "position", "normal" and "texcoord" (equal to x, y), indices of two bytes.
inline DefaultMeshPtr unitSquare() {
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
    mesh->addAttribute("position", 3, std::vector<float>{0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0});
    mesh->addAttribute("normal", 3, std::vector<float>{0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1});
    mesh->addAttribute("texcoord", 2, std::vector<float>{0, 0, 1, 0, 1, 1, 0, 1});
    mesh->setIndices(std::vector<std::uint16_t>{0, 1, 2, 0, 2, 3});
    return mesh;
}

/// The unit square with positions only.
inline DefaultMeshPtr noNormals() {
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
    mesh->addAttribute("position", 3, std::vector<float>{0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0});
    mesh->setIndices(std::vector<std::uint16_t>{0, 1, 2, 0, 2, 3});
    return mesh;
}

/// The tetrahedron with the corners (0, 0, 0), (1, 0, 0), (0, 1, 0), (0, 0, 1), faces outwards; positions
/// only, no side of its box is flat.
inline DefaultMeshPtr tetrahedron() {
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
    mesh->addAttribute("position", 3, std::vector<float>{0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1});
    mesh->setIndices(std::vector<std::uint16_t>{0, 2, 1, 0, 1, 3, 0, 3, 2, 1, 2, 3});
    return mesh;
}

/// The octahedron with its corners on the axes at -0.5 and 0.5, faces outwards, with unit normals that point
/// away from the origin: six vertices, eight triangles.
inline DefaultMeshPtr octahedron() {
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
    std::vector<float> corners = {1, 0, 0, -1, 0, 0, 0, 1, 0, 0, -1, 0, 0, 0, 1, 0, 0, -1};
    std::vector<float> positions = corners;
    for (float& component : positions)
        component *= 0.5f;
    mesh->addAttribute("position", 3, std::move(positions));
    mesh->addAttribute("normal", 3, std::move(corners));
    mesh->setIndices(std::vector<std::uint16_t>{0, 2, 4, 2, 1, 4, 1, 3, 4, 3, 0, 4, //
                                                2, 0, 5, 1, 2, 5, 3, 1, 5, 0, 3, 5});
    return mesh;
}

/// The unit square from (0, 0, 0) to (1, 1, 0) as `columns` times `rows` cells of two triangles each, row by
/// row, with (columns + 1) * (rows + 1) vertices, normals +z and indices of four bytes.
inline DefaultMeshPtr grid(std::size_t columns, std::size_t rows) {
    std::vector<float> positions, normals;
    for (std::size_t y = 0; y <= rows; ++y) {
        for (std::size_t x = 0; x <= columns; ++x) {
            positions.insert(positions.end(), {static_cast<float>(x) / static_cast<float>(columns),
                                               static_cast<float>(y) / static_cast<float>(rows), 0.0f});
            normals.insert(normals.end(), {0.0f, 0.0f, 1.0f});
        }
    }
    std::vector<std::uint32_t> indices;
    for (std::size_t y = 0; y < rows; ++y) {
        for (std::size_t x = 0; x < columns; ++x) {
            const auto a = static_cast<std::uint32_t>(y * (columns + 1) + x);
            const auto b = a + 1;
            const auto d = static_cast<std::uint32_t>(a + columns + 1);
            const auto c = d + 1;
            indices.insert(indices.end(), {a, b, c, a, c, d});
        }
    }
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
    mesh->addAttribute("position", 3, std::move(positions));
    mesh->addAttribute("normal", 3, std::move(normals));
    mesh->setIndices(std::move(indices));
    return mesh;
}

/// The sphere of radius 1 around the origin as `slices` by `stacks` quads with normals; the poles and the
/// seam have several vertices each. Triangles at the poles are degenerate.
inline DefaultMeshPtr sphere(std::size_t slices, std::size_t stacks) {
    auto mesh = grid(slices, stacks);
    std::vector<float> positions;
    for (std::size_t y = 0; y <= stacks; ++y) {
        for (std::size_t x = 0; x <= slices; ++x) {
            const double phi = 6.283185307179586 * static_cast<double>(x) / static_cast<double>(slices);
            const double theta = 3.141592653589793 * static_cast<double>(y) / static_cast<double>(stacks);
            positions.insert(positions.end(), {static_cast<float>(std::sin(theta) * std::cos(phi)),
                                               static_cast<float>(std::sin(theta) * std::sin(phi)),
                                               static_cast<float>(std::cos(theta))});
        }
    }
    mesh->addAttribute("normal", 3, positions);
    mesh->addAttribute("position", 3, std::move(positions));
    return mesh;
}

/// `count` points on the x axis at 0, 1, 2, ..., indexed in order.
inline DefaultMeshPtr pointRow(std::size_t count) {
    std::vector<float> positions;
    std::vector<std::uint32_t> indices;
    for (std::size_t i = 0; i < count; ++i) {
        positions.insert(positions.end(), {static_cast<float>(i), 0.0f, 0.0f});
        indices.push_back(static_cast<std::uint32_t>(i));
    }
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>(kel::mesh::POINTS);
    mesh->addAttribute("position", 3, std::move(positions));
    mesh->setIndices(std::move(indices));
    return mesh;
}

/// An input of these meshes, without materials. Mesh i has the metadata "name": "mesh<i>", as JSON text.
inline kel::src::SrcWriterInput inputOf(const std::vector<kel::mesh::MeshPtr>& meshes) {
    kel::src::SrcWriterInput input;
    for (const auto& mesh : meshes) {
        const std::string name = "\"mesh" + std::to_string(input.meshes.size()) + "\"";
        input.metaData[mesh] = std::make_shared<std::map<std::string, std::string>>(
            std::map<std::string, std::string>{{"name", name}});
        input.meshes.push_back(mesh);
    }
    return input;
}

inline std::shared_ptr<kel::material::MaterialClassic> material(float red, float green, float blue) {
    auto material = std::make_shared<kel::material::MaterialClassic>();
    material->setDiffuse({red, green, blue});
    return material;
}

/// Two unit squares, the first with a red, the second with a green material.
inline kel::src::SrcWriterInput twoMaterials() {
    auto input = inputOf({unitSquare(), unitSquare()});
    input.meshMaterials[input.meshes[0]] = material(1, 0, 0);
    input.meshMaterials[input.meshes[1]] = material(0, 1, 0);
    for (const auto& [mesh, assigned] : input.meshMaterials)
        input.materials.insert(assigned);
    return input;
}

/// The components of a float attribute, read one by one through the interface.
inline std::vector<float> floatsOf(const kel::mesh::Mesh& mesh, const std::string& name) {
    const auto buffer = mesh.getAttributeBuffer(name);
    if (!buffer) return {};
    const std::size_t components = buffer->getComponentCountPerElement();
    std::vector<float> values(buffer->getElementCount() * components);
    for (std::size_t i = 0; i < values.size(); ++i)
        buffer->getComponent(i / components, i % components, &values[i]);
    return values;
}

/// The indices, read one by one through the interface.
inline std::vector<std::size_t> indicesOf(const kel::mesh::Mesh& mesh) {
    const auto buffer = mesh.getIndexBuffer();
    std::vector<std::size_t> indices(buffer ? buffer->getElementCount() : 0);
    for (std::size_t i = 0; i < indices.size(); ++i)
        indices[i] = buffer->getIndex(i);
    return indices;
}

} // namespace fixture
