#include <kel/importer/Exporter.h>

#include <kel/mesh/AttributeNames.h>
#include <kel/mesh/ForEachPrimitive.h>

#include <assimp/Exporter.hpp>
#include <assimp/IOStream.hpp>
#include <assimp/IOSystem.hpp>
#include <assimp/material.h>
#include <assimp/mesh.h>
#include <assimp/scene.h>
#include <picojson.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <utility>

namespace kel::importer {

namespace {

using kel::src::DecodedAttribute;
using kel::src::DecodedMesh;
using kel::src::SRC_NONE;
using kel::src::SrcFile;
using kel::src::SrcMaterial;
using kel::src::SrcMesh;

/// What a format can hold.
struct Format {
    const char* extension;
    const char* assimpId;
    bool names, materials, metadata, pointsAndLines, normals, colours;
    bool metallicRoughness; ///< instead of specular colour and shininess
    std::size_t texcoordSets;
};

constexpr Format FORMATS[] = {
    {"glb", "glb2", true, true, true, true, true, true, true, 4},
    {"gltf", "gltf2", true, true, true, true, true, true, true, 4},
    {"obj", "obj", true, true, false, true, true, true, false, 1},
    {"ply", "plyb", false, false, false, false, true, true, false, 1},
    {"stl", "stlb", false, false, false, false, false, false, false, 0},
};

const Format& formatOf(const std::string& fileName) {
    const std::size_t dot = fileName.rfind('.');
    std::string extension = dot == std::string::npos ? "" : fileName.substr(dot + 1);
    for (char& letter : extension) {
        if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
    }
    for (const Format& format : FORMATS) {
        if (extension == format.extension) return format;
    }
    throw ExportError("there is no exporter for the extension \"" + extension + '"');
}

// ---- Files in memory ------------------------------------------------------------------------------------

class MemoryStream final : public Assimp::IOStream {
public:
    explicit MemoryStream(std::string& bytes) : bytes(bytes) {}

    std::size_t Read(void*, std::size_t, std::size_t) override { return 0; }
    std::size_t Write(const void* buffer, std::size_t size, std::size_t count) override {
        const std::size_t length = size * count;
        if (bytes.size() < position + length) bytes.resize(position + length);
        if (length != 0) std::memcpy(bytes.data() + position, buffer, length);
        position += length;
        return count;
    }
    aiReturn Seek(std::size_t offset, aiOrigin origin) override {
        position = offset + (origin == aiOrigin_SET ? 0 : origin == aiOrigin_CUR ? position : bytes.size());
        return aiReturn_SUCCESS;
    }
    std::size_t Tell() const override { return position; }
    std::size_t FileSize() const override { return bytes.size(); }
    void Flush() override {}

private:
    std::string& bytes;
    std::size_t position = 0;
};

/// Keeps what an exporter writes, by name.
class MemoryFiles final : public Assimp::IOSystem {
public:
    explicit MemoryFiles(std::vector<std::unique_ptr<ExportedFile>>& files) : files(files) {}

    bool Exists(const char*) const override { return false; }
    char getOsSeparator() const override { return '/'; }
    Assimp::IOStream* Open(const char* name, const char*) override {
        files.push_back(std::make_unique<ExportedFile>());
        files.back()->name = name;
        return new MemoryStream(files.back()->bytes);
    }
    void Close(Assimp::IOStream* stream) override { delete stream; }

private:
    std::vector<std::unique_ptr<ExportedFile>>& files;
};

// ---- The scene ------------------------------------------------------------------------------------------

aiString assimpString(std::string_view text) {
    aiString result;
    result.Set(std::string(text.substr(0, MAXLEN - 1)));
    return result;
}

/// The number of a set: 0 for "texcoord", 2 for "texcoord2"; false for any other name.
bool isSet(const std::string& name, const char* base, std::size_t& set) {
    const std::size_t length = std::strlen(base);
    if (name.compare(0, length, base) != 0) return false;
    const std::string digits = name.substr(length);
    set = 0;
    if (digits.empty()) return true;
    if (digits.size() > 2 || digits[0] == '0') return false;
    for (const char digit : digits) {
        if (digit < '0' || digit > '9') return false;
        set = set * 10 + static_cast<std::size_t>(digit - '0');
    }
    return true;
}

class SceneMaker {
public:
    SceneMaker(const SrcFile& file, const Format& format) : file(file), format(format) {}

