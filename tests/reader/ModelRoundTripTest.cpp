// Real models through every mode and back: every number lies within one step of what went in, and what the
// writers wrote is clean in the validator's eyes.

#include "Files.h"

#include <kel/importer/Importer.h>
#include <kel/prepare/FitToRange.h>
#include <kel/prepare/SplitForShortIndices.h>
#include <kel/src/SrcReader.h>
#include <kel/src/SrcValidator.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <tuple>

namespace {

using namespace kel::src;
using namespace reader_fixture;

/// Only the meshes that every mode takes: triangles, of the attributes that the preset knows.
SrcWriterInput trianglesOf(const SrcWriterInput& input) {
    SrcWriterInput result = input;
    result.meshes.clear();
    for (const auto& mesh : input.meshes)
        if (mesh->getPrimitiveType() == kel::mesh::TRIANGLES) result.meshes.push_back(mesh);
    return result;
}

/// Smallest and largest value of each of three components.
struct Box {
    explicit Box(const std::vector<float>& values) {
        for (std::size_t i = 0; i < values.size(); ++i) {
            min[i % 3] = std::min(min[i % 3], values[i]);
            max[i % 3] = std::max(max[i % 3], values[i]);
        }
    }
    float min[3] = {1e38f, 1e38f, 1e38f}, max[3] = {-1e38f, -1e38f, -1e38f};
};

/// Positions have 65535 steps in the mesh's box; a flat side is widened to a hundred-millionth of the
/// diagonal.
void expectWithinOneStep(const std::vector<float>& read, const std::vector<float>& written) {
    ASSERT_EQ(read.size(), written.size());
    const Box box(written);
    for (std::size_t i = 0; i < read.size(); ++i) {
        const std::size_t axis = i % 3;
        const double side = static_cast<double>(box.max[axis]) - box.min[axis];
        const double rounding = 4e-7 * (std::fabs(box.min[axis]) + std::fabs(box.max[axis]) + side);
        ASSERT_NEAR(read[i], written[i], side / 65535 + rounding) << "number " << i;
    }
}

/// The angle between two directions, in degrees.
double angleBetween(const float* a, const float* b) {
    const double x = double(a[1]) * b[2] - double(a[2]) * b[1], y = double(a[2]) * b[0] - double(a[0]) * b[2],
                 z = double(a[0]) * b[1] - double(a[1]) * b[0];
    const double cosine = double(a[0]) * b[0] + double(a[1]) * b[1] + double(a[2]) * b[2];
    return std::atan2(std::hypot(x, y, z), cosine) * 57.29577951308232;
}

class Models : public testing::TestWithParam<std::tuple<const char*, Mode>> {};

TEST_P(Models, ComeBackWithinOneStep) {
    const auto& [name, mode] = GetParam();
    const auto path = std::filesystem::path("/usr/share/assimp/models") / name;
    ASSERT_TRUE(std::filesystem::exists(path)) << "install assimp-testmodels";
    SrcWriterInput original = trianglesOf(kel::importer::importModel(path).input);
    if (mode != Mode::DEFAULT && mode != Mode::CMP1) original = kel::prepare::splitForShortIndices(original);
    const std::string text = write(mode == Mode::CMP1 ? kel::prepare::fitToRange(original) : original, mode);
    const SrcFile file = read(text);
    ASSERT_EQ(file.meshes().size(), original.meshes.size());

    for (std::size_t m = 0; m < original.meshes.size(); ++m) {
        const DecodedMesh decoded = decodeMesh(file, file.meshes()[m]);
        const auto indices = fixture::indicesOf(*original.meshes[m]);
        ASSERT_TRUE(
            std::equal(indices.begin(), indices.end(), decoded.indices.begin(), decoded.indices.end()));
        const std::vector<float> positions = fixture::floatsOf(*original.meshes[m], "position");
        if (mode == Mode::DEFAULT || mode == Mode::UNCOMPRESSED) {
            ASSERT_EQ(decoded.find("position")->values, positions);
        } else {
            expectWithinOneStep(decoded.find("position")->values, positions);
        }
        const std::vector<float> normals = fixture::floatsOf(*original.meshes[m], "normal");
        const DecodedAttribute* read = decoded.find("normal");
        if (normals.empty() || !read) continue;
        // Eight bits per component in -1 to 1 are off by a step at most; the octahedral form by 0.64 degrees.
        const double most = mode == Mode::CMP1 ? 0.8 : mode == Mode::POSITIONS_AND_NORMALS ? 0.64 : 0.0;
        for (std::size_t n = 0; n + 2 < normals.size(); n += 3)
            ASSERT_LE(angleBetween(&read->values[n], &normals[n]), most + 1e-4);
    }

    const ValidationReport report = validateSrc(ByteView(std::string_view(text)));
    for (const SrcFinding& finding : report.findings) {
        if (finding.severity() == Severity::HINT) continue;
        ADD_FAILURE() << infoOf(finding.code).name << " " << finding.path << " " << finding.detail;
        break;
    }

    if (mode == Mode::DEFAULT || mode == Mode::UNCOMPRESSED) {
        EXPECT_EQ(write(toInput(file), mode), text);
    } else if (mode == Mode::CMP1 || mode == Mode::POSITIONS) {
        EXPECT_EQ(SrcText(write(toInput(file), mode)).data, SrcText(text).data);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Reader, Models,
    testing::Combine(testing::Values("OBJ/spider.obj", "STL/Spider_binary.stl", "PLY/Wuson.ply",
                                     "glTF2/BoxTextured-glTF-Binary/BoxTextured.glb",
                                     "glTF/CesiumMilkTruck/CesiumMilkTruck.gltf", "X/Testwuson.X",
                                     "FBX/spider.fbx", "Collada/duck.dae"),
                     testing::ValuesIn(ALL_MODES)));

} // namespace
