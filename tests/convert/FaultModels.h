#pragma once

// Models that are easy to spoil: every number can be changed before they become an input.

#include <support/Meshes.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace fault_models {

using Colour = std::array<float, 3>;

/// One mesh in plain lists.
struct Part {
    std::string name;
    kel::mesh::PrimitiveType type = kel::mesh::TRIANGLES;
    std::map<std::string, std::pair<std::size_t, std::vector<float>>> attributes; ///< components, values
    std::vector<std::uint32_t> indices;
    std::optional<Colour> diffuse;
    std::map<std::string, std::string> metadata; ///< beside the name

    std::vector<float>& values(const std::string& attribute) { return attributes.at(attribute).second; }
    bool has(const std::string& attribute) const { return attributes.count(attribute) != 0; }
    std::size_t vertices() const { return attributes.at("position").second.size() / 3; }
    bool isSurface() const { return type == kel::mesh::TRIANGLES; }
};

struct Model {
    std::string name;
    std::vector<Part> parts;
};

inline kel::src::SrcWriterInput inputOf(const Model& model) {
    kel::src::SrcWriterInput input;
    for (const Part& part : model.parts) {
        auto mesh = std::make_shared<kel::mesh::DefaultMesh>(part.type);
        for (const auto& [name, attribute] : part.attributes)
            mesh->addAttribute(name, attribute.first, attribute.second);
        mesh->setIndices(std::vector<std::uint16_t>(part.indices.begin(), part.indices.end()));
        auto metadata = part.metadata;
        if (!part.name.empty()) metadata["name"] = '"' + part.name + '"';
        input.metaData[mesh] = std::make_shared<std::map<std::string, std::string>>(std::move(metadata));
        if (part.diffuse) {
            const auto& [red, green, blue] = *part.diffuse;
            const auto material = fixture::material(red, green, blue);
            input.materials.insert(material);
            input.meshMaterials[mesh] = material;
        }
        input.meshes.push_back(mesh);
    }
    return input;
}

inline Part partOf(const kel::mesh::Mesh& mesh, const std::string& name) {
    Part part;
    part.name = name;
    part.type = mesh.getPrimitiveType();
    for (std::size_t i = 0; i < mesh.getNumAttributeBuffers(); ++i) {
        const auto buffer = mesh.getAttributeBuffer(i);
        part.attributes[buffer->getAttributeName()] = {buffer->getComponentCountPerElement(),
                                                       fixture::floatsOf(mesh, buffer->getAttributeName())};
    }
    for (const std::size_t index : fixture::indicesOf(mesh))
        part.indices.push_back(static_cast<std::uint32_t>(index));
    return part;
}

inline void move(Part& part, float x, float y, float z) {
    const float by[3] = {x, y, z};
    std::vector<float>& positions = part.values("position");
    for (std::size_t i = 0; i < positions.size(); ++i)
        positions[i] += by[i % 3];
}

/// A wavy plate of 72 triangles with everything that a vertex can have.
inline Model plate() {
    Part part = partOf(*fixture::grid(6, 6), "plate");
    std::vector<float>&positions = part.values("position"), texcoords, colours;
    for (std::size_t v = 0; v < part.vertices(); ++v) {
        float* p = &positions[3 * v];
        p[2] = 0.2f * std::sin(5.0f * p[0]) * std::cos(4.0f * p[1]);
        texcoords.insert(texcoords.end(), {p[0], 0.5f * p[1]});
        colours.insert(colours.end(), {p[0], p[1], 0.25f});
    }
    part.attributes["texcoord"] = {2, texcoords};
    part.attributes["color"] = {3, colours};
    part.diffuse = Colour{0.75f, 0.5f, 0.25f};
    part.metadata["extras"] = "{\"cost\":12.5,\"maker\":\"A & B\"}";
    return {"plate", {part}};
}

/// A closed ball of 12 slices, whose triangles at the poles draw nothing.
inline Model ball() {
    Part part = partOf(*fixture::sphere(12, 8), "ball");
    part.metadata["node"] = "\"/scene/ball\"";
    return {"ball", {part}};
}

/// Four blocks with names, nodes and materials of their own.
inline Model building() {
    Model model{"building", {}};
    const char* const names[] = {"wall", "roof", "door", "wall.2"};
    for (int i = 0; i < 4; ++i) {
        const auto step = static_cast<float>(i);
        Part part = partOf(*fixture::octahedron(), names[i]);
        move(part, 3.0f * step, step * step, 0.5f * step);
        part.diffuse = Colour{0.25f * step, 0.5f, 0.0f};
        part.metadata["node"] = "\"/house/" + part.name + '"';
        model.parts.push_back(part);
    }
    return model;
}

/// Two pieces in one mesh, with an attribute of the model's own.
inline Model pair() {
    Part part = partOf(*fixture::octahedron(), "pair");
    Part other = part;
    move(other, 2, 0, 0);
    const auto first = static_cast<std::uint32_t>(part.vertices());
    for (const char* attribute : {"position", "normal"}) {
        const auto& values = other.values(attribute);
        part.values(attribute).insert(part.values(attribute).end(), values.begin(), values.end());
    }
    for (const std::uint32_t index : other.indices)
        part.indices.push_back(first + index);
    std::vector<float> heat(part.vertices());
    for (std::size_t v = 0; v < heat.size(); ++v)
        heat[v] = 20.0f + static_cast<float>(v);
    part.attributes["_HEAT"] = {1, heat};
    return {"pair", {part}};
}

/// A surface, lines and points.
inline Model drawing() {
    Part sheet = partOf(*fixture::unitSquare(), "sheet");
    Part lines;
    lines.name = "lines";
    lines.type = kel::mesh::LINES;
    lines.attributes["position"] = {3, {0, 0, 1, 1, 0, 1, 1, 1, 1, 0, 1, 2}};
    lines.indices = {0, 1, 1, 2, 2, 3};
    Part points = partOf(*fixture::pointRow(5), "points");
    move(points, 0, 2, 0);
    points.attributes["color"] = {3, {1, 0, 0, 0, 1, 0, 0, 0, 1, 1, 1, 0, 0, 1, 1}};
    return {"drawing", {sheet, lines, points}};
}

inline std::vector<Model> allModels() {
    return {plate(), ball(), building(), pair(), drawing()};
}

} // namespace fault_models