    ExportResult result;
    std::vector<picojson::object> nodeExtras; ///< metadata of the meshes that became nodes
    bool hasColours = false;

    std::unique_ptr<aiScene> make() {
        for (const SrcMesh& mesh : file.meshes())
            addMesh(mesh);
        if (meshes.empty())
            throw ExportError("there is nothing in it that ." + std::string(format.extension) +
                              " files can hold");
        result.meshes = meshes.size();
        reportLosses();

        auto scene = std::make_unique<aiScene>();
        addMaterials(*scene);
        scene->mRootNode = new aiNode("scene");
        scene->mNumMeshes = static_cast<unsigned>(meshes.size());
        scene->mMeshes = new aiMesh*[meshes.size()];
        auto** children = new aiNode*[meshes.size()];
        for (std::size_t i = 0; i < meshes.size(); ++i) {
            scene->mMeshes[i] = meshes[i].release();
            aiNode* node = nodes[i].release();
            node->mParent = scene->mRootNode;
            node->mNumMeshes = 1;
            node->mMeshes = new unsigned[1]{static_cast<unsigned>(i)};
            children[i] = node;
        }
        scene->mRootNode->mNumChildren = static_cast<unsigned>(nodes.size());
        scene->mRootNode->mChildren = children;
        return scene;
    }

private:
    void drop(const std::string& kind, std::size_t count, const std::string& detail) {
        if (count != 0) result.dropped.push_back({kind, count, detail});
    }

    void reportLosses() {
        const std::string cannot = '.' + std::string(format.extension) + " files cannot hold them";
        for (const auto& [kind, count] : unsupported)
            drop(kind, count, cannot);
        drop("meshes without anything to draw", empty, "");
        drop("attributes of other lengths than the positions", mismatched, "");
        if (!format.names) drop("names of meshes", named, cannot);
        if (!format.materials) drop("materials", file.materials().size(), cannot);
        if (!format.metadata) drop("metadata of meshes", withMetadata, cannot);
        drop("metadata of the file", kel::src::jsonMembers(file.metadata()).size(),
             "exporters have no place for them");
    }

    // ---- Meshes -----------------------------------------------------------------------------------------

    void addMesh(const SrcMesh& source) {
        const bool triangles = source.primitive == kel::mesh::TRIANGLES ||
                               source.primitive == kel::mesh::TRIANGLE_STRIP ||
                               source.primitive == kel::mesh::TRIANGLE_FAN;
        if (!triangles && !format.pointsAndLines) {
            ++unsupported[source.primitive == kel::mesh::POINTS ? "meshes of points" : "meshes of lines"];
            return;
        }
        const DecodedMesh decoded = decodeMesh(file, source);
        const DecodedAttribute* positions = decoded.find(kel::mesh::DEFAULT_POSITIONS_NAME);
        const std::size_t count = positions && positions->components == 3 ? positions->values.size() / 3 : 0;
        const std::size_t corners = decoded.indexed ? decoded.indices.size() : count;
        auto mesh = std::make_unique<aiMesh>();
        fillFaces(source, decoded, corners, count, *mesh);
        if (mesh->mNumFaces == 0) {
            ++empty;
            return;
        }
        mesh->mNumVertices = static_cast<unsigned>(count);
        for (const DecodedAttribute& attribute : decoded.attributes)
            addAttribute(attribute, count, *mesh);
        for (std::size_t v = 0; v < count; ++v) {
            const aiVector3D& p = mesh->mVertices[v];
            if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z))
                throw ExportError("a position of mesh \"" + std::string(source.id) +
                                  "\" is not a finite number");
        }
        mesh->mMaterialIndex = source.material == SRC_NONE ? noMaterial() : source.material;
        result.vertices += count;
        (triangles                               ? result.triangles
         : source.primitive == kel::mesh::POINTS ? result.points
                                                 : result.lines) += mesh->mNumFaces;

        auto node = std::make_unique<aiNode>();
        std::string name;
        addMetadata(source, name);
        if (!name.empty()) ++named;
        // Exporters tell nodes apart by their names.
        node->mName = assimpString(name.empty() ? "mesh" + std::string(source.id) : name);
        mesh->mName = node->mName;
        meshes.push_back(std::move(mesh));
        nodes.push_back(std::move(node));
    }

