#pragma once

// Inputs for findProblems, to be spoilt, and short ways to look at what it found.

#include <kel/prepare/FindProblems.h>

#include <support/Meshes.h>

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace problems {

using namespace kel::prepare;
using kel::mesh::DefaultMesh;
using kel::src::SrcWriterInput;

constexpr Target ALL[] = {Target::PRESET_DEFAULT, Target::PRESET_CMP1, Target::UNCOMPRESSED,
                          Target::POSITION_COMPRESSED, Target::POSITION_NORMAL_COMPRESSED};

inline std::vector<float> times(std::size_t count, float value) {
    return std::vector<float>(count, value);
}

/// One octahedron with a material and metadata that has nothing to find for the target.
inline SrcWriterInput goodInput(Target target) {
    auto mesh = fixture::octahedron();
    if (target == Target::PRESET_CMP1) mesh->addAttribute("normal", 3, times(18, 0.25f));
    auto input = fixture::inputOf({mesh});
    const auto red = fixture::material(1, 0, 0);
    input.materials = {red};
    input.meshMaterials[mesh] = red;
    input.useCompressedPreset = target == Target::PRESET_CMP1;
    return input;
}

inline DefaultMesh& meshOf(SrcWriterInput& input) {
    return static_cast<DefaultMesh&>(*input.meshes.at(0));
}

inline std::map<std::string, std::string>& metaOf(SrcWriterInput& input) {
    return *input.metaData.at(input.meshes.at(0));
}

/// 65,536 vertices in a box, all triangles use the first few.
inline void makeLong(DefaultMesh& mesh) {
    std::vector<float> positions(65536 * 3);
    for (std::size_t i = 0; i < positions.size(); ++i)
        positions[i] = static_cast<float>(i % 17) / 34.0f;
    mesh.addAttribute("position", 3, std::move(positions));
    mesh.addAttribute("normal", 3, times(65536 * 3, 0.25f));
}

inline std::vector<std::string> codesOf(const Problems& problems) {
    std::vector<std::string> codes;
    for (const Finding& finding : problems.findings)
        codes.emplace_back(problemText(finding.code));
    return codes;
}

inline Finding onlyFinding(const SrcWriterInput& input, Target target) {
    const Problems problems = findProblems(input, target);
    EXPECT_EQ(problems.findings.size(), 1u);
    return problems.findings.empty() ? Finding() : problems.findings.front();
}

} // namespace problems
