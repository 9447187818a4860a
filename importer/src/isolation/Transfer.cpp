#include "Transfer.h"

#include "../model/ListedModel.h"
#include "Fields.h"

#include <kel/mesh/AttributeNames.h>
#include <kel/mesh/ForEachPrimitive.h>
#include <kel/src/text/JsonScanner.h>
#include <kel/src/text/Utf8.h>

#include <algorithm>
#include <cmath>
#include <set>

namespace kel::importer::detail {

namespace {

/// No reader gets deeper: in text formats a thousand levels are refused.
constexpr std::size_t DEEPEST = 10000;
constexpr std::size_t MOST_ATTRIBUTES = 1000;
constexpr std::size_t JSON_DEPTH = 64;

void require(bool condition, const char* otherwise) {
    if (!condition) throw BrokenArchive(otherwise);
}

/// Which meshes nodes use, in the order of their first use.
std::vector<std::size_t> usedMeshes(const Model& model) {
    std::vector<std::size_t> order;
    std::vector<char> seen(model.meshes.size(), 0);
    for (const ModelNode& node : model.nodes) {
        for (const std::size_t mesh : node.meshes) {
            if (mesh < seen.size() && !std::exchange(seen[mesh], 1)) order.push_back(mesh);
        }
    }
    return order;
}

// ---- What Model.h promises ------------------------------------------------------------------------------

void checkAttribute(const ModelAttribute& attribute, std::size_t place, std::size_t vertices) {
    const bool isPosition = place == 0;
    require((attribute.name == kel::mesh::DEFAULT_POSITIONS_NAME) == isPosition,
            "positions are not the first attribute");
    const bool isNormal = attribute.name == kel::mesh::DEFAULT_NORMALS_NAME;
    require(!isNormal || place == 1, "normals are not the second attribute");
    require(attribute.width > 0 && attribute.width <= MOST_ATTRIBUTES, "an attribute has no width");
    require(!(isPosition || isNormal) || attribute.width == 3, "a vector has not three components");
    require(attribute.doubles.empty() || (isPosition && attribute.values.empty()),
            "an attribute has numbers of two kinds");
    const std::size_t numbers = attribute.values.size() + attribute.doubles.size();
    require(numbers % attribute.width == 0 && numbers / attribute.width == vertices,
            "attributes differ in their number of vertices");
}

void checkPart(const ModelPart& part, std::size_t materials) {
    require(part.type == kel::mesh::POINTS || part.type == kel::mesh::LINES ||
                part.type == kel::mesh::TRIANGLES,
            "primitives are of a kind that no reader delivers");
    require(!part.attributes.empty() && part.attributes.size() <= MOST_ATTRIBUTES, "a part has no positions");
    require(part.attributes[0].width > 0, "an attribute has no width");
    const std::size_t vertices = part.vertices();
    std::set<std::string> names;
    for (std::size_t i = 0; i < part.attributes.size(); ++i) {
        checkAttribute(part.attributes[i], i, vertices);
        require(names.insert(part.attributes[i].name).second, "two attributes have one name");
    }
    require(part.indices.size() % kel::mesh::cornersPerPrimitive(part.type) == 0,
            "a primitive lacks corners");
    std::uint32_t largest = 0;
    for (const std::uint32_t index : part.indices)
        largest = std::max(largest, index);
    require(part.indices.empty() || largest < vertices, "an index is out of range");
    require(!part.material || *part.material < materials, "there is no such material");
}

void checkJsonText(const std::string& json) {
    require(bool(kel::src::text::checkJson(kel::src::text::validUtf8(json), JSON_DEPTH)),
            "metadata is no JSON");
}

void checkMetaData(const kel::scene::MetaData& metaData) {
    for (const auto& [key, json] : metaData)
        checkJsonText(json);
}

/// All but the parts.
void checkModel(const Model& model) {
    require(!model.unit || (std::isfinite(*model.unit) && *model.unit > 0.0), "the unit is no length");
    constexpr std::string_view AXES = "X Y Z -X -Y -Z";
    require(model.upAxis.empty() ||
                (model.upAxis.size() <= 2 && model.upAxis.find(' ') == std::string::npos &&
                 AXES.find(model.upAxis) != std::string_view::npos && model.upAxis != "-"),
            "there is no such axis");
    std::vector<std::size_t> depth(model.nodes.size(), 1);
    for (std::size_t n = 0; n < model.nodes.size(); ++n) {
        const ModelNode& node = model.nodes[n];
        require(!node.parent || *node.parent < n, "a node stands before its parent");
        if (node.parent) depth[n] = depth[*node.parent] + 1;
        require(depth[n] <= DEEPEST, "nodes are nested too deep");
        require(std::all_of(node.meshes.begin(), node.meshes.end(),
                            [&](std::size_t mesh) { return mesh < model.meshes.size(); }),
                "there is no such mesh");
        if (!node.extras.empty()) checkJsonText(node.extras);
    }
    checkMetaData(model.metaData);
    for (const ModelMesh& mesh : model.meshes)
        checkMetaData(mesh.metaData);
    for (const ModelMaterial& material : model.materials)
        checkMetaData(material.metaData);
}

} // namespace

void writeModel(Model& model, MemoryFile& file) {
    ArchiveWriter writer([&](const void* bytes, std::size_t size) { file.write(bytes, size); });
    const std::vector<std::size_t> used = usedMeshes(model);
    writer(used);
    for (const std::size_t mesh : used)
        writer(model.takeMesh(mesh));
    // Last, because taking a mesh may add to it.
    writer(model);
}

std::unique_ptr<Model> readModel(std::string_view bytes) {
    ArchiveReader reader(bytes);
    std::vector<std::size_t> used;
    reader(used);
    std::vector<std::vector<ModelPart>> parts;
    for (std::size_t i = 0; i < used.size(); ++i)
        reader(parts.emplace_back());
    auto model = std::make_unique<ListedModel>();
    reader(static_cast<Model&>(*model));
    reader.finish();
    checkModel(*model);
    require(used == usedMeshes(*model), "its meshes are not those that its nodes use");
    std::vector<std::vector<ModelPart>> ofMesh(model->meshes.size());
    for (std::size_t i = 0; i < used.size(); ++i) {
        for (const ModelPart& part : parts[i])
            checkPart(part, model->materials.size());
        ofMesh[used[i]] = std::move(parts[i]);
    }
    std::vector<ModelMesh> meshes = std::exchange(model->meshes, {});
    for (std::size_t m = 0; m < meshes.size(); ++m)
        model->addMesh(std::move(meshes[m]), std::move(ofMesh[m]));
    return model;
}

} // namespace kel::importer::detail
