#include "SceneConversion.h"

#include "Materials.h"
#include "Metadata.h"
#include "Normals.h"
#include "VertexJoiner.h"
#include "checks/GltfDocument.h"

#include <kel/mesh/AttributeNames.h>
#include <kel/mesh/DefaultMesh.h>
#include <kel/src/text/JsonWriter.h>
#include <kel/src/text/Utf8.h>

#include <assimp/GltfMaterial.h>
#include <glm/geometric.hpp>
#include <glm/mat3x3.hpp>
#include <glm/mat4x4.hpp>
#include <glm/vec3.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <unordered_map>
#include <utility>

namespace kel::importer::detail {

namespace {

using kel::mesh::DefaultMesh;
using kel::mesh::PrimitiveType;

const char* const CONVERTING = "converting";
const char* const NOT_FINITE = "primitives with positions that are not finite";
constexpr std::size_t LARGEST_SHORT_MESH = 65535; // index 65535 restarts a primitive in WebGL 2
constexpr std::uint32_t NONE = std::numeric_limits<std::uint32_t>::max();

/// One use of a mesh by a node.
struct Instance {
    const aiNode* node;
    unsigned slot; // which of the node's meshes
    glm::dmat4 world;

    unsigned mesh() const { return node->mMeshes[slot]; }
};

struct Attribute {
    std::string name;
    std::size_t width;
    std::vector<float> values;
};

/// The primitives of one type of a mesh, in the mesh's own space, with joined vertices.
struct Part {
    PrimitiveType type;
    std::vector<std::uint32_t> indices;
    std::vector<Attribute> attributes; // "position" is the first; "normal", if there, the second
};

glm::dmat4 matrixOf(const aiMatrix4x4& m) {
    // Assimp's rows are glm's columns.
    return {{m.a1, m.b1, m.c1, m.d1},
            {m.a2, m.b2, m.c2, m.d2},
            {m.a3, m.b3, m.c3, m.d3},
            {m.a4, m.b4, m.c4, m.d4}};
}

std::size_t cornersOf(PrimitiveType type) {
    return type == kel::mesh::TRIANGLES ? 3 : type == kel::mesh::LINES ? 2 : 1;
}

/// The number of different texture files and embedded textures, and the first few.
struct Textures {
    std::set<std::string> names;
    void add(const aiMaterial& material) {
        for (unsigned p = 0; p < material.mNumProperties; ++p) {
            const aiMaterialProperty& property = *material.mProperties[p];
            if (std::string(property.mKey.C_Str()) != "$tex.file") continue;
            aiString path;
            if (material.Get("$tex.file", property.mSemantic, property.mIndex, path) == aiReturn_SUCCESS) {
                names.insert(path.C_Str());
            }
        }
    }
};

std::string listed(const std::set<std::string>& names) {
    std::string text;
    std::size_t shown = 0;
    for (const std::string& name : names) {
        if (name.empty()) continue;
        if (shown == 3) return text + ", ...";
        text += (shown++ == 0 ? "" : ", ") + name;
    }
    return text;
}

class Converter {
public:
    Converter(AssimpScene& read, const Findings& findings, const Source& source, const ImportOptions& options,
              Stages& stages)
        : read(read), scene(*read.scene), findings(findings), source(source), options(options),
          stages(stages), uses(scene.mNumMeshes, 0) {}

    ImportedScene run();

private:
    AssimpScene& read;
    aiScene& scene;
    const Findings& findings;
    const Source& source;
    const ImportOptions& options;
    Stages& stages;

    std::vector<Instance> instances;
    /// Which node of the glTF each node is.
    std::unordered_map<const aiNode*, std::size_t> gltfNodes;
    std::vector<std::size_t> uses; // of each mesh, still to come
    ImportedScene result;
    TextRepairs repairs;
    std::map<unsigned, std::shared_ptr<kel::material::MaterialClassic>> materials;
    std::map<std::string, Dropped> dropped;

    std::size_t undefinedNormals = 0;
    std::size_t replacedNormals = 0;
    std::size_t replacedNumbers = 0;

    glm::dvec3 low{std::numeric_limits<double>::infinity()};
    glm::dvec3 high{-std::numeric_limits<double>::infinity()};
    bool hasArea = false;

