#include "AssimpModel.h"

#include <kel/mesh/AttributeNames.h>
#include <kel/src/text/Utf8.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <numeric>
#include <set>
#include <unordered_map>
#include <utility>

namespace kel::importer::detail {

namespace {

glm::dmat4 matrixOf(const aiMatrix4x4& m) {
    // Assimp's rows are glm's columns.
    return {{m.a1, m.b1, m.c1, m.d1},
            {m.a2, m.b2, m.c2, m.d2},
            {m.a3, m.b3, m.c3, m.d3},
            {m.a4, m.b4, m.c4, m.d4}};
}

/// FBX takes a node's pivots apart into a chain of nodes of its own making.
bool isPivot(std::string_view name) {
    return name.find("_$AssimpFbx$_") != std::string_view::npos;
}

/// Of these formats, or of a file without any material, Assimp makes a grey one up.
bool describesMaterials(const std::string& format) {
    for (const char* without : {"STL", "PLY", "OFF", "Stereolithography", "Polygon Library"}) {
        if (format.find(without) != std::string::npos) return false;
    }
    return true;
}

/// Metres per unit, where an FBX states it.
std::optional<double> unitOfFbx(const aiMetadata& metadata) {
    double centimetres = 0.0;
    float asFloat = 0.0f;
    if (!metadata.Get("UnitScaleFactor", centimetres) && metadata.Get("UnitScaleFactor", asFloat))
        centimetres = static_cast<double>(asFloat);
    if (!std::isfinite(centimetres) || !(centimetres > 0.0)) return std::nullopt;
    return centimetres / 100.0;
}

std::string upAxisOfFbx(const aiMetadata& metadata) {
    int axis = -1;
    int sign = 1;
    metadata.Get("UpAxisSign", sign);
    if (!metadata.Get("UpAxis", axis) || axis < 0 || axis > 2) return {};
    return std::string(sign < 0 ? "-" : "") + "XYZ"[axis];
}

/// Adds the texture files and embedded textures that a material names.
void addTextures(const aiMaterial& material, std::set<std::string>& names) {
    for (unsigned p = 0; p < material.mNumProperties; ++p) {
        const aiMaterialProperty& property = *material.mProperties[p];
        if (std::string(property.mKey.C_Str()) != _AI_MATKEY_TEXTURE_BASE) continue;
        aiString path;
        if (material.Get(_AI_MATKEY_TEXTURE_BASE, property.mSemantic, property.mIndex, path) ==
            aiReturn_SUCCESS)
            names.insert(path.C_Str());
    }
}

/// The corners of one type of primitive, and the vertices that they need.
struct Corners {
    kel::mesh::PrimitiveType type;
    std::vector<std::uint32_t> indices;
    std::vector<std::uint32_t> vertices; ///< empty for all, as they are
};

class AssimpModel final : public Model {
public:
    AssimpModel(std::unique_ptr<aiScene> given, const std::string& format)
        : scene(std::move(given)), describedMaterials(describesMaterials(format)) {
        this->format = format;
        setUnitAndAxis();
        TextLosses losses;
        addNodes(losses);
        for (unsigned m = 0; m < scene->mNumMeshes; ++m)
            meshes.push_back({textOf(scene->mMeshes[m]->mName, losses), placeOfMesh(*scene, m), {}});
        for (unsigned m = 0; m < scene->mNumMaterials; ++m)
            materials.push_back(materialOf(*scene->mMaterials[m], m));
        const auto note = [&](std::size_t count, const char* text) {
            if (count > 0) notes.push_back(std::to_string(count) + text);
        };
        note(losses.notFinite, " numbers among the extras are not finite and became null");
        note(losses.tooDeep, " values among the extras are nested too deep and became null");
        note(losses.cut, " names are as long as the reader can hold and may have been cut");

        std::set<std::string> textures;
        for (unsigned m = 0; m < scene->mNumMaterials; ++m)
            addTextures(*scene->mMaterials[m], textures);
        std::size_t unnamed = 0;
        for (unsigned t = 0; t < scene->mNumTextures; ++t) {
            unnamed += textures.count("*" + std::to_string(t)) == 0 &&
                       textures.count(scene->mTextures[t]->mFilename.C_Str()) == 0;
        }
        drop("textures", textures.size() + unnamed, listed(textures));
        drop("cameras", scene->mNumCameras);
        drop("lights", scene->mNumLights);
        drop("animations", scene->mNumAnimations);
    }

