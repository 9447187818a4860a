#include "ListedModel.h"

#include <glm/common.hpp>

#include <algorithm>
#include <utility>

namespace kel::importer::detail {

namespace {

/// Gives a part the vertices that its indices name, in their order.
void takeVertices(const std::vector<ModelAttribute>& attributes, std::vector<char>& usedByAny,
                  ModelPart& part) {
    std::vector<std::uint32_t> place(usedByAny.size(), 0);
    for (const std::uint32_t vertex : part.indices)
        place[vertex] = 1;
    std::vector<std::uint32_t> vertices;
    for (std::size_t v = 0; v < place.size(); ++v) {
        if (place[v] == 0) continue;
        usedByAny[v] = 1;
        place[v] = static_cast<std::uint32_t>(vertices.size());
        vertices.push_back(static_cast<std::uint32_t>(v));
    }
    for (std::uint32_t& index : part.indices)
        index = place[index];
    for (const ModelAttribute& attribute : attributes)
        part.attributes.push_back({attribute.name, attribute.width,
                                   gather(attribute.values, attribute.width, vertices),
                                   gather(attribute.doubles, attribute.width, vertices)});
}

} // namespace

std::size_t ListedModel::addMesh(ModelMesh mesh, std::vector<ModelPart> parts) {
    meshes.push_back(std::move(mesh));
    ready.push_back(std::move(parts));
    return meshes.size() - 1;
}

ModelBox ListedModel::boxOf(std::size_t mesh) {
    ModelBox box;
    for (const ModelPart& part : ready[mesh]) {
        const Positions position(part.attributes[0]);
        box.hasDoubles = box.hasDoubles || !part.attributes[0].doubles.empty();
        for (const std::uint32_t vertex : part.indices)
            box.add(position[vertex]);
    }
    return box;
}

std::vector<ModelPart> ListedModel::takeMesh(std::size_t mesh) {
    return std::move(ready[mesh]);
}

std::vector<ModelPart> partsOf(PrimitiveLists lists, std::vector<ModelAttribute> attributes,
                               std::size_t& unused) {
    std::vector<ModelPart> parts;
    const auto add = [&](kel::mesh::PrimitiveType type, std::vector<std::uint32_t>& corners) {
        if (corners.empty()) return;
        parts.emplace_back().type = type;
        parts.back().indices = std::move(corners);
    };
    add(kel::mesh::TRIANGLES, lists.triangles);
    add(kel::mesh::LINES, lists.lines);
    add(kel::mesh::POINTS, lists.points);
    if (parts.size() == 1) {
        parts[0].attributes = std::move(attributes);
    } else if (!parts.empty()) {
        std::vector<char> used(attributes[0].vertices(), 0);
        for (ModelPart& part : parts)
            takeVertices(attributes, used, part);
        unused += static_cast<std::size_t>(std::count(used.begin(), used.end(), 0));
    }
    return parts;
}

} // namespace kel::importer::detail
