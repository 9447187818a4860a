#include "SceneExport.h"

#include "../conversion/Conversion.h"

#include <kel/mesh/AttributeNames.h>
#include <kel/mesh/ForEachPrimitive.h>
#include <kel/src/format/MaterialParameters.h>
#include <kel/src/format/MetadataKeys.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <map>
#include <string>
#include <utility>

namespace kel::importer::detail {

namespace {

using kel::src::DecodedAttribute;
using kel::src::DecodedMesh;
using kel::src::SRC_NONE;
using kel::src::SrcFile;
using kel::src::SrcMaterial;
using kel::src::SrcMesh;
using namespace kel::src::format;

/// A text as Assimp holds it, cut where it is too long.
aiString assimpString(std::string_view text) {
    aiString result;
    result.Set(std::string(text.substr(0, MAXLEN - 1)));
    return result;
}

/// A material of the file as exporters take it.
std::unique_ptr<aiMaterial> exportedMaterial(const SrcFile& file, const SrcMaterial& source,
                                             const ExportFormat& format) {
    auto material = std::make_unique<aiMaterial>();
    const auto valuesOf = [&](MaterialParameterIndex parameter) {
        std::vector<double> values = file.materialParameter(source, parameterName(parameter));
        if (values.size() != MATERIAL_PARAMETERS[parameter].components) values.clear();
        return values;
    };
    const aiString name = assimpString(source.id);
    material->AddProperty(&name, AI_MATKEY_NAME);
    const auto diffuse = valuesOf(DIFFUSE_COLOR);
    const auto addColor = [&](const std::vector<double>& v, double factor, const char* key) {
        if (v.empty()) return;
        const aiColor3D value(static_cast<float>(v[0] * factor), static_cast<float>(v[1] * factor),
                              static_cast<float>(v[2] * factor));
        material->AddProperty(&value, 1, key, 0, 0);
    };
    const auto addNumber = [&](float value, const char* key) { material->AddProperty(&value, 1, key, 0, 0); };
    addColor(diffuse, 1.0, "$clr.diffuse");
    addColor(valuesOf(EMISSIVE_COLOR), 1.0, "$clr.emissive");
    const auto ambient = valuesOf(AMBIENT_INTENSITY);
    if (!ambient.empty()) addColor(diffuse, ambient[0], "$clr.ambient");
    const auto shininess = valuesOf(SHININESS);
    if (format.metallicRoughness) {
        addColor(diffuse, 1.0, "$clr.base");
        addNumber(0.0f, "$mat.metallicFactor");
        // The roughness whose highlight is as wide as that of the exponent.
        const double exponent =
            shininess.empty() ? 0.0 : std::max(shininess[0], 0.0) * double(LARGEST_PHONG_EXPONENT);
        addNumber(static_cast<float>(std::pow(2.0 / (exponent + 2.0), 0.25)), "$mat.roughnessFactor");
    } else {
        addColor(valuesOf(SPECULAR_COLOR), 1.0, "$clr.specular");
        if (!shininess.empty())
            addNumber(static_cast<float>(shininess[0] * double(LARGEST_PHONG_EXPONENT)), "$mat.shininess");
    }
    // The technique's default would make see-through what its writer has no word for.
    for (const auto& member : kel::src::jsonMembers(source.values)) {
        std::vector<double> transparency;
        if (member.key != parameterName(TRANSPARENCY) || !kel::src::jsonNumbers(member.json, transparency) ||
            transparency.size() != 1 || transparency[0] == 0.0)
            continue;
        addNumber(static_cast<float>(1.0 - transparency[0]), "$mat.opacity");
        const aiString blend("BLEND");
        material->AddProperty(&blend, "$mat.gltf.alphaMode", 0, 0);
    }
    return material;
}

/// What meshes without a material get.
std::unique_ptr<aiMaterial> neutralMaterial() {
    auto neutral = std::make_unique<aiMaterial>();
    const aiString name("none");
    neutral->AddProperty(&name, AI_MATKEY_NAME);
    const aiColor3D grey(0.8f, 0.8f, 0.8f);
    neutral->AddProperty(&grey, 1, AI_MATKEY_COLOR_DIFFUSE);
    return neutral;
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
    SceneMaker(const SrcFile& file, const ExportFormat& format) : file(file), format(format) {}

    ExportScene make() {
        for (const SrcMesh& mesh : file.meshes())
            addMesh(mesh);
        if (meshes.empty())
            throw ExportError("there is nothing in it that ." + std::string(format.extension) +
                              " files can hold");
        made.result.meshes = meshes.size();
        reportLosses();

        made.scene = std::make_unique<aiScene>();
        aiScene* scene = made.scene.get();
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
        return std::move(made);
    }

private:
    void drop(const std::string& kind, std::size_t count, const std::string& detail) {
        if (count != 0) made.result.dropped.push_back({kind, count, detail});
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
        kel::src::DecodeOptions options;
        options.leaveOutAddedVertices = true;
        const DecodedMesh decoded = decodeMesh(file, source, options);
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
        picojson::object members;
        if (format.metadata) {
            translate(originOf(source), members);
        } else {
            moveBy(originOf(source), *mesh);
        }
        for (std::size_t v = 0; v < count; ++v) {
            const aiVector3D& p = mesh->mVertices[v];
            if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z))
                throw ExportError("a position of mesh \"" + std::string(source.id) +
                                  "\" is not a finite number");
        }
        mesh->mMaterialIndex = source.material == SRC_NONE ? noMaterial() : source.material;
        made.result.vertices += count;
        (triangles                               ? made.result.triangles
         : source.primitive == kel::mesh::POINTS ? made.result.points
                                                 : made.result.lines) += mesh->mNumFaces;

