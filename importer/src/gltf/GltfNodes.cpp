#include "GltfNodes.h"

#include "GltfAccessors.h"

#include <glm/gtc/quaternion.hpp>

#include <charconv>
#include <cmath>
#include <utility>

namespace kel::importer::detail {

namespace {

constexpr std::size_t DEEPEST_NODE = 512;
constexpr std::string_view INSTANCING = "EXT_mesh_gpu_instancing";

/// rotation  x, y, z, w
glm::dmat4 placed(const double* translation, const double* rotation, const double* scale) {
    glm::dquat turn(rotation[3], rotation[0], rotation[1], rotation[2]);
    // Texts and codes of few bits are never of length 1 to the last bit.
    const double length = glm::length(turn);
    turn = length > 0.0 && std::isfinite(length) ? turn / length : glm::dquat(1.0, 0.0, 0.0, 0.0);
    glm::dmat4 matrix(glm::mat3_cast(turn));
    for (int column = 0; column < 3; ++column)
        matrix[column] *= scale[column];
    matrix[3] = glm::dvec4(translation[0], translation[1], translation[2], 1.0);
    return matrix;
}

class NodeReader {
public:
    NodeReader(const GltfObject& document, const GltfData& data, std::size_t meshes)
        : document(document), data(data), meshes(meshes), count(document.sizeOf("nodes")) {}

    GltfNodes read(const std::optional<std::string>& scene) {
        document.forEachObject("skins", [&](const GltfObject& skin) { addSkin(skin); });
        result.nodes.reserve(count);
        document.forEachObject("nodes", [&](const GltfObject& node) { addNode(node); });
        checkTree();
        chooseScene(scene);
        return std::move(result);
    }

private:
    const GltfObject& document;
    const GltfData& data;
    std::size_t meshes;
    std::size_t count; // of nodes
    GltfNodes result;

    std::vector<std::size_t> nodesIn(const GltfObject& object, std::string_view list) const {
        std::vector<std::size_t> nodes;
        object.forEach(list, [&](simdjson::dom::element value, const GltfPlace& place) {
            const auto index = wholeNumber(value);
            if (!index || *index >= count) {
                refuseGltf(document.model(), ImportCode::INDEX_OUT_OF_RANGE,
                           "it names a node that does not exist", place.text());
            }
            nodes.push_back(static_cast<std::size_t>(*index));
        });
        return nodes;
    }

    void addSkin(const GltfObject& object) {
        GltfSkin skin;
        skin.joints = nodesIn(object, "joints");
        skin.matrices = object.reference("inverseBindMatrices", data.accessors.size());
        if (skin.matrices) {
            const GltfAccessor& accessor = data.accessors[*skin.matrices];
            if (accessor.width != 16 || accessor.type != kel::mesh::FLOAT)
                object.refuse(ImportCode::INVALID_MODEL, "\"inverseBindMatrices\" are not MAT4 of floats");
            if (accessor.count < skin.joints.size()) {
                object.refuse(ImportCode::INVALID_MODEL,
                              "it has " + std::to_string(skin.joints.size()) + " joints, but " +
                                  std::to_string(accessor.count) + " inverse bind matrices");
            }
        }
        result.skins.push_back(std::move(skin));
    }

    void addNode(const GltfObject& object) {
        GltfNode& node = result.nodes.emplace_back();
        node.name = object.string("name");
        node.extras = object.extras();
        node.mesh = object.reference("mesh", meshes);
        node.skin = object.reference("skin", result.skins.size());
        node.weights.resize(object.sizeOf("weights"));
        object.numbers("weights", node.weights.data(), node.weights.size());
        node.children = nodesIn(object, "children");
        if (!object.numbers("matrix", &node.transform[0][0], 16)) {
            double translation[3] = {0, 0, 0}, rotation[4] = {0, 0, 0, 1}, scale[3] = {1, 1, 1};
            const bool moved = object.numbers("translation", translation, 3);
            const bool turned = object.numbers("rotation", rotation, 4);
            const bool scaled = object.numbers("scale", scale, 3);
            if (moved || turned || scaled) node.transform = placed(translation, rotation, scale);
        }
        const GltfPlace extensions(object.place(), "extensions");
        const GltfPlace place(&extensions, INSTANCING);
        const GltfPlace attributes(&place, "attributes");
        addInstancing(
            object.child("extensions", extensions).child(INSTANCING, place).child("attributes", attributes),
            node);
    }

    void addInstancing(const GltfObject& attributes, GltfNode& node) {
        std::optional<std::uint64_t> count;
        attributes.forEachMember([&](std::string_view name, simdjson::dom::element) {
            const auto accessor = attributes.reference(name, data.accessors.size());
            auto* const place = name == "TRANSLATION" ? &node.translations
                                : name == "ROTATION"  ? &node.rotations
                                : name == "SCALE"     ? &node.scales
                                                      : nullptr;
            if (!place) {
                ++result.instanceAttributes;
                return;
            }
            const GltfAccessor& given = data.accessors[*accessor];
            const std::uint32_t width = place == &node.rotations ? 4 : 3;
            if (given.matrix || given.width != width || given.count != count.value_or(given.count)) {
                attributes.refuse(ImportCode::INVALID_MODEL, "\"" + std::string(name) + "\" is not VEC" +
                                                                 std::to_string(width) +
                                                                 " for each instance");
            }
            count = given.count;
            *place = accessor;
        });
    }

