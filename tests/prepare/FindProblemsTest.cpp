#include "ProblemInputs.h"

#include <gmock/gmock.h>

#include <limits>

namespace {

using namespace problems;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr float NaN = std::numeric_limits<float>::quiet_NaN();

TEST(FindProblems, NamesThePlace) {
    auto input = goodInput(Target::POSITION_COMPRESSED);
    auto normals = times(18, 0.5f);
    normals[7] = normals[8] = normals[12] = NaN; // elements 2, 2 and 4
    meshOf(input).addAttribute("normal", 3, normals);
    const Finding finding = onlyFinding(input, Target::POSITION_COMPRESSED);
    EXPECT_EQ(finding.code, ProblemCode::ATTRIBUTE_NOT_FINITE);
    EXPECT_EQ(finding.severity, Severity::WARNING);
    EXPECT_EQ(finding.mesh, 0u);
    EXPECT_EQ(finding.meshName, "mesh0");
    EXPECT_EQ(finding.attribute, "normal");
    EXPECT_EQ(finding.element, 2u);
    EXPECT_EQ(finding.count, 2u);
    EXPECT_EQ(describe(finding),
              "Mesh 0 (\"mesh0\"), attribute \"normal\", element 2 (and 1 more): It has values "
              "that are NaN or infinite. Replace them by finite values.");
}

TEST(FindProblems, PutsTheDetailIntoTheSentence) {
    auto input = goodInput(Target::UNCOMPRESSED);
    makeLong(meshOf(input));
    EXPECT_THAT(onlyFinding(input, Target::UNCOMPRESSED).sentence, HasSubstr("It has 65536 vertices"));
}

TEST(FindProblems, NamesTheMetadataEntry) {
    auto input = goodInput(Target::UNCOMPRESSED);
    metaOf(input)["note"] = "[1, 2,]";
    const Finding finding = onlyFinding(input, Target::UNCOMPRESSED);
    EXPECT_EQ(finding.key, "note");
    EXPECT_EQ(finding.element, 6u);
    EXPECT_THAT(describe(finding), HasSubstr("metadata \"note\", byte 6:"));
}

TEST(FindProblems, CountsClampedComponents) {
    auto input = goodInput(Target::PRESET_CMP1);
    meshOf(input).addAttribute("texcoord", 2, std::vector<float>{0, 0, 0, 0.5f, 0, 0.6f, 7, -7, 0, 0, 0, 0});
    const Finding finding = onlyFinding(input, Target::PRESET_CMP1);
    EXPECT_EQ(finding.element, 2u);
    EXPECT_EQ(finding.count, 3u);
}

TEST(FindProblems, GivesEachMeshItsOwn) {
    auto input = fixture::inputOf({fixture::octahedron(), fixture::octahedron(), fixture::octahedron()});
    static_cast<DefaultMesh&>(*input.meshes[2]).setIndices(std::vector<std::uint16_t>{9, 9, 9});
    static_cast<DefaultMesh&>(*input.meshes[1]).setIndices(std::vector<std::uint16_t>{0, 1, 6});
    const Problems problems = findProblems(input, Target::UNCOMPRESSED);
    ASSERT_EQ(problems.findings.size(), 2u);
    EXPECT_EQ(problems.findings[0].mesh, 1u);
    EXPECT_EQ(problems.findings[0].element, 2u);
    EXPECT_EQ(problems.findings[0].count, 1u);
    EXPECT_EQ(problems.findings[1].mesh, 2u);
    EXPECT_EQ(problems.findings[1].count, 3u);
}

TEST(FindProblems, KeepsAsManyAsAskedAndCountsAll) {
    SrcWriterInput input;
    input.meshes.assign(50, nullptr);
    const Problems problems = findProblems(input, Target::UNCOMPRESSED, {3});
    EXPECT_EQ(problems.findings.size(), 3u);
    EXPECT_EQ(problems.errors, 50u);
    EXPECT_EQ(findProblems(input, Target::UNCOMPRESSED, {0}).findings.size(), 50u);
}

TEST(FindProblems, CountsBySeverity) {
    auto input = goodInput(Target::UNCOMPRESSED);
    meshOf(input).setIndexBuffer(nullptr);
    input.metaData.clear();
    input.materials.clear();
    const Problems problems = findProblems(input, Target::UNCOMPRESSED);
    EXPECT_EQ(problems.errors, 1u);
    EXPECT_EQ(problems.warnings, 1u);
    EXPECT_EQ(problems.hints, 1u);
}

TEST(FindProblems, AllowsPointsInOnePlace) {
    EXPECT_THAT(codesOf(findProblems(fixture::inputOf({fixture::pointRow(1)}), Target::UNCOMPRESSED)),
                testing::IsEmpty());
}

TEST(FindProblems, AllowsTheLargestMeshThatFits) {
    EXPECT_THAT(codesOf(findProblems(fixture::inputOf({fixture::pointRow(65535)}), Target::UNCOMPRESSED)),
                testing::IsEmpty());
}

TEST(FindProblems, DoesNotMindManyVerticesInTheContainer) {
    auto input = goodInput(Target::PRESET_DEFAULT);
    makeLong(meshOf(input));
    EXPECT_THAT(codesOf(findProblems(input, Target::PRESET_DEFAULT)), testing::IsEmpty());
}

TEST(FindProblems, TakesAnyJsonText) {
    auto input = goodInput(Target::UNCOMPRESSED);
    for (const char* text :
         {"42", "-0.5e-3", " [1, {\"a\": [true, false, null]}, []] ",
          "\"\\u00e9\\ud83d\\ude00\\n\\/ \xc3\xa9\"", "{}", "{\"a\":{},\"b\":[[]]}", "0"}) {
        metaOf(input)["note"] = text;
        EXPECT_THAT(codesOf(findProblems(input, Target::UNCOMPRESSED)), testing::IsEmpty()) << text;
    }
}

TEST(FindProblems, RefusesWhatIsAlmostJson) {
    auto input = goodInput(Target::UNCOMPRESSED);
    for (const char* text : {"",
                             " ",
                             "01",
                             "+1",
                             ".5",
                             "1.",
                             "1e",
                             "-",
                             "nul",
                             "truex",
                             "'a'",
                             "\"",
                             "\"\n\"",
                             "\"\\x\"",
                             "\"\\u12g4\"",
                             "\"\\ud83d\"",
                             "\"\\ude00\"",
                             "\"\\u-123\"",
                             "{a:1}",
                             "{\"a\" 1}",
                             "{\"a\":1,}",
                             "[1,]",
                             "[1 2]",
                             "[1}",
                             "{\"a\":1]",
                             "[",
                             "{",
                             "[]]",
                             "\xef\xbb\xbf"
                             "1",
                             "NaN"}) {
        metaOf(input)["note"] = text;
        EXPECT_THAT(codesOf(findProblems(input, Target::UNCOMPRESSED)), ElementsAre("metadata-not-json"))
            << text;
    }
}

TEST(FindProblems, RefusesWhatIsAlmostUtf8) {
    auto input = goodInput(Target::UNCOMPRESSED);
    for (const char* text : {"\x80", "\xc0\x80", "\xc3", "\xe0\x80\x80", "\xe2\x82", "\xed\xa0\x80",
                             "\xf0\x80\x80\x80", "\xf4\x90\x80\x80", "\xf5\x80\x80\x80", "\xff"}) {
        metaOf(input)["note"] = std::string("\"") + text + '"';
        EXPECT_THAT(codesOf(findProblems(input, Target::UNCOMPRESSED)), ElementsAre("text-not-utf8"));
    }
    for (const char* text : {"\xc2\x80", "\xe0\xa0\x80", "\xed\x9f\xbf", "\xef\xbf\xbf", "\xf0\x90\x80\x80",
                             "\xf4\x8f\xbf\xbf"}) {
        metaOf(input)["note"] = std::string("\"") + text + '"';
        EXPECT_THAT(codesOf(findProblems(input, Target::UNCOMPRESSED)), testing::IsEmpty());
    }
}

TEST(FindProblems, TakesSixtyLevels) {
    auto input = goodInput(Target::UNCOMPRESSED);
    metaOf(input)["note"] = std::string(60, '[') + std::string(60, ']');
    EXPECT_THAT(codesOf(findProblems(input, Target::UNCOMPRESSED)), testing::IsEmpty());
    metaOf(input)["note"] = std::string(61, '[') + std::string(61, ']');
    EXPECT_THAT(codesOf(findProblems(input, Target::UNCOMPRESSED)), ElementsAre("metadata-too-deep"));
}

} // namespace