    static void fillFaces(const SrcMesh& source, const DecodedMesh& decoded, std::size_t corners,
                          std::size_t vertices, aiMesh& mesh) {
        if (vertices == 0) return;
        if (std::max(vertices, corners) > std::size_t(AI_MAX_VERTICES))
            throw ExportError("mesh \"" + std::string(source.id) + "\" has too many vertices");
        using Corners = std::array<std::size_t, 3>;
        std::size_t faces = 0;
        kel::mesh::forEachPrimitive(source.primitive, corners, [&](const Corners&, std::size_t) { ++faces; });
        mesh.mFaces = new aiFace[faces];
        mesh.mNumFaces = static_cast<unsigned>(faces);
        std::size_t next = 0;
        kel::mesh::forEachPrimitive(source.primitive, corners, [&](const Corners& places, std::size_t size) {
            aiFace& face = mesh.mFaces[next++];
            face.mNumIndices = static_cast<unsigned>(size);
            face.mIndices = new unsigned[size];
            for (std::size_t i = 0; i < size; ++i) {
                const unsigned index =
                    decoded.indexed ? decoded.indices[places[i]] : static_cast<unsigned>(places[i]);
                face.mIndices[i] = index;
                if (index >= vertices)
                    throw ExportError("mesh \"" + std::string(source.id) + "\" uses vertex " +
                                      std::to_string(index) + " of " + std::to_string(vertices));
            }
            mesh.mPrimitiveTypes |= size == 1   ? aiPrimitiveType_POINT
                                    : size == 2 ? aiPrimitiveType_LINE
                                                : aiPrimitiveType_TRIANGLE;
        });
    }

    static aiVector3D* vectors(const DecodedAttribute& attribute) {
        const std::size_t count = attribute.values.size() / attribute.components;
        auto* result = new aiVector3D[count];
        for (std::size_t v = 0; v < count; ++v) {
            const float* value = attribute.values.data() + v * attribute.components;
            result[v] = aiVector3D(value[0], attribute.components > 1 ? value[1] : 0.0f,
                                   attribute.components > 2 ? value[2] : 0.0f);
        }
        return result;
    }

    void addAttribute(const DecodedAttribute& attribute, std::size_t count, aiMesh& mesh) {
        if (attribute.values.size() / attribute.components != count) {
            ++mismatched;
            return;
        }
        std::size_t set = 0;
        const bool three = attribute.components == 3;
        if (attribute.name == kel::mesh::DEFAULT_POSITIONS_NAME && three && !mesh.mVertices) {
            mesh.mVertices = vectors(attribute);
        } else if (attribute.name == kel::mesh::DEFAULT_NORMALS_NAME && three && format.normals &&
                   !mesh.mNormals) {
            mesh.mNormals = vectors(attribute);
            // Quantized normals are not of unit length, which some targets ask for.
            for (std::size_t v = 0; v < count; ++v)
                mesh.mNormals[v].NormalizeSafe();
        } else if (isSet(attribute.name, "texcoord", set) && set < format.texcoordSets &&
                   attribute.components <= 3 && !mesh.mTextureCoords[set]) {
            mesh.mTextureCoords[set] = vectors(attribute);
            mesh.mNumUVComponents[set] = static_cast<unsigned>(attribute.components);
        } else if (isSet(attribute.name, "color", set) && set == 0 && format.colours &&
                   attribute.components >= 3 && !mesh.mColors[0]) {
            hasColours = true;
            mesh.mColors[0] = new aiColor4D[count];
            for (std::size_t v = 0; v < count; ++v) {
                const float* value = attribute.values.data() + v * attribute.components;
                mesh.mColors[0][v] =
                    aiColor4D(value[0], value[1], value[2], attribute.components > 3 ? value[3] : 1.0f);
            }
        } else {
            ++unsupported['"' + attribute.name + "\" attributes"];
        }
    }

    void addMetadata(const SrcMesh& source, std::string& name) {
        picojson::object extras;
        const auto members = kel::src::jsonMembers(source.metadata);
        bool any = false;
        for (const auto& member : members) {
            if (member.key == "name" && kel::src::jsonString(member.json, name)) continue;
            if (member.key == "fit") continue;
            any = true;
            if (!format.metadata) continue;
            picojson::value value;
            const char* end = member.json.data() + member.json.size();
            std::string error;
            picojson::parse(value, member.json.data(), end, &error);
            if (error.empty()) extras[member.key] = std::move(value);
        }
        if (any) ++withMetadata;
        nodeExtras.push_back(std::move(extras));
    }