    /// Two parents would multiply what hangs below, level by level, and a circle has no end.
    void checkTree() {
        std::vector<GltfNode>& nodes = result.nodes;
        const auto refuse = [&](ImportCode code, const std::string& what, std::size_t node) {
            refuseGltf(document.model(), code, what, GltfPlace("nodes", node).text());
        };
        for (std::size_t n = 0; n < nodes.size(); ++n) {
            for (const std::size_t child : nodes[n].children) {
                if (nodes[child].parent)
                    refuse(ImportCode::INVALID_MODEL, "the node has more than one parent", child);
                nodes[child].parent = n;
            }
        }
        std::vector<std::size_t> depths(nodes.size(), 0); // 0: not reached
        std::vector<std::size_t> waiting;
        for (std::size_t n = 0; n < nodes.size(); ++n) {
            if (nodes[n].parent) continue;
            depths[n] = 1;
            waiting.push_back(n);
        }
        while (!waiting.empty()) {
            const std::size_t node = waiting.back();
            waiting.pop_back();
            if (depths[node] > DEEPEST_NODE) {
                document.model().refuse(ImportCode::TOO_DEEP,
                                        "nodes are nested more than " + std::to_string(DEEPEST_NODE) +
                                            " deep",
                                        GltfPlace("nodes", node).text());
            }
            for (const std::size_t child : nodes[node].children) {
                depths[child] = depths[node] + 1;
                waiting.push_back(child);
            }
        }
        for (std::size_t n = 0; n < nodes.size(); ++n) {
            if (depths[n] == 0) refuse(ImportCode::INVALID_MODEL, "the node is its own ancestor", n);
        }
    }

    void chooseScene(const std::optional<std::string>& wanted) {
        std::optional<std::size_t> chosen;
        std::string names;
        std::vector<GltfScene> scenes;
        document.forEachObject("scenes", [&](const GltfObject& object) {
            const std::string_view name = object.string("name");
            if (wanted && !name.empty() && name == *wanted && !chosen) chosen = scenes.size();
            names += (names.empty() ? "" : ", ") + std::to_string(scenes.size()) +
                     (name.empty() ? "" : " \"" + std::string(name) + "\"");
            scenes.push_back({object.extras(), nodesIn(object, "nodes")});
        });
        result.scenes = scenes.size();
        if (scenes.empty()) {
            document.model().refuse(ImportCode::NO_MESH, "the file has no scene", "",
                                    "export a scene, with the geometry in it");
        }
        const std::size_t first = document.reference("scene", scenes.size()).value_or(0);
        if (wanted && !chosen) {
            std::size_t number = 0;
            const char* const end = wanted->data() + wanted->size();
            const auto read = std::from_chars(wanted->data(), end, number);
            if (wanted->empty() || read.ec != std::errc() || read.ptr != end || number >= scenes.size()) {
                document.model().refuse(ImportCode::NO_SCENE, "there is no scene \"" + *wanted + "\"",
                                        "scenes", "choose one of " + names);
            }
            chosen = number;
        }
        result.scene = std::move(scenes[chosen.value_or(first)]);
        std::vector<char> named(result.nodes.size(), 0);
        for (const std::size_t root : result.scene.roots) {
            if (result.nodes[root].parent || named[root]) {
                refuseGltf(document.model(), ImportCode::INVALID_MODEL,
                           "a root of the scene is the child of a node or is named twice",
                           GltfPlace("nodes", root).text());
            }
            named[root] = 1;
        }
    }
};

} // namespace

glm::dmat4 GltfNodes::worldOf(std::size_t node) const {
    glm::dmat4 world = nodes[node].transform;
    for (auto parent = nodes[node].parent; parent; parent = nodes[*parent].parent)
        world = nodes[*parent].transform * world;
    return world;
}

GltfNodes readNodes(const GltfObject& document, const GltfData& data, std::size_t meshes,
                    const std::optional<std::string>& scene) {
    return NodeReader(document, data, meshes).read(scene);
}

double countOfInstances(const GltfData& data, const GltfNode& node) {
    const auto& given = node.translations ? node.translations : node.rotations ? node.rotations : node.scales;
    return static_cast<double>(data.accessors[*given].count);
}

std::vector<glm::dmat4> readInstances(const ModelSource& source, const GltfData& data, const GltfNode& node) {
    std::size_t count = 0;
    const auto read = [&](const std::optional<std::size_t>& accessor, std::size_t width) {
        if (!accessor) return std::vector<double>();
        count = static_cast<std::size_t>(data.accessors[*accessor].count);
        return readNumbers<double>(source, data, *accessor, width);
    };
    const std::vector<double> translations = read(node.translations, 3);
    const std::vector<double> rotations = read(node.rotations, 4);
    const std::vector<double> scales = read(node.scales, 3);
    constexpr double NOWHERE[3] = {0, 0, 0}, UNTURNED[4] = {0, 0, 0, 1}, UNSCALED[3] = {1, 1, 1};
    std::vector<glm::dmat4> instances;
    instances.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        instances.push_back(placed(node.translations ? &translations[3 * i] : NOWHERE,
                                   node.rotations ? &rotations[4 * i] : UNTURNED,
                                   node.scales ? &scales[3 * i] : UNSCALED));
    }
    return instances;
}

} // namespace kel::importer::detail
