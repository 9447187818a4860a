#pragma once

#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <set>
#include <stdexcept>
#include <string>

namespace kel::tests {

/// What a reading finds in a model.
struct Reading {
    using Point = std::array<double, 3>;

    std::size_t triangles = 0;
    std::size_t vertices = 0;
    std::set<std::string> names;
    Point min = {1e300, 1e300, 1e300}, max = {-1e300, -1e300, -1e300};

    void add(const Point& p) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            min[axis] = std::min(min[axis], p[axis]);
            max[axis] = std::max(max[axis], p[axis]);
        }
    }
    double diagonal() const { return std::hypot(max[0] - min[0], max[1] - min[1], max[2] - min[2]); }
};

/// What Assimp reads, with nothing of ours in between: each mesh as often as nodes place it.
struct AssimpReading : Reading {
    std::size_t meshes = 0; ///< points, lines and triangles of a mesh counted apart
    std::size_t lines = 0, points = 0;
    std::size_t places = 0; ///< different positions per mesh: no writer can do with fewer vertices

    explicit AssimpReading(const std::string& path) : isGltf(path.find(".gl") != std::string::npos) {
        Assimp::Importer importer;
        const aiScene* scene = importer.ReadFile(path, aiProcess_Triangulate);
        if (!scene) throw std::runtime_error(importer.GetErrorString());
        visit(*scene, *scene->mRootNode, aiMatrix4x4t<double>());
    }

private:
    void visit(const aiScene& scene, const aiNode& node, const aiMatrix4x4t<double>& parent) {
        aiMatrix4x4t<double> toWorld = parent;
        toWorld *= aiMatrix4x4t<double>(node.mTransformation);
        for (unsigned m = 0; m < node.mNumMeshes; ++m)
            add(*scene.mMeshes[node.mMeshes[m]], node, toWorld);
        for (unsigned c = 0; c < node.mNumChildren; ++c)
            visit(scene, *node.mChildren[c], toWorld);
    }

    void add(const aiMesh& mesh, const aiNode& node, const aiMatrix4x4t<double>& toWorld) {
        std::set<unsigned> used;
        std::array<std::size_t, 4> faces{}; // by corners
        for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
            const aiFace& face = mesh.mFaces[f];
            if (face.mNumIndices == 0 || face.mNumIndices > 3) continue;
            ++faces[face.mNumIndices];
            used.insert(face.mIndices, face.mIndices + face.mNumIndices);
        }
        points += faces[1];
        lines += faces[2];
        triangles += faces[3];
        for (const std::size_t count : faces)
            meshes += count > 0;
        if (used.empty()) return;
        std::set<std::array<float, 3>> different;
        for (const unsigned v : used) {
            const aiVector3D& p = mesh.mVertices[v];
            different.insert({p.x + 0.0f, p.y + 0.0f, p.z + 0.0f});
            const aiVector3t<double> world = toWorld * aiVector3t<double>(p.x, p.y, p.z);
            Reading::add({world.x, world.y, world.z});
        }
        vertices += used.size();
        places += different.size();
        const aiString& name = mesh.mName.length != 0 ? mesh.mName : node.mName;
        if (name.length != 0) names.insert(withoutPrimitiveNumber(name.C_Str()));
    }

    /// Assimp numbers the primitives of one glTF mesh, "bolt-0", "bolt-1"; the file says "bolt".
    std::string withoutPrimitiveNumber(const std::string& name) const {
        const std::size_t digits = name.find_last_not_of("0123456789");
        const bool numbered = digits != std::string::npos && digits + 1 < name.size() && name[digits] == '-';
        return isGltf && numbered ? name.substr(0, digits) : name;
    }

    bool isGltf;
};

} // namespace kel::tests
