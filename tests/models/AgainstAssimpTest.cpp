// Real models through the public writer's modes, read by the tests' own parser and compared with what Assimp
// reads: no step of ours is on both sides.

#include <kel/importer/Importer.h>
#include <kel/prepare/SplitForShortIndices.h>
#include <kel/src/SrcWriter.h>

#include "AssimpReading.h"

#include <support/SrcFile.h>
#include <support/TempFolder.h>

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
using kel::tests::AssimpReading;
using kel::tests::Reading;
using kel::tests::SrcFile;

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
