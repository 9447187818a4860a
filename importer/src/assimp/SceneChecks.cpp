#include "AssimpReader.h"

#include "../model/NotFinitePositions.h"
#include "AssimpModel.h"

#include <algorithm>
#include <vector>

namespace kel::importer::detail {

bool checkIndices(const ModelSource& source, const aiScene& scene) {
    bool polygons = false;
    for (unsigned m = 0; m < scene.mNumMeshes; ++m) {
        const aiMesh& mesh = *scene.mMeshes[m];
        std::size_t bad = 0;
        for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
            const aiFace& face = mesh.mFaces[f];
            polygons |= face.mNumIndices > 3;
            bad += std::any_of(face.mIndices, face.mIndices + face.mNumIndices,
                               [&](unsigned index) { return index >= mesh.mNumVertices; });
        }
        if (bad > 0) {
            source.refuse(ImportCode::INDEX_OUT_OF_RANGE,
                          std::to_string(bad) + " primitives use vertices beyond the mesh's " +
                              std::to_string(mesh.mNumVertices),
                          placeOfMesh(scene, m), "export the model again, its index list is damaged");
        }
    }
    forEachNode(scene, [&](const aiNode& node) {
        if (std::all_of(node.mMeshes, node.mMeshes + node.mNumMeshes,
                        [&](unsigned m) { return m < scene.mNumMeshes; }))
            return;
        source.refuse(ImportCode::INVALID_MODEL, "a node uses a mesh that does not exist",
                      std::string("node \"") + node.mName.C_Str() + "\"");
    });
    return polygons;
}

/// The reader of RAW files puts every group but the last out of reach. Their meshes need no transform, so the
/// root may have them.
void repairTree(aiScene& scene) {
    aiNode* root = scene.mRootNode;
    if (!root) return;
    aiNode** end = std::remove(root->mChildren, root->mChildren + root->mNumChildren, nullptr);
    const auto kept = static_cast<unsigned>(end - root->mChildren);
    if (kept == root->mNumChildren) return;
    root->mNumChildren = kept;
    std::vector<char> used(scene.mNumMeshes, 0);
    for (unsigned c = 0; c < kept; ++c) {
        const aiNode& child = *root->mChildren[c];
        for (unsigned m = 0; m < child.mNumMeshes; ++m)
            used.at(child.mMeshes[m]) = 1;
    }
    delete[] root->mMeshes;
    root->mNumMeshes = 0;
    root->mMeshes = new unsigned[scene.mNumMeshes];
    for (unsigned m = 0; m < scene.mNumMeshes; ++m) {
        if (!used[m]) root->mMeshes[root->mNumMeshes++] = m;
    }
}

void refuseNotFinite(const ModelSource& source, const aiScene& scene) {
    std::vector<char> placed(scene.mNumMeshes, 0);
    forEachNode(scene, [&](const aiNode& node) {
        for (unsigned m = 0; m < node.mNumMeshes; ++m)
            placed[node.mMeshes[m]] = 1;
    });
    NotFinitePositions found;
    for (unsigned m = 0; m < scene.mNumMeshes; ++m) {
        const aiMesh& mesh = *scene.mMeshes[m];
        if (!placed[m] || std::all_of(mesh.mVertices, mesh.mVertices + mesh.mNumVertices,
                                      [](const aiVector3D& v) { return isFinite(v); }))
            continue;
        std::vector<char> used(mesh.mNumVertices, mesh.mNumFaces == 0 ? 1 : 0);
        std::size_t corners = 0;
        for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
            const aiFace& face = mesh.mFaces[f];
            corners += face.mNumIndices;
            for (unsigned i = 0; i < face.mNumIndices; ++i)
                used[face.mIndices[i]] = 1;
        }
        found.add(&mesh.mVertices->x, used, corners, placeOfMesh(scene, m));
    }
    if (found.any()) found.refuse(source);
}

/// Takes out polygons with a position that is not finite: no part of them is worth keeping, and looking for
/// ears among them leads nowhere.
std::size_t removeBrokenPolygons(aiScene& scene, bool& polygons) {
    std::size_t removed = 0;
    if (!polygons) return removed;
    polygons = false;
    for (unsigned m = 0; m < scene.mNumMeshes; ++m) {
        aiMesh& mesh = *scene.mMeshes[m];
        aiFace* end = std::remove_if(mesh.mFaces, mesh.mFaces + mesh.mNumFaces, [&](const aiFace& face) {
            if (face.mNumIndices <= 3) return false;
            const bool whole = std::all_of(face.mIndices, face.mIndices + face.mNumIndices,
                                           [&](unsigned i) { return isFinite(mesh.mVertices[i]); });
            polygons |= whole;
            return !whole;
        });
        const auto kept = static_cast<unsigned>(end - mesh.mFaces);
        removed += mesh.mNumFaces - kept;
        mesh.mNumFaces = kept;
    }
    return removed;
}

} // namespace kel::importer::detail