    ModelBox boxOf(std::size_t mesh) override {
        const aiMesh& source = *scene->mMeshes[mesh];
        ModelBox box;
        if (!source.mVertices) return box;
        const auto add = [&](unsigned vertex) {
            const aiVector3D& v = source.mVertices[vertex];
            box.add({v.x, v.y, v.z});
        };
        for (unsigned f = 0; f < source.mNumFaces; ++f) {
            const aiFace& face = source.mFaces[f];
            if (face.mNumIndices <= 3) std::for_each(face.mIndices, face.mIndices + face.mNumIndices, add);
        }
        for (unsigned v = 0; source.mNumFaces == 0 && v < source.mNumVertices; ++v)
            add(v);
        return box;
    }

    std::vector<ModelPart> takeMesh(std::size_t place) override {
        aiMesh& mesh = *scene->mMeshes[place];
        dropOf(mesh);
        std::vector<Corners> corners = takeCorners(mesh);
        std::vector<ModelPart> parts(corners.size());
        for (std::size_t p = 0; p < parts.size(); ++p) {
            parts[p].type = corners[p].type;
            parts[p].material = materialIndexOf(mesh);
        }
        // An array is freed as soon as all parts have it.
        const auto take = [&](const std::string& name, std::size_t width, auto*& array) {
            if (!array) return;
            for (std::size_t p = 0; p < parts.size(); ++p)
                parts[p].attributes.push_back(
                    gather(name, width, array, mesh.mNumVertices, corners[p].vertices));
            delete[] std::exchange(array, nullptr);
        };
        take(kel::mesh::DEFAULT_POSITIONS_NAME, 3, mesh.mVertices);
        take(kel::mesh::DEFAULT_NORMALS_NAME, 3, mesh.mNormals);
        std::size_t set = 0;
        for (auto*& texcoords : mesh.mTextureCoords)
            if (texcoords) take(nameOfSet(TEXCOORD_NAME, set++), 2, texcoords);
        set = 0;
        for (auto*& colors : mesh.mColors)
            if (colors) take(nameOfSet(COLOR_NAME, set++), 3, colors);
        delete[] std::exchange(mesh.mTangents, nullptr);
        delete[] std::exchange(mesh.mBitangents, nullptr);
        for (std::size_t p = 0; p < parts.size(); ++p)
            parts[p].indices = std::move(corners[p].indices);
        return parts;
    }

private:
    std::unique_ptr<aiScene> scene;
    bool describedMaterials;

    void drop(const char* kind, std::size_t count, const std::string& detail = {}) {
        if (count > 0) dropped.push_back({kind, count, detail});
    }

    void setUnitAndAxis() {
        const auto is = [&](const char* word) { return format.find(word) != std::string::npos; };
        if (is("glTF") || is("Collada") || is("X3D")) {
            // All three are metres with Y up by definition, or are brought there by the reader.
            unit = 1.0;
            upAxis = "Y";
        } else if (is("FBX") && scene->mMetaData) {
            unit = unitOfFbx(*scene->mMetaData);
            upAxis = upAxisOfFbx(*scene->mMetaData);
        }
    }

    void addNodes(TextLosses& losses) {
        std::unordered_map<const aiNode*, std::size_t> places;
        forEachNode(*scene, [&](const aiNode& source) {
            places.emplace(&source, nodes.size());
            ModelNode& node = nodes.emplace_back();
            node.name = textOf(source.mName, losses);
            node.isOwn = isPivot(node.name);
            if (source.mParent) node.parent = places.at(source.mParent);
            node.transform = matrixOf(source.mTransformation);
            node.meshes.assign(source.mMeshes, source.mMeshes + source.mNumMeshes);
            node.extras = extrasOf(source, losses);
        });
    }

    std::optional<std::size_t> materialIndexOf(const aiMesh& mesh) const {
        const unsigned index = mesh.mMaterialIndex;
        if (index >= scene->mNumMaterials || !describedMaterials) return std::nullopt;
        aiString name;
        scene->mMaterials[index]->Get(AI_MATKEY_NAME, name);
        if (std::string_view(name.C_Str()) == AI_DEFAULT_MATERIAL_NAME) return std::nullopt;
        return index;
    }

    /// Counts what a mesh has that no part takes along.
    void dropOf(const aiMesh& mesh) {
        drop("bones", mesh.mNumBones);
        drop("morph targets", mesh.mNumAnimMeshes);
        drop("tangents", mesh.mTangents != nullptr, "of whole meshes");
        for (const aiColor4D* first : mesh.mColors) {
            if (!first) continue;
            const aiColor4D* last = first + mesh.mNumVertices;
            // The reader leaves 0 where a file states no alpha.
            const auto isStated = [](const aiColor4D& color) { return color.a != 0.0f; };
            const auto matters = [](const aiColor4D& color) { return color.a != 1.0f; };
            drop("alpha channels", std::any_of(first, last, isStated) && std::any_of(first, last, matters),
                 "of vertex colours");
        }
        for (unsigned t = 0; t < AI_MAX_NUMBER_OF_TEXTURECOORDS; ++t) {
            const aiVector3D* first = mesh.mTextureCoords[t];
            if (!first || mesh.mNumUVComponents[t] <= 2) continue;
            const auto matters = [](const aiVector3D& uv) { return uv.z != 0.0f; };
            drop("third texture coordinates", std::any_of(first, first + mesh.mNumVertices, matters),
                 "of whole meshes");
        }
    }

