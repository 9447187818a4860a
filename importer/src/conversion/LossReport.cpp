#include "Conversion.h"

#include <algorithm>
#include <utility>

namespace kel::importer::detail {

namespace {

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

/// The first few.
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

/// Meshes of the scene that no instance uses.
std::size_t unusedMeshes(const aiScene& scene, const std::vector<Instance>& instances) {
    std::vector<char> used(scene.mNumMeshes, 0);
    for (const Instance& instance : instances)
        used[instance.mesh()] = 1;
    return static_cast<std::size_t>(std::count(used.begin(), used.end(), 0));
}

} // namespace

void LossReport::drop(const std::string& kind, std::size_t count, const std::string& detail) {
    if (count == 0) return;
    Dropped& entry = dropped[kind];
    entry.kind = kind;
    entry.count += count;
    if (entry.detail.empty()) entry.detail = detail;
}

void LossReport::addScene(const AssimpScene& read, const std::vector<Instance>& instances,
                          const GltfNodes& gltfNodes, const Findings& findings) {
    const aiScene& scene = *read.scene;
    std::set<std::string> textures;
    for (unsigned m = 0; m < scene.mNumMaterials; ++m)
        addTextures(*scene.mMaterials[m], textures);
    std::size_t unnamed = 0;
    for (unsigned t = 0; t < scene.mNumTextures; ++t) {
        unnamed += textures.count("*" + std::to_string(t)) == 0 &&
                   textures.count(scene.mTextures[t]->mFilename.C_Str()) == 0;
    }
    drop("textures", textures.size() + unnamed, listed(textures));
    drop("cameras", scene.mNumCameras);
    drop("lights", scene.mNumLights);
    drop("animations", scene.mNumAnimations);
    // The reader of glTF does not even load meshes that no node uses.
    drop("meshes that no node uses",
         gltfNodes.document() ? gltfNodes.unusedMeshes() : unusedMeshes(scene, instances));
    for (const Dropped& found : findings.dropped)
        drop(found.kind, found.count, found.detail);

    std::size_t extrasWithoutMesh = 0;
    forEachNode(scene, [&](const aiNode& node) {
        if (node.mNumMeshes != 0) return;
        const auto place = gltfNodes.find(node);
        extrasWithoutMesh += place ? member(gltfNodes.document()->find("nodes", *place), "extras") != nullptr
                                   : node.mMetaData && node.mMetaData->mNumProperties > 0;
    });
    drop("extras of nodes without a mesh", extrasWithoutMesh);
    parts.notFinite += read.brokenPolygons;
}

void LossReport::addMesh(const aiMesh& mesh) {
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

void LossReport::write(const AssimpScene& read, const Findings& findings, ImportReport& report) {
    drop("primitives with positions that are not finite", parts.notFinite);
    drop("faces that could not be triangulated", parts.notTriangulated);
    drop("vertices that no primitive uses", parts.unusedVertices);
    for (auto& entry : dropped)
        report.dropped.push_back(std::move(entry.second));

    report.notes = findings.notes;
    const auto note = [&](std::size_t count, const std::string& text) {
        if (count > 0) report.notes.push_back(std::to_string(count) + " " + text);
    };
    note(parts.replacedNormals, "normals that were zero or not finite were replaced");
    note(parts.undefinedNormals,
         "normals are undefined, since no triangle there has an area, and point along z");
    note(parts.replacedNumbers, "texture coordinates or colours that were not finite were set to 0");
    note(texts.notUtf8, "texts were not UTF-8; the bytes at fault were replaced by U+FFFD");
    note(texts.notFinite, "numbers among the extras are not finite and became null");
    note(texts.tooDeep, "values among the extras are nested too deep and became null");
    note(texts.cut, "names are as long as the reader can hold and may have been cut");
    for (const std::string& file : read.missingFiles)
        report.notes.push_back("The model names a file that could not be opened: " + file);
}

} // namespace kel::importer::detail
