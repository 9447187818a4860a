#include "GltfReader.h"

#include "../model/CopyLimit.h"
#include "GltfExtensions.h"
#include "GltfMaterials.h"
#include "GltfParts.h"

#include <kel/src/format/MetadataKeys.h>

#include <glm/common.hpp>

#include <algorithm>
#include <cmath>
#include <set>
#include <utility>

namespace kel::importer::detail {

namespace {

namespace metadata_key = kel::src::format::metadata;

class GltfModel final : public Model {
public:
    GltfModel(const ModelSource& source, const ImportOptions& options, const Content& content,
              const GltfPieces& pieces, const GltfObject& document)
        : source(source) {
        format = "glTF2";
        unit = 1.0;
        upAxis = "Y";
        checkExtensions(document, *this);
        data = readGltfData(document, content, pieces.binary);
        GltfMaterials read = readMaterials(document);
        materials = std::move(read.materials);
        transforms = std::move(read.transforms);
        GltfMeshLosses losses;
        gltfMeshes = readMeshes(document, data, materials.size(), losses, notes);
        for (const GltfMesh& mesh : gltfMeshes) {
            for (const GltfPrimitive& primitive : mesh.primitives)
                mayCrash = mayCrash || primitive.draco != nullptr;
        }
        tree = readNodes(document, data, gltfMeshes.size(), options.scene);
        ready.resize(gltfMeshes.size());
        addMeshes();
        addNodes(options);
        if (!tree.scene.extras.empty())
            metaData.emplace(metadata_key::SCENE_EXTRAS, std::move(tree.scene.extras));
        reportLosses(document, losses);
    }

    ModelBox boxOf(std::size_t mesh) override {
        ready[mesh] = readParts(mesh);
        ModelBox box;
        for (const ModelPart& part : *ready[mesh]) {
            const ModelAttribute& positions = part.attributes[0];
            box.hasDoubles = box.hasDoubles || !positions.doubles.empty();
            if (positions.doubles.empty()) {
                extend(box, part.indices, positions.values);
            } else {
                extend(box, part.indices, positions.doubles);
            }
        }
        return box;
    }

    std::vector<ModelPart> takeMesh(std::size_t mesh) override {
        if (!ready[mesh]) return readParts(mesh);
        return std::move(*std::exchange(ready[mesh], std::nullopt));
    }

private:
    const ModelSource& source;
    GltfData data;
    std::vector<std::map<std::size_t, GltfTextureTransform>>
        transforms; // of texture coordinates, by material
    std::vector<GltfMesh> gltfMeshes;
    GltfNodes tree;
    /// Which mesh of the document each of the model's is, and the node that bends it, if one does.
    struct Variant {
        std::size_t mesh;
        std::optional<std::size_t> node;
    };
    std::vector<Variant> variants;
    std::vector<std::optional<std::vector<ModelPart>>> ready; // read for their boxes, not taken yet

    // ---- Meshes -----------------------------------------------------------------------------------------

    template<typename Number>
    static void extend(ModelBox& box, const std::vector<std::uint32_t>& indices,
                       const std::vector<Number>& positions) {
        for (const std::uint32_t index : indices) {
            const Number* const p = &positions[3 * std::size_t{index}];
            if (!(std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]))) continue;
            const glm::dvec3 point(p[0], p[1], p[2]);
            box.low = glm::min(box.low, point);
            box.high = glm::max(box.high, point);
        }
    }

    GltfPose poseOf(const Variant& variant) const {
        GltfPose pose;
        const GltfMesh& mesh = gltfMeshes[variant.mesh];
        pose.weights = &mesh.weights;
        if (!variant.node) return pose;
        const GltfNode& node = tree.nodes[*variant.node];
        if (!node.weights.empty()) pose.weights = &node.weights;
        if (isSkinned(node)) {
            pose.joints = jointMatrices(source, data, tree, tree.skins[*node.skin]);
            pose.node = tree.worldOf(*variant.node);
        }
        return pose;
    }

    std::vector<ModelPart> readParts(std::size_t mesh) {
        const Variant& variant = variants[mesh];
        GltfPose pose = poseOf(variant);
        if (std::all_of(pose.weights->begin(), pose.weights->end(), [](double w) { return w == 0.0; }))
            pose.weights = nullptr;
        const GltfPlace place("meshes", variant.mesh);
        const std::vector<GltfPrimitive>& primitives = gltfMeshes[variant.mesh].primitives;
        std::vector<ModelPart> parts;
        parts.reserve(primitives.size());
        for (std::size_t p = 0; p < primitives.size(); ++p) {
            static const std::map<std::size_t, GltfTextureTransform> NONE;
            parts.push_back(readPart(source, data, primitives[p], GltfPlace("primitives", p, &place),
                                     primitives[p].material ? transforms[*primitives[p].material] : NONE,
                                     pose, dropped, notes));
        }
        return parts;
    }