    /// Triangles, lines and points, each where there are any. Frees the faces.
    std::vector<Corners> takeCorners(aiMesh& mesh) {
        // By the number of corners, less one.
        std::array<Corners, 3> lists{
            {{kel::mesh::POINTS, {}, {}}, {kel::mesh::LINES, {}, {}}, {kel::mesh::TRIANGLES, {}, {}}}};
        std::vector<char> used(mesh.mNumVertices, 0);
        std::size_t notTriangulated = 0;
        std::array<std::size_t, 3> faces{};
        for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
            const unsigned count = mesh.mFaces[f].mNumIndices;
            if (count >= 1 && count <= 3) ++faces[count - 1];
        }
        for (std::size_t i = 0; i < faces.size(); ++i)
            lists[i].indices.reserve(faces[i] * (i + 1));
        for (unsigned f = 0; mesh.mVertices && f < mesh.mNumFaces; ++f) {
            const aiFace& face = mesh.mFaces[f];
            if (face.mNumIndices < 1 || face.mNumIndices > 3) {
                ++notTriangulated;
                continue;
            }
            std::vector<std::uint32_t>& list = lists[face.mNumIndices - 1].indices;
            list.insert(list.end(), face.mIndices, face.mIndices + face.mNumIndices);
            for (unsigned i = 0; i < face.mNumIndices; ++i)
                used[face.mIndices[i]] = 1;
        }
        if (mesh.mVertices && mesh.mNumFaces == 0) {
            // A point cloud: vertices without faces.
            lists[0].indices.resize(mesh.mNumVertices);
            std::iota(lists[0].indices.begin(), lists[0].indices.end(), 0u);
            std::fill(used.begin(), used.end(), 1);
        }
        delete[] std::exchange(mesh.mFaces, nullptr);
        mesh.mNumFaces = 0;
        drop("faces that could not be triangulated", notTriangulated);
        const auto unused = static_cast<std::size_t>(std::count(used.begin(), used.end(), 0));
        drop(UNUSED_VERTICES, unused);

        std::vector<Corners> result;
        for (std::size_t i = lists.size(); i-- > 0;) {
            if (!lists[i].indices.empty()) result.push_back(std::move(lists[i]));
        }
        if (unused > 0 || result.size() > 1) {
            for (Corners& corners : result)
                keepUsed(corners, mesh.mNumVertices);
        }
        return result;
    }

    static void keepUsed(Corners& corners, std::size_t vertices) {
        std::vector<std::uint32_t> place(vertices, 0);
        for (const std::uint32_t vertex : corners.indices)
            place[vertex] = 1;
        for (std::size_t v = 0; v < vertices; ++v) {
            if (place[v] == 0) continue;
            place[v] = static_cast<std::uint32_t>(corners.vertices.size());
            corners.vertices.push_back(static_cast<std::uint32_t>(v));
        }
        for (std::uint32_t& index : corners.indices)
            index = place[index];
    }

    /// The first `width` numbers of the elements.
    template<typename Element>
    static ModelAttribute gather(const std::string& name, std::size_t width, const Element* elements,
                                 std::size_t count, const std::vector<std::uint32_t>& vertices) {
        static_assert(sizeof(Element) % sizeof(float) == 0);
        ModelAttribute attribute{name, width, {}, {}};
        if (!vertices.empty()) count = vertices.size();
        attribute.values.resize(width * count);
        for (std::size_t v = 0; v < count; ++v)
            std::memcpy(&attribute.values[width * v], elements + (vertices.empty() ? v : vertices[v]),
                        width * sizeof(float));
        return attribute;
    }
};

} // namespace

std::string placeOfMesh(const aiScene& scene, std::size_t mesh) {
    const aiString& name = scene.mMeshes[mesh]->mName;
    return "mesh " + std::to_string(mesh) +
           (name.length == 0 ? "" : " \"" + kel::src::text::validUtf8({name.data, name.length}) + "\"");
}

std::unique_ptr<Model> modelOf(std::unique_ptr<aiScene> scene, const std::string& format) {
    return std::make_unique<AssimpModel>(std::move(scene), format);
}

} // namespace kel::importer::detail