    void drop(const std::string& kind, std::size_t count, const std::string& detail = "");
    std::string place(unsigned mesh) const;
    void collectInstances();
    void matchGltfNodes();
    std::vector<Part> prepare(const aiMesh& mesh);
    Part join(const aiMesh& mesh, PrimitiveType type, std::vector<std::uint32_t> corners);
    void add(const Instance& instance, Part part);
    void bake(const Instance& instance, Part& part);
    void checkExtent() const;
    void release(unsigned mesh);
    void reportScene();
    void reportMesh(const aiMesh& mesh);
    bool describesMaterials() const;
    std::shared_ptr<kel::material::MaterialClassic> material(unsigned index,
                                                             std::optional<std::uint32_t> identifier = {});
    void describe(const Instance& instance, std::map<std::string, std::string>& metadata);
    void describeGltf(std::size_t node, unsigned slot, std::map<std::string, std::string>& metadata);
    std::shared_ptr<kel::material::MaterialClassic> materialOf(const Instance& instance);
    void writeReport();
};

void Converter::drop(const std::string& kind, std::size_t count, const std::string& detail) {
    if (count == 0) return;
    Dropped& entry = dropped[kind];
    entry.kind = kind;
    entry.count += count;
    if (entry.detail.empty()) entry.detail = detail;
}

std::string Converter::place(unsigned mesh) const {
    const aiString& name = scene.mMeshes[mesh]->mName;
    return "mesh " + std::to_string(mesh) +
           (name.length == 0 ? "" : " \"" + kel::src::text::validUtf8({name.data, name.length}) + "\"");
}

void Converter::collectInstances() {
    // Not recursive: how deep the nodes are nested is the file's choice.
    std::vector<std::pair<const aiNode*, glm::dmat4>> waiting;
    if (scene.mRootNode) waiting.emplace_back(scene.mRootNode, glm::dmat4(1.0));
    while (!waiting.empty()) {
        const auto [node, above] = waiting.back();
        waiting.pop_back();
        const glm::dmat4 world = above * matrixOf(node->mTransformation);
        for (unsigned m = 0; m < node->mNumMeshes; ++m) {
            if (node->mMeshes[m] >= scene.mNumMeshes) {
                source.refuse(ImportCode::INVALID_MODEL, "a node uses a mesh that does not exist",
                              std::string("node \"") + node->mName.C_Str() + "\"");
            }
            instances.push_back({node, m, world});
            ++uses[node->mMeshes[m]];
        }
        for (unsigned c = node->mNumChildren; c > 0; --c) {
            waiting.emplace_back(node->mChildren[c - 1], world);
        }
    }
    for (const Instance& instance : instances) {
        for (int column = 0; column < 4; ++column) {
            for (int row = 0; row < 4; ++row) {
                if (std::isfinite(instance.world[column][row])) continue;
                source.refuse(ImportCode::NON_FINITE_TRANSFORM, "the transform of a node is not finite",
                              std::string("node \"") + instance.node->mName.C_Str() + "\"");
            }
        }
    }
}

void Converter::matchGltfNodes() {
    if (!findings.gltf || !scene.mRootNode) return;
    const std::vector<std::size_t>& roots = findings.gltf->sceneRoots();
    std::vector<std::pair<const aiNode*, std::size_t>> waiting;
    const auto push = [&](const aiNode& parent, const std::vector<std::size_t>& nodes) {
        if (parent.mNumChildren != nodes.size()) return;
        for (unsigned c = 0; c < parent.mNumChildren; ++c)
            waiting.emplace_back(parent.mChildren[c], nodes[c]);
    };
    if (roots.size() == 1) {
        waiting.emplace_back(scene.mRootNode, roots[0]);
    } else {
        push(*scene.mRootNode, roots);
    }
    while (!waiting.empty()) {
        const auto [node, index] = waiting.back();
        waiting.pop_back();
        gltfNodes[node] = index;
        push(*node, findings.gltf->childrenOf(index));
    }
}

std::vector<Part> Converter::prepare(const aiMesh& mesh) {
    std::vector<std::uint32_t> triangles;
    std::vector<std::uint32_t> lines;
    std::vector<std::uint32_t> points;
    std::vector<char> used(mesh.mNumVertices, 0);
    std::size_t notFinite = 0;

    const auto take = [&](const unsigned* indices, unsigned count) {
        if (!std::all_of(indices, indices + count, [&](unsigned i) { return isFinite(mesh.mVertices[i]); })) {
            ++notFinite;
            return;
        }
        auto& list = count == 3 ? triangles : count == 2 ? lines : points;
        list.insert(list.end(), indices, indices + count);
        for (unsigned i = 0; i < count; ++i)
            used[indices[i]] = 1;
    };
    std::size_t otherFaces = 0;
    if (mesh.mVertices) {
        for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
            const aiFace& face = mesh.mFaces[f];
            if (face.mNumIndices >= 1 && face.mNumIndices <= 3) {
                take(face.mIndices, face.mNumIndices);
            } else {
                ++otherFaces;
            }
        }
        // A point cloud: vertices without faces.
        if (mesh.mNumFaces == 0) {
            for (unsigned v = 0; v < mesh.mNumVertices; ++v)
                take(&v, 1);
        }
    }
    drop(NOT_FINITE, notFinite);
    drop("faces that could not be triangulated", otherFaces);
    if (notFinite == 0) {
        drop("vertices that no primitive uses",
             static_cast<std::size_t>(std::count(used.begin(), used.end(), 0)));
    }