    ModelMesh meshFor(std::size_t index) const {
        const GltfMesh& mesh = gltfMeshes[index];
        ModelMesh result;
        result.name = mesh.name;
        result.place = "mesh " + std::to_string(index) + (mesh.name.empty() ? "" : " \"" + mesh.name + "\"");
        if (!mesh.extras.empty()) result.metaData.emplace(metadata_key::MESH_EXTRAS, mesh.extras);
        return result;
    }

    void addMeshes() {
        meshes.reserve(gltfMeshes.size());
        variants.reserve(gltfMeshes.size());
        for (std::size_t m = 0; m < gltfMeshes.size(); ++m) {
            meshes.push_back(meshFor(m));
            variants.push_back({m, std::nullopt});
        }
    }

    // ---- Nodes ------------------------------------------------------------------------------------------

    bool isSkinned(const GltfNode& node) const {
        if (!node.skin || !node.mesh || tree.skins[*node.skin].joints.empty()) return false;
        const auto& primitives = gltfMeshes[*node.mesh].primitives;
        return std::any_of(primitives.begin(), primitives.end(), [](const GltfPrimitive& primitive) {
            return primitive.find("JOINTS_0").has_value();
        });
    }

    double bytesOf(const GltfMesh& mesh) const {
        constexpr double BYTES = sizeof(float); // and as many for an index
        double bytes = 0.0;
        for (const GltfPrimitive& primitive : mesh.primitives) {
            for (const GltfAttribute& attribute : primitive.attributes)
                bytes += BYTES * numbersIn(data.accessors[attribute.second]);
            if (primitive.indices) bytes += BYTES * numbersIn(data.accessors[*primitive.indices]);
        }
        return bytes;
    }
    static double numbersIn(const GltfAccessor& accessor) {
        return static_cast<double>(accessor.count) * accessor.width;
    }

    /// Nodes may share instances, as primitives may share accessors: little of a file can ask for much memory.
    void checkCopies(const ImportOptions& options, const std::vector<double>& uses) const {
        constexpr double MOST_PACKED = 64.0; // how many bytes one of the file's may stand for
        double own = 0.0;
        for (const GltfAccessor& accessor : data.accessors)
            own += sizeof(float) * numbersIn(accessor);
        CopyLimit copies(source, options, std::min(own, MOST_PACKED * static_cast<double>(data.fileBytes)));
        for (std::size_t m = 0; m < uses.size(); ++m) {
            if (uses[m] > 0.0) copies.add(uses[m], bytesOf(gltfMeshes[m]), meshes[m].place);
        }
    }

    /// In the order of a walk from the roots, parents first.
    void addNodes(const ImportOptions& options) {
        std::vector<std::size_t> plain(gltfMeshes.size(),
                                       gltfMeshes.size()); // the model's mesh that is not bent
        std::vector<char> claimed(gltfMeshes.size(), 0);
        const auto claim = [&](std::size_t mesh) {
            if (!std::exchange(claimed[mesh], 1)) return mesh;
            meshes.push_back(meshFor(mesh));
            variants.push_back({mesh, std::nullopt});
            ready.emplace_back();
            return meshes.size() - 1;
        };
        const auto meshOf = [&](std::size_t index, const GltfNode& node) {
            if (isSkinned(node) || !node.weights.empty()) {
                const std::size_t mesh = claim(*node.mesh);
                variants[mesh].node = index;
                return mesh;
            }
            std::size_t& mesh = plain[*node.mesh];
            if (mesh == gltfMeshes.size()) mesh = claim(*node.mesh);
            return mesh;
        };
        std::vector<std::pair<std::size_t, std::optional<std::size_t>>> waiting; // with the model's parent
        const auto push = [&](const std::vector<std::size_t>& nodeList, std::optional<std::size_t> parent) {
            for (auto node = nodeList.rbegin(); node != nodeList.rend(); ++node)
                waiting.emplace_back(*node, parent);
        };
        push(tree.scene.roots, std::nullopt);
        nodes.reserve(tree.nodes.size());
        std::vector<double> uses(gltfMeshes.size(), 0.0);
        std::vector<std::pair<std::size_t, std::size_t>> instanced; // of the model, and of the document
        while (!waiting.empty()) {
            const auto [index, parent] = waiting.back();
            waiting.pop_back();
            GltfNode& from = tree.nodes[index];
            ModelNode& node = nodes.emplace_back();
            node.name = from.name;
            node.parent = parent;
            node.transform = from.transform;
            node.extras = std::move(from.extras);
            if (from.mesh) {
                node.meshes.push_back(meshOf(index, from));
                node.meshesInScene = isSkinned(from);
                if (from.isInstanced()) instanced.emplace_back(nodes.size() - 1, index);
                uses[*from.mesh] += from.isInstanced() ? countOfInstances(data, from) : 1.0;
            }
            push(from.children, nodes.size() - 1);
        }
        checkCopies(options, uses);
        for (const auto& [to, from] : instanced) {
            nodes[to].instances = readInstances(source, data, tree.nodes[from]);
            if (nodes[to].instances.empty()) nodes[to].meshes.clear();
        }
    }