        auto node = std::make_unique<aiNode>();
        std::string name;
        addMetadata(source, name, std::move(members));
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
        } else if (isSet(attribute.name, TEXCOORD_NAME, set) && set < format.texcoordSets &&
                   attribute.components <= 3 && !mesh.mTextureCoords[set]) {
            mesh.mTextureCoords[set] = vectors(attribute);
            mesh.mNumUVComponents[set] = static_cast<unsigned>(attribute.components);
        } else if (isSet(attribute.name, COLOR_NAME, set) && set == 0 && format.colours &&
                   attribute.components >= 3 && !mesh.mColors[0]) {
            made.hasColours = true;
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

    /// A node's translation is in double precision, so that nothing of the positions is lost.
    static void translate(const kel::src::format::Origin& origin, picojson::object& members) {
        if (origin == kel::src::format::Origin{}) return;
        picojson::array numbers;
        for (const double number : origin)
            numbers.emplace_back(number);
        members["translation"] = picojson::value(std::move(numbers));
    }

    /// Where there are no nodes the positions themselves move, as floats.
    void moveBy(const kel::src::format::Origin& origin, aiMesh& mesh) {
        if (origin == kel::src::format::Origin{}) return;
        for (unsigned v = 0; v < mesh.mNumVertices; ++v) {
            double squared = 0.0;
            for (unsigned c = 0; c < 3; ++c) {
                const double place = static_cast<double>(mesh.mVertices[v][c]) + origin[c];
                mesh.mVertices[v][c] = static_cast<float>(place);
                const double off = static_cast<double>(mesh.mVertices[v][c]) - place;
                squared += off * off;
            }
            made.result.positionError = std::max(made.result.positionError, std::sqrt(squared));
        }
    }

    void addMetadata(const SrcMesh& source, std::string& name, picojson::object nodeMembers) {
        picojson::object extras;
        const auto members = kel::src::jsonMembers(source.metadata);
        bool any = false;
        for (const auto& member : members) {
            if (member.key == metadata::NAME && kel::src::jsonString(member.json, name)) continue;
            if (member.key == metadata::FIT || member.key == metadata::ORIGIN ||
                member.key == metadata::BOUNDS)
                continue;
            any = true;
            if (!format.metadata) continue;
            picojson::value value;
            const char* end = member.json.data() + member.json.size();
            std::string error;
            picojson::parse(value, member.json.data(), end, &error);
            if (error.empty()) extras[member.key] = std::move(value);
        }
        if (any) ++withMetadata;
        if (!extras.empty()) nodeMembers["extras"] = picojson::value(std::move(extras));
        made.nodeMembers.push_back(std::move(nodeMembers));
    }

    // ---- Materials --------------------------------------------------------------------------------------

    unsigned noMaterial() {
        needsNeutral = true;
        return static_cast<unsigned>(file.materials().size());
    }

    void addMaterials(aiScene& scene) const {
        const std::size_t count = file.materials().size() + (needsNeutral ? 1 : 0);
        scene.mMaterials = new aiMaterial*[count]();
        scene.mNumMaterials = static_cast<unsigned>(count);
        for (std::size_t i = 0; i < file.materials().size(); ++i)
            scene.mMaterials[i] = exportedMaterial(file, file.materials()[i], format).release();
        if (needsNeutral) scene.mMaterials[count - 1] = neutralMaterial().release();
    }

    const SrcFile& file;
    const ExportFormat& format;
    ExportScene made;
    std::vector<std::unique_ptr<aiMesh>> meshes;
    std::vector<std::unique_ptr<aiNode>> nodes;
    std::map<std::string, std::size_t> unsupported;
    std::size_t empty = 0, mismatched = 0, named = 0, withMetadata = 0;
    bool needsNeutral = false;
};

} // namespace

ExportScene makeExportScene(const SrcFile& file, const ExportFormat& format) {
    return SceneMaker(file, format).make();
}

} // namespace kel::importer::detail