    // ---- Materials --------------------------------------------------------------------------------------

    unsigned noMaterial() {
        needsNeutral = true;
        return static_cast<unsigned>(file.materials().size());
    }

    aiMaterial* materialOf(const SrcMaterial& source) const {
        auto material = std::make_unique<aiMaterial>();
        const auto vector = [&](const char* name, std::size_t count) {
            std::vector<double> values = file.materialParameter(source, name);
            if (values.size() != count) values.clear();
            return values;
        };
        const auto color = [](const std::vector<double>& v, double factor = 1.0) {
            return aiColor3D(static_cast<float>(v[0] * factor), static_cast<float>(v[1] * factor),
                             static_cast<float>(v[2] * factor));
        };
        const aiString name = assimpString(source.id);
        material->AddProperty(&name, AI_MATKEY_NAME);
        const auto diffuse = vector("diffuseColor", 3);
        const auto addColor = [&](const std::vector<double>& values, double factor, const char* key) {
            if (values.empty()) return;
            const aiColor3D value = color(values, factor);
            material->AddProperty(&value, 1, key, 0, 0);
        };
        const auto addNumber = [&](float value, const char* key) {
            material->AddProperty(&value, 1, key, 0, 0);
        };
        addColor(diffuse, 1.0, "$clr.diffuse");
        addColor(vector("emissiveColor", 3), 1.0, "$clr.emissive");
        const auto ambient = vector("ambientIntensity", 1);
        if (!ambient.empty()) addColor(diffuse, ambient[0], "$clr.ambient");
        const auto shininess = vector("shininess", 1);
        if (format.metallicRoughness) {
            addColor(diffuse, 1.0, "$clr.base");
            addNumber(0.0f, "$mat.metallicFactor");
            // The roughness whose highlight is as wide as that of the exponent 128 times the shininess.
            const double exponent = shininess.empty() ? 0.0 : std::max(shininess[0], 0.0) * 128.0;
            addNumber(static_cast<float>(std::pow(2.0 / (exponent + 2.0), 0.25)), "$mat.roughnessFactor");
        } else {
            addColor(vector("specularColor", 3), 1.0, "$clr.specular");
            if (!shininess.empty()) addNumber(static_cast<float>(shininess[0] * 128.0), "$mat.shininess");
        }
        // The technique's default would make see-through what its writer has no word for.
        for (const auto& member : kel::src::jsonMembers(source.values)) {
            std::vector<double> transparency;
            if (member.key != "transparency" || !kel::src::jsonNumbers(member.json, transparency) ||
                transparency.size() != 1 || transparency[0] == 0.0)
                continue;
            addNumber(static_cast<float>(1.0 - transparency[0]), "$mat.opacity");
            const aiString blend("BLEND");
            material->AddProperty(&blend, "$mat.gltf.alphaMode", 0, 0);
        }
        return material.release();
    }

    void addMaterials(aiScene& scene) const {
        const std::size_t count = file.materials().size() + (needsNeutral ? 1 : 0);
        scene.mMaterials = new aiMaterial*[count]();
        scene.mNumMaterials = static_cast<unsigned>(count);
        for (std::size_t i = 0; i < file.materials().size(); ++i)
            scene.mMaterials[i] = materialOf(file.materials()[i]);
        if (!needsNeutral) return;
        auto neutral = std::make_unique<aiMaterial>();
        const aiString name("none");
        neutral->AddProperty(&name, AI_MATKEY_NAME);
        const aiColor3D grey(0.8f, 0.8f, 0.8f);
        neutral->AddProperty(&grey, 1, AI_MATKEY_COLOR_DIFFUSE);
        scene.mMaterials[count - 1] = neutral.release();
    }

    const SrcFile& file;
    const Format& format;
    std::vector<std::unique_ptr<aiMesh>> meshes;
    std::vector<std::unique_ptr<aiNode>> nodes;
    std::map<std::string, std::size_t> unsupported;
    std::size_t empty = 0, mismatched = 0, named = 0, withMetadata = 0;
    bool needsNeutral = false;
};

// ---- Extras ---------------------------------------------------------------------------------------------

