// Real models through the public writer's modes, read by the tests' own parser and compared with what Assimp
// reads: no step of ours is on both sides.

#include <kel/importer/Importer.h>
#include <kel/prepare/SplitForShortIndices.h>
#include <kel/src/SrcWriter.h>

#include <support/SrcFile.h>
#include <support/TempFolder.h>

#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <tuple>

namespace {

using kel::src::SrcWriter;
using kel::tests::SrcFile;
using Point = std::array<double, 3>;

/// What a reading finds of triangles.
struct Reading {
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

struct AssimpReading : Reading {
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
        for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
            if (mesh.mFaces[f].mNumIndices != 3) continue;
            ++triangles;
            used.insert(mesh.mFaces[f].mIndices, mesh.mFaces[f].mIndices + 3);
        }
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

struct SrcReading : Reading {
    double step = 0; ///< the largest position step of all meshes

    explicit SrcReading(const std::string& bytes) {
        const SrcFile file(bytes);
        for (const std::string& id : file.meshIds()) {
            const auto& entry = file.meshEntry(id);
            if (entry.get("primitive").get<double>() != 4) continue;
            const auto attributes = file.attributeNames(id);
            const bool packed =
                std::find(attributes.begin(), attributes.end(), "pos3us_nor2ub_oct") != attributes.end();
            const auto positions = file.attribute(id, packed ? "pos3us_nor2ub_oct" : "position");
            for (const auto& p : positions.decoded)
                Reading::add({p[0], p[1], p[2]});
            vertices += positions.decoded.size();
            triangles += file.indices(id).size() / 3;
            const auto& meta = entry.get("meta");
            if (meta.contains("name")) names.insert(meta.get("name").get<std::string>());
            if (positions.componentType != 5126) {
                const auto& size = entry.get("bboxSize").get<picojson::array>();
                for (const auto& side : size)
                    step = std::max(step, side.get<double>() / 65535);
            }
        }
    }
};

std::string convert(const std::string& path, SrcWriter::Compression mode) {
    std::ostringstream out;
    SrcWriter::write(kel::prepare::splitForShortIndices(kel::importer::importModel(path).input), out, mode);
    return out.str();
}

void expectAgreement(const std::string& path, SrcWriter::Compression mode) {
    const AssimpReading expected(path);
    const SrcReading found(convert(path, mode));
    EXPECT_EQ(found.triangles, expected.triangles);
    EXPECT_EQ(found.names, expected.names);
    EXPECT_GE(found.vertices, expected.places);
    const double rounding = 1e-6 * (expected.diagonal() + std::fabs(expected.max[0]) +
                                    std::fabs(expected.max[1]) + std::fabs(expected.max[2]));
    for (std::size_t axis = 0; axis < 3; ++axis) {
        EXPECT_NEAR(found.min[axis], expected.min[axis], found.step + rounding) << "axis " << axis;
        EXPECT_NEAR(found.max[axis], expected.max[axis], found.step + rounding) << "axis " << axis;
    }
}

const auto ALL_MODES = testing::Values(SrcWriter::UNCOMPRESSED, SrcWriter::POSITION_COMPRESSED,
                                       SrcWriter::POSITION_NORMAL_COMPRESSED);

class AgainstAssimp : public testing::TestWithParam<std::tuple<const char*, SrcWriter::Compression>> {};

TEST_P(AgainstAssimp, CountsBoundsAndNamesAgree) {
    const auto& [name, mode] = GetParam();
    const std::string path = std::string("/usr/share/assimp/models/") + name;
    expectAgreement(path, mode);
    // Equal corners are joined, so there are never more vertices than Assimp has before it joins any.
    EXPECT_LE(SrcReading(convert(path, mode)).vertices, AssimpReading(path).vertices);
}

INSTANTIATE_TEST_SUITE_P(
    Models, AgainstAssimp,
    testing::Combine(testing::Values("OBJ/spider.obj", "STL/Spider_binary.stl", "PLY/Wuson.ply",
                                     "glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb",
                                     "glTF2/BoxTextured-glTF-Binary/BoxTextured.glb", "FBX/spider.fbx",
                                     "Collada/duck.dae", "3DS/fels.3ds"),
                     ALL_MODES),
    [](const auto& model) {
        std::string name = std::filesystem::path(std::get<0>(model.param)).filename().string();
        std::replace(name.begin(), name.end(), '.', '_');
        return name + "_mode_" + std::to_string(static_cast<int>(std::get<1>(model.param)));
    });

class LargeAgainstAssimp : public testing::TestWithParam<SrcWriter::Compression> {};

TEST_P(LargeAgainstAssimp, MeshesBeyondShortIndicesAgree) {
    constexpr int SIDE = 262; // 68,644 vertices
    const kel::tests::TempFolder folder;
    const std::string path = folder / "sheet.obj";
    {
        std::ofstream file(path);
        file << "o sheet\n";
        for (int i = 0; i < SIDE; ++i) {
            for (int j = 0; j < SIDE; ++j)
                file << "v " << i << ' ' << j << ' ' << (i * j) % 7 << '\n';
        }
        for (int i = 0; i + 1 < SIDE; ++i) {
            for (int j = 0; j + 1 < SIDE; ++j) {
                const int at = i * SIDE + j + 1;
                file << "f " << at << ' ' << at + SIDE << ' ' << at + 1 << '\n';
                file << "f " << at + 1 << ' ' << at + SIDE << ' ' << at + SIDE + 1 << '\n';
            }
        }
    }
    expectAgreement(path, GetParam());
    const SrcFile converted(convert(path, GetParam()));
    for (const std::string& id : converted.meshIds()) {
        const auto indices = converted.indices(id);
        EXPECT_LT(*std::max_element(indices.begin(), indices.end()), 65535u) << "mesh " << id;
    }
}

INSTANTIATE_TEST_SUITE_P(Models, LargeAgainstAssimp, ALL_MODES);

} // namespace