    std::vector<Part> parts;
    if (!triangles.empty()) parts.push_back(join(mesh, kel::mesh::TRIANGLES, std::move(triangles)));
    if (!lines.empty()) parts.push_back(join(mesh, kel::mesh::LINES, std::move(lines)));
    if (!points.empty()) parts.push_back(join(mesh, kel::mesh::POINTS, std::move(points)));
    return parts;
}

Part Converter::join(const aiMesh& mesh, PrimitiveType type, std::vector<std::uint32_t> corners) {
    Part part;
    part.type = type;
    part.attributes.push_back({kel::mesh::DEFAULT_POSITIONS_NAME, 3, {}});

    const auto goodNormal = [&](std::uint32_t v) {
        const aiVector3D& n = mesh.mNormals[v];
        return isFinite(n) && (n.x != 0.0f || n.y != 0.0f || n.z != 0.0f);
    };
    const bool given = mesh.mNormals != nullptr;
    const bool surface = type == kel::mesh::TRIANGLES;
    const bool allGood = given && std::all_of(corners.begin(), corners.end(), goodNormal);
    CornerNormals made;
    if (surface && !allGood) {
        made = makeNormals(mesh.mVertices, corners);
        undefinedNormals += made.undefined;
    }
    const bool withNormals = surface || given;
    if (withNormals) part.attributes.push_back({kel::mesh::DEFAULT_NORMALS_NAME, 3, {}});

    std::vector<unsigned> texcoords;
    for (unsigned t = 0; t < AI_MAX_NUMBER_OF_TEXTURECOORDS; ++t) {
        if (!mesh.mTextureCoords[t]) continue;
        part.attributes.push_back(
            {texcoords.empty() ? "texcoord" : "texcoord" + std::to_string(texcoords.size()), 2, {}});
        texcoords.push_back(t);
    }
    std::vector<unsigned> colors;
    for (unsigned c = 0; c < AI_MAX_NUMBER_OF_COLOR_SETS; ++c) {
        if (!mesh.mColors[c]) continue;
        part.attributes.push_back(
            {colors.empty() ? "color" : "color" + std::to_string(colors.size()), 3, {}});
        colors.push_back(c);
    }

    std::vector<std::size_t> widths;
    std::size_t width = 0;
    for (const Attribute& attribute : part.attributes) {
        widths.push_back(attribute.width);
        width += attribute.width;
    }
    VertexJoiner joiner(std::move(widths));
    std::vector<float> vertex(width);
    // A vertex that was looked up once needs no second look, unless its corners have normals of their own.
    std::vector<std::uint32_t> known(made.ofCorner.empty() ? mesh.mNumVertices : 0, NONE);

    for (std::size_t corner = 0; corner < corners.size(); ++corner) {
        const std::uint32_t v = corners[corner];
        if (!known.empty() && known[v] != NONE) {
            corners[corner] = known[v];
            continue;
        }
        float* out = vertex.data();
        const auto put = [&](float number) {
            if (!std::isfinite(number)) {
                ++replacedNumbers;
                number = 0.0f;
            }
            *out++ = number + 0.0f; // -0 becomes 0, so that equal numbers have equal bits
        };
        put(mesh.mVertices[v].x);
        put(mesh.mVertices[v].y);
        put(mesh.mVertices[v].z);
        if (withNormals) {
            if (given && goodNormal(v)) {
                put(mesh.mNormals[v].x);
                put(mesh.mNormals[v].y);
                put(mesh.mNormals[v].z);
            } else {
                replacedNormals += given;
                const float up[3] = {0.0f, 0.0f, 1.0f};
                const float* normal = surface ? &made.normals[3 * std::size_t{made.ofCorner[corner]}] : up;
                for (int axis = 0; axis < 3; ++axis)
                    put(normal[axis]);
            }
        }
        for (const unsigned t : texcoords) {
            put(mesh.mTextureCoords[t][v].x);
            put(mesh.mTextureCoords[t][v].y);
        }
        for (const unsigned c : colors) {
            put(mesh.mColors[c][v].r);
            put(mesh.mColors[c][v].g);
            put(mesh.mColors[c][v].b);
        }
        corners[corner] = joiner.add(vertex.data());
        if (!known.empty()) known[v] = corners[corner];
    }
    for (std::size_t a = 0; a < part.attributes.size(); ++a) {
        part.attributes[a].values = std::move(joiner.stream(a));
        part.attributes[a].values.shrink_to_fit();
    }
    part.indices = std::move(corners);
    return part;
}

void Converter::bake(const Instance& instance, Part& part) {
    const glm::dmat4& m = instance.world;
    std::vector<float>& positions = part.attributes[0].values;
    if (m != glm::dmat4(1.0)) {
        for (std::size_t i = 0; i + 2 < positions.size(); i += 3) {
            const glm::dvec4 p = m * glm::dvec4(positions[i], positions[i + 1], positions[i + 2], 1.0);
            for (int axis = 0; axis < 3; ++axis)
                positions[i + axis] = static_cast<float>(p[axis]) + 0.0f;
        }
    }

    // The matrix of cofactors is the inverse transpose times the determinant: it turns normals alike, and it
    // exists for transforms that flatten, too. The columns' sizes cancel when normals are made unit length;
    // dividing by the largest keeps the products from overflowing.
    glm::dmat3 linear(m);
    double largest = 0.0;
    for (int c = 0; c < 3; ++c) {
        for (int r = 0; r < 3; ++r)
            largest = std::max(largest, std::abs(linear[c][r]));
    }
    if (largest > 0.0) linear /= largest;
    glm::dmat3 cofactors(glm::cross(linear[1], linear[2]), glm::cross(linear[2], linear[0]),
                         glm::cross(linear[0], linear[1]));
    const bool mirrors = glm::dot(linear[0], cofactors[0]) < 0.0;
    if (mirrors) cofactors = -cofactors;
    if (part.attributes.size() > 1 && part.attributes[1].name == kel::mesh::DEFAULT_NORMALS_NAME) {
        std::vector<float>& normals = part.attributes[1].values;
        for (std::size_t i = 0; i + 2 < normals.size(); i += 3) {
            glm::dvec3 n = cofactors * glm::dvec3(normals[i], normals[i + 1], normals[i + 2]);
            const double length = glm::length(n);
            if (length > 0.0 && std::isfinite(length)) {
                n /= length;
            } else {
                n = {0.0, 0.0, 1.0};
                ++undefinedNormals;
            }
            for (int axis = 0; axis < 3; ++axis)
                normals[i + axis] = static_cast<float>(n[axis]) + 0.0f;
        }
    }
    if (mirrors && part.type == kel::mesh::TRIANGLES) {
        for (std::size_t i = 0; i + 2 < part.indices.size(); i += 3) {
            std::swap(part.indices[i + 1], part.indices[i + 2]);
        }
    }

    glm::dvec3 partLow(std::numeric_limits<double>::infinity());
    glm::dvec3 partHigh(-std::numeric_limits<double>::infinity());
    for (std::size_t i = 0; i + 2 < positions.size(); i += 3) {
        for (int axis = 0; axis < 3; ++axis) {
            const double value = static_cast<double>(positions[i + axis]);
            if (!std::isfinite(value)) {
                source.refuse(ImportCode::EXTENT_OVERFLOW,
                              "a position does not fit a 32-bit float once the node's transform is applied",
                              place(instance.mesh()));
            }
            partLow[axis] = std::min(partLow[axis], value);
            partHigh[axis] = std::max(partHigh[axis], value);
        }
    }
    low = glm::min(low, partLow);
    high = glm::max(high, partHigh);
    const glm::dvec3 extent = high - low;
    if (std::max({extent.x, extent.y, extent.z}) > static_cast<double>(std::numeric_limits<float>::max())) {
        source.refuse(ImportCode::EXTENT_OVERFLOW, "the extent of the model does not fit a 32-bit float",
                      place(instance.mesh()));
    }

    if (part.type == kel::mesh::TRIANGLES) {
        const auto at = [&](std::size_t corner) {
            const float* p = &positions[3 * std::size_t{part.indices[corner]}];
            return glm::dvec3(p[0], p[1], p[2]);
        };
        for (std::size_t i = 0; i + 2 < part.indices.size() && !hasArea; i += 3) {
            const glm::dvec3 area = glm::cross(at(i + 1) - at(i), at(i + 2) - at(i));
            hasArea = area != glm::dvec3(0.0);
        }
    }
}

void Converter::add(const Instance& instance, Part part) {
    bake(instance, part);

    auto mesh = std::make_shared<DefaultMesh>(part.type);
    const std::size_t vertices = part.attributes[0].values.size() / 3;
    const std::size_t primitives = part.indices.size() / cornersOf(part.type);
    if (vertices <= LARGEST_SHORT_MESH) {
        mesh->setIndices(std::vector<std::uint16_t>(part.indices.begin(), part.indices.end()));
    } else {
        mesh->setIndices(std::move(part.indices));
    }
    for (Attribute& attribute : part.attributes) {
        mesh->addAttribute(std::move(attribute.name), attribute.width, std::move(attribute.values));
    }

    ImportReport& report = result.report;
    ++report.meshes;
    report.vertices += vertices;
    (part.type == kel::mesh::TRIANGLES ? report.triangles
     : part.type == kel::mesh::LINES   ? report.lines
                                       : report.points) += primitives;

    kel::scene::SceneMesh entry;
    describe(instance, entry.editMetaData());
    if (auto classic = materialOf(instance)) {
        result.scene.materials.insert(classic);
        entry.material = std::move(classic);
    }
    entry.mesh = std::move(mesh);
    result.scene.meshes.push_back(std::move(entry));
}

void Converter::describe(const Instance& instance, std::map<std::string, std::string>& metadata) {
    metadata["source"] = sourceObject(source.name, read.format, scene, repairs);
    // Around several root nodes of a glTF the reader puts one of its own.
    const bool withRoot = !findings.gltf || findings.gltf->sceneRoots().size() == 1;
    metadata["node"] = nodePath(*instance.node, withRoot, repairs);
    const auto node = gltfNodes.find(instance.node);
    if (node != gltfNodes.end()) {
        describeGltf(node->second, instance.slot, metadata);
        return;
    }
    const aiString& meshName = scene.mMeshes[instance.mesh()]->mName;
    const aiString& name = meshName.length > 0 ? meshName : instance.node->mName;
    if (name.length > 0) metadata["name"] = jsonString(nameOf(name, repairs), repairs);
    std::string own = extras(instance.node->mMetaData, repairs);
    if (!own.empty()) metadata["extras"] = std::move(own);
}

void Converter::describeGltf(std::size_t node, unsigned slot, std::map<std::string, std::string>& metadata) {
    const GltfDocument& document = *findings.gltf;
    const auto keep = [&](const char* key, const picojson::value* owner) {
        const picojson::value* value = member(owner, "extras");
        if (!value) return;
        std::string text;
        kel::src::text::appendJson(text, *value);
        bool changed = false;
        metadata[key] = kel::src::text::validUtf8(text, &changed);
        repairs.notUtf8 += changed;
    };
    const std::size_t mesh = document.meshOf(node).value_or(0);
    std::string name = textOf(member(document.find("meshes", mesh), "name"));
    if (name.empty()) name = textOf(member(document.find("nodes", node), "name"));
    if (!name.empty()) metadata["name"] = jsonString(name, repairs);
    keep("extras", document.find("nodes", node));
    keep("meshExtras", document.find("meshes", mesh));
    keep("sceneExtras", document.scene());
    if (const auto material = wholeNumber(member(document.primitive(mesh, slot), "material"))) {
        keep("materialExtras", document.find("materials", static_cast<std::size_t>(*material)));
    }
}

std::shared_ptr<kel::material::MaterialClassic> Converter::materialOf(const Instance& instance) {
    const unsigned index = scene.mMeshes[instance.mesh()]->mMaterialIndex;
    const auto node = gltfNodes.find(instance.node);
    if (node == gltfNodes.end()) return material(index);
    // The reader keeps the materials in the order in which it came across them, and adds one for
    // primitives without.
    const GltfDocument& document = *findings.gltf;
    const auto stated = wholeNumber(
        member(document.primitive(document.meshOf(node->second).value_or(0), instance.slot), "material"));
    if (!stated) return nullptr;
    return material(index, static_cast<std::uint32_t>(*stated));
}

bool Converter::describesMaterials() const {
    // Of these formats, or of a file without any material, Assimp makes a grey one up.
    const std::string& format = read.format;
    for (const char* without : {"STL", "PLY", "OFF", "Stereolithography", "Polygon Library"}) {
        if (format.find(without) != std::string::npos) return false;
    }
    return true;
}

std::shared_ptr<kel::material::MaterialClassic> Converter::material(unsigned index,
                                                                    std::optional<std::uint32_t> identifier) {
    if (index >= scene.mNumMaterials || !describesMaterials()) return nullptr;
    const auto found = materials.find(index);
    if (found != materials.end()) return found->second;
    const aiMaterial& given = *scene.mMaterials[index];
    aiString name;
    given.Get(AI_MATKEY_NAME, name);
    if (!identifier && std::string(name.C_Str()) == AI_DEFAULT_MATERIAL_NAME)
        return materials[index] = nullptr;
    int twoSided = 0;
    drop("two-sided flags", given.Get(AI_MATKEY_TWOSIDED, twoSided) == aiReturn_SUCCESS && twoSided != 0,
         "of materials");
    return materials[index] = makeClassicMaterial(given, identifier.value_or(index));
}

void Converter::release(unsigned mesh) {
    // The name and the material stay for messages; the rest is what weighs.
    aiMesh& m = *scene.mMeshes[mesh];
    const auto free = [](auto*& array) {
        delete[] array;
        array = nullptr;
    };
    free(m.mVertices);
    free(m.mNormals);
    free(m.mTangents);
    free(m.mBitangents);
    free(m.mFaces);
    m.mNumFaces = 0;
    for (auto*& set : m.mTextureCoords)
        free(set);
    for (auto*& set : m.mColors)
        free(set);
}

void Converter::reportMesh(const aiMesh& mesh) {
    drop("bones", mesh.mNumBones);
    drop("morph targets", mesh.mNumAnimMeshes);
    drop("tangents", mesh.mTangents != nullptr, "of whole meshes");
    for (unsigned c = 0; c < AI_MAX_NUMBER_OF_COLOR_SETS; ++c) {
        if (!mesh.mColors[c]) continue;
        const aiColor4D* first = mesh.mColors[c];
        const aiColor4D* last = first + mesh.mNumVertices;
        // The reader leaves 0 where a file states no alpha.
        const bool stated = std::any_of(first, last, [](const aiColor4D& color) { return color.a != 0.0f; });
        drop("alpha channels",
             stated && std::any_of(first, last, [](const aiColor4D& color) { return color.a != 1.0f; }),
             "of vertex colours");
    }
    for (unsigned t = 0; t < AI_MAX_NUMBER_OF_TEXTURECOORDS; ++t) {
        if (!mesh.mTextureCoords[t]) continue;
        drop("third texture coordinates",
             mesh.mNumUVComponents[t] > 2 &&
                 std::any_of(mesh.mTextureCoords[t], mesh.mTextureCoords[t] + mesh.mNumVertices,
                             [](const aiVector3D& uv) { return uv.z != 0.0f; }),
             "of whole meshes");
    }
}

void Converter::reportScene() {
    Textures textures;
    for (unsigned m = 0; m < scene.mNumMaterials; ++m)
        textures.add(*scene.mMaterials[m]);
    std::size_t unnamed = 0;
    for (unsigned t = 0; t < scene.mNumTextures; ++t) {
        unnamed += textures.names.count("*" + std::to_string(t)) == 0 &&
                   textures.names.count(scene.mTextures[t]->mFilename.C_Str()) == 0;
    }
    drop("textures", textures.names.size() + unnamed, listed(textures.names));
    drop("cameras", scene.mNumCameras);
    drop("lights", scene.mNumLights);
    drop("animations", scene.mNumAnimations);
    std::size_t unused = static_cast<std::size_t>(std::count(uses.begin(), uses.end(), std::size_t{0}));
    if (findings.gltf) {
        // The reader does not even load those.
        std::set<std::size_t> used;
        for (const auto& entry : gltfNodes) {
            if (const auto mesh = findings.gltf->meshOf(entry.second)) used.insert(*mesh);
        }
        std::size_t all = 0;
        while (findings.gltf->find("meshes", all))
            ++all;
        unused = all - used.size();
    }
    drop("meshes that no node uses", unused);
    for (const Dropped& found : findings.dropped)
        drop(found.kind, found.count, found.detail);
    result.report.notes = findings.notes;

    std::vector<const aiNode*> waiting;
    if (scene.mRootNode) waiting.push_back(scene.mRootNode);
    std::size_t extrasWithoutMesh = 0;
    while (!waiting.empty()) {
        const aiNode* node = waiting.back();
        waiting.pop_back();
        const auto gltf = gltfNodes.find(node);
        const bool has = gltf == gltfNodes.end()
                             ? node->mMetaData && node->mMetaData->mNumProperties > 0
                             : member(findings.gltf->find("nodes", gltf->second), "extras") != nullptr;
        extrasWithoutMesh += has && node->mNumMeshes == 0;
        waiting.insert(waiting.end(), node->mChildren, node->mChildren + node->mNumChildren);
    }
    drop("extras of nodes without a mesh", extrasWithoutMesh);
}

void Converter::checkExtent() const {
    if (result.scene.meshes.empty()) {
        source.refuse(ImportCode::NO_MESH, "nothing to draw: no point, line or triangle");
    }
    if (low == high) source.refuse(ImportCode::NO_EXTENT, "all vertices are at one place");
    const ImportReport& report = result.report;
    if (report.lines == 0 && report.points == 0 && !hasArea) {
        source.refuse(ImportCode::NO_EXTENT,
                      "none of the " + std::to_string(report.triangles) + " triangles has an area");
    }
}

void Converter::writeReport() {
    ImportReport& report = result.report;
    for (auto& entry : dropped)
        report.dropped.push_back(std::move(entry.second));
    const auto note = [&](std::size_t count, const std::string& text) {
        if (count > 0) report.notes.push_back(std::to_string(count) + " " + text);
    };
    note(replacedNormals, "normals that were zero or not finite were replaced");
    note(undefinedNormals, "normals are undefined, since no triangle there has an area, and point along z");
    note(replacedNumbers, "texture coordinates or colours that were not finite were set to 0");
    note(repairs.notUtf8, "texts were not UTF-8; the bytes at fault were replaced by U+FFFD");
    note(repairs.notFinite, "numbers among the extras are not finite and became null");
    note(repairs.tooDeep, "values among the extras are nested too deep and became null");
    note(repairs.cut, "names are as long as the reader can hold and may have been cut");
    for (const std::string& file : read.missingFiles) {
        report.notes.push_back("The model names a file that could not be opened: " + file);
    }
}

ImportedScene Converter::run() {
    stages.at(CONVERTING, 0.0);
    result.report.format = read.format;
    collectInstances();
    matchGltfNodes();
    if (instances.empty()) {
        source.refuse(ImportCode::NO_MESH, "the scene has no mesh");
    }
    reportScene();
    drop(NOT_FINITE, read.brokenPolygons);

    std::size_t all = 0;
    for (const Instance& instance : instances)
        all += scene.mMeshes[instance.mesh()]->mNumVertices;
    std::size_t done = 0;
    std::map<unsigned, std::vector<Part>> kept; // parts of meshes with uses to come
    for (const Instance& instance : instances) {
        const unsigned m = instance.mesh();
        auto found = kept.find(m);
        if (found == kept.end()) {
            reportMesh(*scene.mMeshes[m]);
            found = kept.emplace(m, prepare(*scene.mMeshes[m])).first;
            release(m);
        }
        if (--uses[m] == 0) {
            for (Part& part : found->second)
                add(instance, std::move(part));
            kept.erase(found);
        } else {
            for (const Part& part : found->second)
                add(instance, part);
        }
        done += scene.mMeshes[m]->mNumVertices;
        stages.at(CONVERTING, all == 0 ? 1.0 : static_cast<double>(done) / static_cast<double>(all));
    }
    checkExtent();
    writeReport();
    stages.at(CONVERTING, 1.0);
    return std::move(result);
}

} // namespace

ImportedScene convertScene(AssimpScene scene, const Findings& findings, const Source& source,
                           const ImportOptions& options, Stages& stages) {
    return Converter(scene, findings, source, options, stages).run();
}

} // namespace kel::importer::detail