/// Puts metadata into a glTF's JSON, as "extras" of the nodes that the scene's first node holds: Assimp's
/// exporter leaves them out.
std::string withExtras(const char* begin, const char* end, const std::vector<picojson::object>& extras) {
    picojson::value json;
    std::string error;
    picojson::parse(json, begin, end, &error);
    if (!error.empty()) throw ExportError("the exporter wrote no JSON: " + error);
    auto& nodes = json.get<picojson::object>().at("nodes").get<picojson::array>();
    const auto number = [](const picojson::value& value) {
        return static_cast<std::size_t>(value.get<double>());
    };
    const picojson::array children = nodes.at(number(json.get("scenes").get(0).get("nodes").get(0)))
                                         .get("children")
                                         .get<picojson::array>();
    for (std::size_t i = 0; i < extras.size(); ++i) {
        if (extras[i].empty()) continue;
        nodes.at(number(children.at(i))).get<picojson::object>()["extras"] = picojson::value(extras[i]);
    }
    return json.serialize();
}

void appendWord(std::string& bytes, std::size_t word) {
    for (int byte = 0; byte < 4; ++byte)
        bytes += static_cast<char>(word >> (8 * byte) & 0xff);
}

/// The same for a GLB: preamble of 12 bytes, then chunks of length, kind and content, the first of JSON.
std::string withExtrasInGlb(const std::string& glb, const std::vector<picojson::object>& extras) {
    constexpr std::size_t PREAMBLE = 12, CHUNK_HEAD = 8;
    if (glb.size() < PREAMBLE + CHUNK_HEAD) throw ExportError("the exporter wrote no whole GLB");
    std::size_t length = 0;
    for (std::size_t byte = 0; byte < 4; ++byte)
        length |= static_cast<std::size_t>(static_cast<unsigned char>(glb[PREAMBLE + byte])) << (8 * byte);
    if (length > glb.size() - PREAMBLE - CHUNK_HEAD) throw ExportError("the exporter wrote no whole GLB");
    const char* json = glb.data() + PREAMBLE + CHUNK_HEAD;
    std::string text = withExtras(json, json + length, extras);
    text.append((4 - text.size() % 4) % 4, ' ');
    const std::size_t rest = PREAMBLE + CHUNK_HEAD + length;
    const std::size_t size = PREAMBLE + CHUNK_HEAD + text.size() + (glb.size() - rest);
    if (size > 0xffffffffu) throw ExportError("the GLB would be larger than 4 GiB");
    std::string result = glb.substr(0, 8);
    appendWord(result, size);
    appendWord(result, text.size());
    result += glb.substr(PREAMBLE + 4, 4);
    result += text;
    result.append(glb, rest, std::string::npos);
    return result;
}

} // namespace

ExportError::~ExportError() = default;

const std::vector<std::string>& exportExtensions() {
    static const std::vector<std::string> extensions = [] {
        std::vector<std::string> result;
        for (const Format& format : FORMATS)
            result.emplace_back(format.extension);
        return result;
    }();
    return extensions;
}

ExportResult exportModel(const SrcFile& file, const std::string& fileName) {
    const Format& format = formatOf(fileName);
    SceneMaker maker(file, format);
    const std::unique_ptr<aiScene> scene = maker.make();

    std::vector<std::unique_ptr<ExportedFile>> files;
    Assimp::Exporter exporter;
    exporter.SetIOHandler(new MemoryFiles(files)); // which takes it over
    // The binary PLY exporter stores colours in another type than it says.
    const char* assimpId =
        maker.hasColours && std::strcmp(format.assimpId, "plyb") == 0 ? "ply" : format.assimpId;
    if (exporter.Export(scene.get(), assimpId, fileName) != aiReturn_SUCCESS)
        throw ExportError(exporter.GetErrorString());
    ExportResult result = std::move(maker.result);
    for (auto& written : files)
        result.files.push_back(std::move(*written));
    const auto model = std::find_if(result.files.begin(), result.files.end(),
                                    [&](const ExportedFile& entry) { return entry.name == fileName; });
    if (model == result.files.end()) throw ExportError("the exporter wrote nothing");
    std::rotate(result.files.begin(), model, model + 1);
    if (format.metadata) {
        std::string& bytes = result.files.front().bytes;
        bytes = format.extension == std::string("glb")
                    ? withExtrasInGlb(bytes, maker.nodeExtras)
                    : withExtras(bytes.data(), bytes.data() + bytes.size(), maker.nodeExtras);
    }
    return result;
}

} // namespace kel::importer
