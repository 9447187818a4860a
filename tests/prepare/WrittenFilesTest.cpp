// What this room says about files, held against files that the writers wrote and the reader read.

#include <kel/prepare/ChooseMode.h>
#include <kel/prepare/FindProblems.h>
#include <kel/prepare/FitToRange.h>
#include <kel/prepare/OptimizeForGpu.h>
#include <kel/prepare/SplitForShortIndices.h>
#include <kel/src/DefaultSrcWriter.h>
#include <kel/src/SrcReader.h>
#include <kel/src/SrcWriter.h>

#include <support/Meshes.h>

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

namespace {

using namespace kel::prepare;
using fixture::floatsOf;
using kel::src::SrcWriterInput;

std::string write(SrcWriterInput input, Target target) {
    std::ostringstream out;
    if (isContainerTarget(target)) {
        input.useCompressedPreset = target == Target::PRESET_CMP1;
        kel::src::writeMeshSrcDefault(input, out);
    } else {
        kel::src::SrcWriter::write(input, out,
                                   target == Target::UNCOMPRESSED ? kel::src::SrcWriter::UNCOMPRESSED
                                   : target == Target::POSITION_COMPRESSED
                                       ? kel::src::SrcWriter::POSITION_COMPRESSED
                                       : kel::src::SrcWriter::POSITION_NORMAL_COMPRESSED);
    }
    return out.str();
}

kel::src::DecodedMesh readBack(const SrcWriterInput& input, Target target, std::size_t mesh = 0) {
    const std::string bytes = write(input, target);
    std::istringstream in(bytes);
    const kel::src::SrcFile file = kel::src::readSrc(in);
    return kel::src::decodeMesh(file, file.meshes()[mesh]);
}

double largestDistance(const std::vector<float>& a, const std::vector<float>& b) {
    EXPECT_EQ(a.size(), b.size());
    double largest = 0.0;
    for (std::size_t i = 0; i + 2 < a.size(); i += 3) {
        double square = 0.0;
        for (std::size_t axis = i; axis < i + 3; ++axis)
            square += std::pow(static_cast<double>(a[axis]) - static_cast<double>(b[axis]), 2);
        largest = std::max(largest, std::sqrt(square));
    }
    return largest;
}

/// A sphere of radius 100 around (1000, 0, 0).
fixture::DefaultMeshPtr farSphere() {
    auto mesh = fixture::sphere(20, 10);
    auto positions = floatsOf(*mesh, "position");
    for (std::size_t i = 0; i < positions.size(); ++i)
        positions[i] = positions[i] * 100.0f + (i % 3 == 0 ? 1000.0f : 0.0f);
    mesh->addAttribute("position", 3, std::move(positions));
    return mesh;
}

TEST(WrittenFiles, HaveTheErrorThatWasMeasured) {
    for (const Target mode : {Target::POSITION_COMPRESSED, Target::POSITION_NORMAL_COMPRESSED}) {
        const auto mesh = farSphere();
        const auto input = fixture::inputOf({mesh});
        const auto decoded = readBack(input, mode);
        const ReachedError error = measureErrors(input, mode).at(0);
        EXPECT_GT(error.position, 0.0);
        EXPECT_EQ(largestDistance(decoded.find("position")->values, floatsOf(*mesh, "position")),
                  error.position);
    }
}

TEST(WrittenFiles, HaveTheNormalErrorThatWasMeasured) {
    const auto mesh = farSphere();
    const auto input = fixture::inputOf({mesh});
    const auto decoded = readBack(input, Target::POSITION_NORMAL_COMPRESSED).find("normal")->values;
    const auto normals = floatsOf(*mesh, "normal");
    double largest = 0.0;
    for (std::size_t i = 0; i < normals.size(); i += 3) {
        double dot = 0.0, square = 0.0;
        for (std::size_t axis = i; axis < i + 3; ++axis) {
            dot += static_cast<double>(decoded[axis]) * static_cast<double>(normals[axis]);
            square += static_cast<double>(normals[axis]) * static_cast<double>(normals[axis]);
        }
        largest = std::max(largest, std::acos(std::min(1.0, dot / std::sqrt(square))) * 57.29577951308232);
    }
    EXPECT_NEAR(measureErrors(input, Target::POSITION_NORMAL_COMPRESSED).at(0).normalDegrees, largest, 1e-3);
}

TEST(WrittenFiles, ComeBackFromTheFitWithinOneStep) {
    const auto mesh = farSphere();
    mesh->addAttribute("color", 3, std::vector<float>(floatsOf(*mesh, "position").size(), 0.25f));
    const auto fitted = fitToRange(fixture::inputOf({mesh}));
    EXPECT_EQ(findProblems(fitted, Target::PRESET_CMP1).errors, 0u);
    const auto decoded = readBack(fitted, Target::PRESET_CMP1); // the reader undoes the fit
    const auto expectWithin = [&](const std::string& name, double step) {
        const auto before = floatsOf(*mesh, name);
        const auto& after = decoded.find(name)->values;
        ASSERT_EQ(after.size(), before.size());
        for (std::size_t i = 0; i < before.size(); ++i)
            EXPECT_NEAR(after[i], before[i], step) << name << ' ' << i;
    };
    expectWithin("position", 200.0 / 65535 + 1e-4); // and the floats around 1000
    expectWithin("normal", 2.0 / 255 + 1e-6);
    expectWithin("color", 1.0 / 255 + 1e-6);
}

TEST(WrittenFiles, HoldEveryPartOfASplitMesh) {
    auto mesh = fixture::grid(300, 250); // 75,551 vertices
    const auto result = splitForShortIndices(optimizeForGpu(fixture::inputOf({mesh})));
    EXPECT_EQ(findProblems(result, Target::UNCOMPRESSED).errors, 0u);
    const std::string bytes = write(result, Target::UNCOMPRESSED);
    std::istringstream in(bytes);
    const kel::src::SrcFile file = kel::src::readSrc(in);
    ASSERT_EQ(file.meshes().size(), 2u);
    // Every triangle is half a cell, upwards.
    double area = 0.0;
    for (const auto& part : file.meshes()) {
        const auto decoded = kel::src::decodeMesh(file, part);
        const auto& p = decoded.find("position")->values;
        for (std::size_t i = 0; i < decoded.indices.size(); i += 3) {
            const float *a = &p[3 * decoded.indices[i]], *b = &p[3 * decoded.indices[i + 1]],
                        *c = &p[3 * decoded.indices[i + 2]];
            const double doubled =
                static_cast<double>((b[0] - a[0]) * (c[1] - a[1]) - (b[1] - a[1]) * (c[0] - a[0]));
            EXPECT_NEAR(doubled, 1.0 / (300.0 * 250.0), 1e-8);
            area += doubled / 2;
        }
    }
    EXPECT_NEAR(area, 1.0, 1e-3);
}

class DeepMetadata : public testing::TestWithParam<Target> {};

TEST_P(DeepMetadata, IsReadAsDeepAsIsAllowed) {
    auto input = fixture::inputOf({fixture::octahedron()});
    std::string& text = (*input.metaData[input.meshes[0]])["deep"];
    for (const auto& [open, close] : {std::pair<std::string, std::string>("[", "]"), {"{\"a\":", "}"}}) {
        text = "1";
        for (int level = 0; level < 60; ++level)
            text = open + text + close;
        EXPECT_EQ(findProblems(input, GetParam()).errors, 0u);
        const std::string bytes = write(input, GetParam());
        EXPECT_NE(bytes.find(text), std::string::npos);
        std::istringstream in(bytes);
        EXPECT_NO_THROW(kel::src::readSrc(in));
    }
}

INSTANTIATE_TEST_SUITE_P(Writers, DeepMetadata,
                         testing::Values(Target::PRESET_DEFAULT, Target::UNCOMPRESSED));

TEST(WrittenFiles, LoseMetadataThatNestsDeeper) {
    auto input = fixture::inputOf({fixture::octahedron()});
    (*input.metaData[input.meshes[0]])["deep"] = std::string(61, '[') + std::string(61, ']');
    EXPECT_EQ(findProblems(input, Target::UNCOMPRESSED).errors, 1u);
    EXPECT_NE(write(input, Target::UNCOMPRESSED).find("\"meta\":\"{"),
              std::string::npos); // all of it as a string
}

} // namespace