    // ---- Report -----------------------------------------------------------------------------------------

    void drop(const char* kind, std::size_t count, const std::string& detail = "") {
        if (count > 0) dropped.push_back({kind, count, detail});
    }

    void reportLosses(const GltfObject& document, const GltfMeshLosses& losses) {
        std::size_t bones = 0;
        for (const GltfSkin& skin : tree.skins)
            bones += skin.joints.size();
        drop("bones", bones);
        drop("animations", document.sizeOf("animations"));
        drop("cameras", document.sizeOf("cameras"));
        const GltfPlace extensionsPlace(nullptr, "extensions");
        const GltfPlace lightsPlace(&extensionsPlace, "KHR_lights_punctual");
        drop("lights", document.child("extensions", extensionsPlace)
                           .child("KHR_lights_punctual", lightsPlace)
                           .sizeOf("lights"));
        drop("morph targets", losses.targets);
        drop("tangents", losses.tangents, "of whole meshes");
        drop("custom attributes", losses.matrices, losses.firstMatrix + ", whose values are matrices");
        drop("attributes with names that glTF does not have", losses.unknown, losses.firstUnknown);
        drop("attributes of instances", tree.instanceAttributes);
        drop("scenes besides the one imported", tree.scenes - 1);
        reportTextures(document);
        const auto skinned = std::count_if(nodes.begin(), nodes.end(),
                                           [](const ModelNode& node) { return node.meshesInScene; });
        if (skinned > 0) {
            notes.push_back(std::to_string(skinned) +
                            (skinned == 1 ? " skinned mesh stands" : " skinned meshes stand") +
                            " as the joints stand in the file, without animation");
        }
        if (losses.targets > 0)
            notes.emplace_back("Morph targets are applied with the weights that the file states");
    }

    void reportTextures(const GltfObject& document) {
        std::set<std::string> names;
        std::size_t count = 0;
        document.forEachObject("images", [&](const GltfObject& image) {
            const std::string_view uri = image.string("uri");
            const bool file = !uri.empty() && uri.substr(0, 5) != "data:";
            const std::string_view name = file ? uri : image.string("name");
            names.insert(name.empty() ? "image " + std::to_string(count) : std::string(name));
            ++count;
        });
        drop("textures", count, listed(names));
    }
};

} // namespace

std::unique_ptr<Model> openGltf(const ModelSource& source, const ImportOptions& options,
                                ProgressReporter& progress) {
    progress.report("reading", 0.0);
    const Content content(source);
    const GltfPieces pieces = gltfPieces(source, content);
    if (pieces.version < glb::VERSION) return nullptr;
    const auto refuseVersion = [&](const std::string& version) {
        source.refuse(ImportCode::UNSUPPORTED_FEATURE,
                      "it is version " + version + " of its format, of which 1 and 2 are known", "",
                      "export the model as glTF 2.0");
    };
    if (pieces.version > glb::VERSION) refuseVersion(std::to_string(pieces.version));

    std::vector<std::string> notes;
    simdjson::dom::parser parser;
    const char* const end = content.data() + content.size();
    const auto behind = static_cast<std::size_t>(end - (pieces.json.data() + pieces.json.size()));
    const GltfObject document(source, parseGltf(source, pieces.json, behind, parser, notes), nullptr);
    const GltfPlace assetPlace(nullptr, "asset");
    const GltfObject asset = document.child("asset", assetPlace);
    // The first version keeps its lists as objects, and "asset" is optional there.
    const auto meshes = document.find("meshes");
    if (meshes && meshes->type() == simdjson::dom::element_type::OBJECT) return nullptr;
    const std::string_view version = asset.string("version");
    if (version.substr(0, 1) == "1") return nullptr;
    const std::string_view needed = asset.has("minVersion") ? asset.string("minVersion") : version;
    if (!needed.empty() && needed != "2" && needed.substr(0, 2) != "2.") refuseVersion(std::string(needed));

    auto model = std::make_unique<GltfModel>(source, options, content, pieces, document);
    model->notes.insert(model->notes.begin(), notes.begin(), notes.end());
    progress.report("reading", 1.0);
    return model;
}

} // namespace kel::importer::detail
