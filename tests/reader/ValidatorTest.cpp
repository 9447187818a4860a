#include "Files.h"

#include <kel/src/SrcValidator.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <set>
#include <sstream>

namespace {

using namespace kel::src;
using namespace reader_fixture;

ValidationReport validate(const std::string& file, const ValidateOptions& options = {}) {
    return validateSrc(ByteView(std::string_view(file)), options);
}

/// Codes of all findings, hints aside, in order.
std::vector<std::string> graveCodes(const ValidationReport& report) {
    std::vector<std::string> codes;
    for (const SrcFinding& finding : report.findings)
        if (finding.severity() != Severity::HINT) codes.emplace_back(infoOf(finding.code).name);
    return codes;
}

std::vector<std::string> codesOf(const ValidationReport& report) {
    std::vector<std::string> codes;
    for (const SrcFinding& finding : report.findings)
        codes.emplace_back(infoOf(finding.code).name);
    return codes;
}

/// A mesh that fits the box of the compressed preset, with normals of length 1 once the fit is undone.
kel::mesh::MeshPtr fitted() {
    auto mesh = octahedron();
    std::vector<float> halves = fixture::floatsOf(*mesh, "normal");
    for (float& component : halves)
        component *= 0.5f;
    mesh->addAttribute("normal", 3, std::move(halves));
    return mesh;
}

// ---- Good files -----------------------------------------------------------------------------------------

TEST(ValidateSrc, BothWritersGoodFilesAreClean) {
    auto input = fixture::inputOf({fixture::unitSquare(), fixture::sphere(20, 12), fixture::tetrahedron(),
                                   octahedron(), fixture::grid(5, 4)});
    const auto red = fixture::material(1, 0, 0);
    input.materials = {red, fixture::material(0, 0, 1)}; // the second is used by none
    input.meshMaterials[input.meshes[3]] = red;
    for (const Mode mode : ALL_MODES) {
        if (mode == Mode::CMP1) continue; // needs values inside its box: below
        EXPECT_EQ(graveCodes(validate(write(input, mode))), std::vector<std::string>());
    }
}

TEST(ValidateSrc, AFittedFileOfTheCompressedPresetIsClean) {
    auto input = fixture::inputOf({fitted(), fitted()});
    for (const auto& mesh : input.meshes)
        (*input.metaData[mesh])["fit"] = R"({"normal":{"offset":[0,0,0],"scale":[2,2,2]}})";
    EXPECT_EQ(graveCodes(validate(write(input, Mode::CMP1))), std::vector<std::string>());
}

TEST(ValidateSrc, AnEmptyListOfMeshesIsClean) {
    for (const Mode mode : ALL_MODES)
        EXPECT_EQ(graveCodes(validate(write(SrcWriterInput{}, mode))), std::vector<std::string>());
}

TEST(ValidateSrc, APathAndAStreamFindTheSame) {
    const std::string text = Editable(triangleFile()).replace("\"count\":3", "\"count\":4").file() + "x";
    std::istringstream in(text);
    EXPECT_EQ(codesOf(validateSrc(in)), codesOf(validate(text)));
    EXPECT_EQ(codesOf(validateSrc(std::string("/dev/null"))), std::vector<std::string>{"EMPTY_FILE"});
    EXPECT_EQ(codesOf(validateSrc(std::string("/dev"))), std::vector<std::string>{"NOT_A_FILE"});
}

TEST(ValidateSrc, GoesOnAfterTheFirstFinding) {
    const std::string text = Editable(triangleFile())
                                 .replace("\"material\":\"material0\"", "\"material\":\"none\"")
                                 .replace("\"primitive\":4", "\"primitive\":9")
                                 .replace("\"type\":\"VEC3\"", "\"type\":\"VEC5\"")
                                 .file();
    EXPECT_EQ(graveCodes(validate(text)),
              (std::vector<std::string>{"BAD_TYPE", "BAD_PRIMITIVE", "DANGLING_MATERIAL"}));
}

TEST(ValidateSrc, KeepsAsManyFindingsAsAskedAndCountsTheRest) {
    Editable many(triangleFile());
    std::string unused;
    for (int i = 0; i < 50; ++i)
        unused += "\"x" + std::to_string(i) + "\":{\"byteLength\":0,\"byteOffset\":0},";
    many.replace("\"chunk0\":{", unused + "\"chunk0\":{");
    ValidateOptions few;
    few.maxFindings = 7;
    const ValidationReport report = validate(many.file(), few);
    EXPECT_EQ(report.findings.size(), 7u);
    EXPECT_EQ(report.warnings(), 50u);
}

TEST(ValidateSrc, TellsThePlaceOfAFinding) {
    const std::string text =
        Editable(triangleFile()).replace("\"type\":\"VEC3\"", "\"type\":\"VEC5\"").file();
    const ValidationReport report = validate(text);
    ASSERT_FALSE(report.findings.empty());
    EXPECT_EQ(report.findings[0].path, "/accessors/attributeViews/attributeView0/type");
    EXPECT_EQ(report.findings[0].byteOffset, text.find("\"VEC5\""));
    EXPECT_EQ(report.findings[0].detail, "found \"VEC5\"");
}

// ---- One thing broken -----------------------------------------------------------------------------------

void putFloat(std::string& data, std::size_t at, float value) {
    std::memcpy(&data[at], &value, sizeof value);
}

void putIndex(std::string& data, std::size_t position, std::uint16_t index) {
    std::memcpy(&data[position * 2], &index, sizeof index);
}

/// Where the parts of triangleFile()'s data lie.
constexpr std::size_t POSITIONS_AT = 6, NORMALS_AT = 42;

using Change = std::function<void(Editable&)>;

Change replaced(const std::string& from, const std::string& to) {
    return [=](Editable& file) { file.replace(from, to); };
}

/// For each code that a header and its data can have: the one change to triangleFile() that brings it about.
const std::map<SrcCode, Change>& changes() {
    static const std::map<SrcCode, Change> CHANGES = {
        {SrcCode::JSON_SYNTAX, replaced("\"count\":3", "\"count\":03")},
        {SrcCode::WRONG_TYPE, replaced("\"indices\":\"indexView0\"", "\"indices\":0")},
        {SrcCode::BAD_NUMBER, replaced("\"count\":3", "\"count\":2.5")},
        {SrcCode::WRONG_LENGTH, replaced("\"decodeOffset\":[0,0,0]", "\"decodeOffset\":[0,0]")},
        {SrcCode::MISSING_SECTION,
         [](Editable& file) {
             const std::size_t begin = file.header.find("\"bufferChunks\"");
             file.header.erase(begin, file.header.find("\"bufferViews\":{") - begin);
         }},
        {SrcCode::MISSING_OPTIONAL_SECTION, replaced(",\"textures\":{}", "")},
        {SrcCode::MISSING_KEY, replaced(",\"primitive\":4", "")},
        {SrcCode::UNKNOWN_KEY, replaced("\"primitive\":4", "\"colour\":3,\"primitive\":4")},
        {SrcCode::DUPLICATE_KEY, replaced("\"primitive\":4", "\"primitive\":5,\"primitive\":4")},
        {SrcCode::BAD_COMPONENT_TYPE, replaced("\"componentType\":5123", "\"componentType\":5126")},
        {SrcCode::BAD_TYPE, replaced("VEC3", "MAT4")},
        {SrcCode::BAD_PRIMITIVE, replaced("\"primitive\":4", "\"primitive\":7")},
        {SrcCode::BAD_STRIDE, replaced("\"byteStride\":12", "\"byteStride\":11")},
        {SrcCode::ZERO_DECODE_SCALE, replaced("\"decodeScale\":[1,1,1]", "\"decodeScale\":[1,0,1]")},
        {SrcCode::DANGLING_CHUNK, replaced("[\"chunk0\"]", "[\"chunk9\"]")},
        {SrcCode::DANGLING_BUFFER_VIEW,
         replaced("\"bufferView\":\"bufferView0\"", "\"bufferView\":\"bufferView9\"")},
        {SrcCode::DANGLING_INDEX_VIEW, replaced("\"indices\":\"indexView0\"", "\"indices\":\"indexView1\"")},
        {SrcCode::DANGLING_ATTRIBUTE_VIEW,
         replaced("\"normal\":\"attributeView1\"", "\"normal\":\"attributeView01\"")},
        {SrcCode::DANGLING_MATERIAL, replaced("\"material\":\"material0\"", "\"material\":\"material1\"")},
        {SrcCode::DANGLING_TECHNIQUE, replaced("\"technique\":\"x3d", "\"technique\":\"y3d")},
        {SrcCode::CHUNK_PAST_END, [](Editable& file) { file.data.pop_back(); }},
        {SrcCode::VIEW_PAST_END, replaced("\"count\":3}", "\"count\":4}")},
        {SrcCode::REPEATED_CHUNKS,
         replaced("\"byteLength\":6,\"chunks\":[\"chunk0\"]",
                  "\"byteLength\":84,\"chunks\":[\"chunk0\",\"chunk0\",\"chunk0\",\"chunk0\",\"chunk0\","
                  "\"chunk0\",\"chunk0\","
                  "\"chunk0\",\"chunk0\",\"chunk0\",\"chunk0\",\"chunk0\",\"chunk0\",\"chunk0\"]")},
        {SrcCode::CHUNK_OVERLAP,
         [](Editable& file) {
             file.replace("\"byteOffset\":42}", "\"byteOffset\":41}");
             file.data.erase(NORMALS_AT,
                             1); // 0 0 80 3f and so on: what is left of the normals stays well formed
             file.data[41] = 0;
         }},
        {SrcCode::CHUNK_GAP,
         [](Editable& file) {
             file.replace("\"byteOffset\":42}", "\"byteOffset\":44}");
             file.data.insert(42, "xx");
         }},
        {SrcCode::TRAILING_BYTES, [](Editable& file) { file.data += "xx"; }},
        {SrcCode::VIEW_LENGTH, replaced("\"byteLength\":6,\"chunks\"", "\"byteLength\":8,\"chunks\"")},
        {SrcCode::UNUSED_CHUNK,
         replaced("\"chunk0\":{", "\"chunk\":{\"byteLength\":0,\"byteOffset\":0},\"chunk0\":{")},
        {SrcCode::UNUSED_BUFFER_VIEW,
         replaced("\"bufferView0\":{\"byteL",
                  "\"b\":{\"byteLength\":0,\"chunks\":[]},\"bufferView0\":{\"byteL")},
        {SrcCode::UNUSED_INDEX_VIEW,
         replaced(
             "\"indexView0\":{",
             "\"i\":{\"bufferView\":\"bufferView0\",\"byteOffset\":0,\"componentType\":5121,\"count\":0},"
             "\"indexView0\":{")},
        {SrcCode::UNUSED_ATTRIBUTE_VIEW, replaced("\"normal\":\"attributeView1\",", "")},
        {SrcCode::UNUSED_MATERIAL,
         replaced("\"materials\":{", "\"materials\":{\"m\":{\"instanceTechnique\":{\"technique\":"
                                     "\"x3dStandardMaterialTechnique\",\"values\":{}}},")},
        {SrcCode::UNUSED_TECHNIQUE,
         replaced("\"techniques\":{", "\"techniques\":{\"t\":{\"parameters\":{}},")},
        {SrcCode::MATERIAL_WITHOUT_TECHNIQUE,
         replaced("\"technique\":\"x3dStandardMaterialTechnique\",", "")},
        {SrcCode::UNKNOWN_PARAMETER, replaced("\"values\":{", "\"values\":{\"roughness\":[1],")},
        {SrcCode::METADATA_NOT_OBJECT,
         [](Editable& file) {
             const std::size_t begin = file.header.find("\"meta\":{\"name\"") + 7;
             file.header.replace(begin, file.header.find('}', begin) + 1 - begin, "\"{name: bolt}\"");
         }},
        {SrcCode::ORIGIN_MALFORMED, replaced("\"meta\":{\"name\"", "\"meta\":{\"origin\":[1,2],\"name\"")},
        {SrcCode::BOUNDS_MALFORMED,
         replaced("\"meta\":{\"name\"", "\"meta\":{\"bounds\":[0,0,0,1,1,-1],\"name\"")},
        {SrcCode::FIT_MALFORMED,
         replaced("\"meta\":{\"name\"", "\"meta\":{\"fit\":{\"position\":{\"offset\":[0]}},\"name\"")},
        {SrcCode::MISSING_POSITION,
         replaced("\"position\":\"attributeView0\"", "\"points\":\"attributeView0\"")},
        {SrcCode::INDEX_OUT_OF_RANGE, [](Editable& file) { putIndex(file.data, 1, 3); }},
        {SrcCode::INDEX_IS_RESTART, [](Editable& file) { putIndex(file.data, 2, 0xffff); }},
        {SrcCode::INCOMPLETE_PRIMITIVE,
         [](Editable& file) {
             file.replace("\"count\":3}", "\"count\":2}");
             file.replace("\"numOriginalTriangles\":1,", "");
             file.replace(",\"surfaceArea\":0.5", "");
         }},
        {SrcCode::DEGENERATE_PRIMITIVES,
         [](Editable& file) {
             putIndex(file.data, 2, 1);
             file.replace(",\"surfaceArea\":0.5", "");
         }},
        {SrcCode::NON_FINITE, [](Editable& file) { putFloat(file.data, NORMALS_AT, std::nanf("")); }},
        {SrcCode::NORMAL_LENGTH, [](Editable& file) { putFloat(file.data, NORMALS_AT + 8, 0.5f); }},
        {SrcCode::ATTRIBUTE_COUNT,
         [](Editable& file) {
             const std::size_t at = file.header.find("\"count\":3", file.header.find("\"attributeView1\":{"));
             file.header.replace(at, 9, "\"count\":2");
         }},
        {SrcCode::MISSING_BOUNDS,
         [](Editable& file) {
             file.replace("\"bboxCenter\":[0.5,0.5,0],", "");
             const std::size_t begin = file.header.find("\"bboxSize\"");
             file.header.erase(begin, file.header.find(']', begin) + 2 - begin);
         }},
        {SrcCode::BOUNDS_INCOMPLETE, replaced("\"bboxCenter\":[0.5,0.5,0],", "")},
        {SrcCode::BOUNDS_INVERTED, replaced("\"bboxSize\":[1,", "\"bboxSize\":[-1,")},
        {SrcCode::BOUNDS_TOO_SMALL,
         [](Editable& file) {
             putFloat(file.data, POSITIONS_AT + 12, 1.001f);
             file.replace(",\"surfaceArea\":0.5", "");
         }},
        {SrcCode::STATISTICS_DIFFER, replaced("\"numOriginalVertices\":3", "\"numOriginalVertices\":4")},
        {SrcCode::THREE_BYTE_SLOTS,
         [](Editable& file) {
             const std::size_t at = file.header.find("\"attributeView1\":{");
             file.header.replace(file.header.find("\"byteStride\":12", at), 15, "\"byteStride\":9");
             file.header.replace(file.header.find("5126", at), 4, "5125");
             file.header.replace(file.header.find("[1,1,1]", at), 7,
                                 "[0.03125,0.03125,0.03125]"); // a length of about 1
             file.data.replace(NORMALS_AT, 27, std::string(27, '\0'));
             file.header.replace(file.header.find("[0,0,0]", at), 7, "[0.03125,0,0]");
         }},
    };
    return CHANGES;
}

/// What the front of a file can have.
const std::map<SrcCode, std::string>& fronts() {
    static const std::string GOOD = triangleFile();
    static const std::map<SrcCode, std::string> FRONTS = {
        {SrcCode::EMPTY_FILE, ""},
        {SrcCode::TRUNCATED_PREAMBLE, GOOD.substr(0, 11)},
        {SrcCode::LOOKS_LIKE_HTML, "\xef\xbb\xbf\n<!DOCTYPE html><html></html>"},
        {SrcCode::LOOKS_LIKE_GLB, std::string("glTF\2\0\0\0\x20\0\0\0", 12)},
        {SrcCode::WRONG_SIGNATURE, "\x18" + GOOD.substr(1)},
        {SrcCode::UNKNOWN_LAYOUT, GOOD.substr(0, 4) + "\x2b" + GOOD.substr(5)},
        {SrcCode::HEADER_EMPTY, assemble("")},
        {SrcCode::HEADER_TRUNCATED, GOOD.substr(0, 100)},
    };
    return FRONTS;
}

/// Codes of `broken` that `good` does not have.
std::vector<std::string> added(const std::string& broken) {
    static const std::vector<std::string> USUAL = codesOf(validate(triangleFile()));
    std::vector<std::string> codes;
    for (const std::string& code : codesOf(validate(broken)))
        if (std::find(USUAL.begin(), USUAL.end(), code) == USUAL.end()) codes.push_back(code);
    return codes;
}

class EveryCode : public testing::TestWithParam<SrcCode> {};

std::string brokenBy(SrcCode code) {
    Editable file(triangleFile());
    changes().at(code)(file);
    return file.file();
}

TEST_P(EveryCode, IsFoundWhereOneThingIsBroken) {
    EXPECT_EQ(added(brokenBy(GetParam())), std::vector<std::string>{std::string(infoOf(GetParam()).name)});
}

TEST_P(EveryCode, IsThrownByTheReaderWhenTheTableSaysSo) {
    const std::string text = brokenBy(GetParam());
    if (infoOf(GetParam()).refused) {
        EXPECT_EQ(refusal(text), GetParam());
    } else {
        EXPECT_NO_THROW(read(text));
    }
}

std::vector<SrcCode> keysOf(const std::map<SrcCode, Change>& map) {
    std::vector<SrcCode> keys;
    for (const auto& [code, change] : map)
        keys.push_back(code);
    return keys;
}

INSTANTIATE_TEST_SUITE_P(ValidateSrc, EveryCode, testing::ValuesIn(keysOf(changes())),
                         [](const auto& tested) { return std::string(infoOf(tested.param).name); });

TEST(ValidateSrc, FindsWhatIsWrongWithTheFront) {
    for (const auto& [code, text] : fronts()) {
        EXPECT_EQ(codesOf(validate(text)), std::vector<std::string>{std::string(infoOf(code).name)});
        EXPECT_EQ(refusal(text), code);
    }
}

TEST(ValidateSrc, FindsUnalignedViewsOnlyWhereTheyAre) {
    // A header whose length leaves the indices at a multiple of 4 and the floats 6 bytes further on.
    Editable file(triangleFile());
    while (file.header.size() % 4 != 0)
        file.header += ' ';
    const ValidationReport report = validate(file.file());
    ASSERT_EQ(codesOf(report), std::vector<std::string>{"UNALIGNED_VIEW"});
    EXPECT_EQ(report.findings[0].count, 2u);
    EXPECT_EQ(report.findings[0].path, "/accessors/attributeViews/attributeView0");
    file.header += "  ";
    EXPECT_EQ(codesOf(validate(file.file())), std::vector<std::string>());
}

TEST(ValidateSrc, EveryCodeOfTheTableHasATest) {
    // Those that are told elsewhere: of files on disk, of limits, of streams, and of the alignment above.
    std::set<SrcCode> tested = {SrcCode::UNREADABLE, SrcCode::NOT_A_FILE, SrcCode::LIMIT_EXCEEDED,
                                SrcCode::STREAM_OVERLAP, SrcCode::UNALIGNED_VIEW};
    for (const auto& entry : changes())
        tested.insert(entry.first);
    for (const auto& entry : fronts())
        tested.insert(entry.first);
    for (const SrcCodeInfo& info : SRC_CODES)
        EXPECT_TRUE(tested.count(info.code)) << info.name;
}

TEST(ValidateSrc, TheFirstBadIndexIsNamed) {
    Editable file(triangleFile());
    putIndex(file.data, 1, 7);
    putIndex(file.data, 2, 9);
    const ValidationReport report = validate(file.file());
    for (const SrcFinding& finding : report.findings) {
        if (finding.code != SrcCode::INDEX_OUT_OF_RANGE) continue;
        EXPECT_EQ(finding.detail, "index 7 of 3 vertices, first at position 1");
        EXPECT_EQ(finding.count, 2u);
        return;
    }
    FAIL();
}

TEST(ValidateSrc, EveryStatisticIsCompared) {
    for (const char* wrong : {"\"numOriginalTriangles\":2", "\"numOriginalLines\":1",
                              "\"numOriginalPoints\":3", "\"numOriginalTriangles\":1e30"}) {
        EXPECT_EQ(added(Editable(triangleFile()).replace("\"numOriginalTriangles\":1", wrong).file()),
                  std::vector<std::string>{"STATISTICS_DIFFER"})
            << wrong;
    }
    EXPECT_EQ(added(Editable(triangleFile()).replace("\"surfaceArea\":0.5", "\"surfaceArea\":0.51").file()),
              std::vector<std::string>{"STATISTICS_DIFFER"});
}

TEST(ValidateSrc, AFileThatNamesTheSameBytesOverAndOverIsNotReadForever) {
    // 20000 views of 100 kB each on the same bytes: 2 GB to read in a file of 3 MB.
    constexpr int VIEWS = 20000;
    std::string views, attributes;
    for (int i = 0; i < VIEWS; ++i) {
        const std::string id = "\"v" + std::to_string(i) + "\"";
        views +=
            (i ? "," : "") + id +
            R"(:{"bufferView":"b","byteOffset":0,"byteStride":4,"componentType":5126,"count":25000,"type":"SCALAR"})";
    }
    const std::string text =
        assemble(R"({"accessors":{"attributeViews":{)" + views +
                     R"(},"indexViews":{}},"bufferChunks":{"c":{"byteLength":100000,"byteOffset":0}},)"
                     R"("bufferViews":{"b":{"byteLength":100000,"chunks":["c"]}},"meshes":{}})",
                 std::string(100000, '\0'));
    ValidateOptions options;
    options.maxFindings = 100000;
    const auto codes = codesOf(validate(text, options));
    EXPECT_EQ(std::count(codes.begin(), codes.end(), "LIMIT_EXCEEDED"), 1);
}

// ---- The table ------------------------------------------------------------------------------------------

TEST(SrcCodes, TheTableIsInTheOrderOfTheEnumAndSaysSomething) {
    std::set<std::string_view> names;
    for (std::size_t i = 0; i < SRC_CODE_COUNT; ++i) {
        const SrcCodeInfo& info = SRC_CODES[i];
        EXPECT_EQ(static_cast<std::size_t>(info.code), i);
        EXPECT_TRUE(names.insert(info.name).second) << info.name << " stands twice";
        EXPECT_EQ(info.sentence.back(), '.') << info.name;
        EXPECT_EQ(info.remedy.back(), '.') << info.name;
        EXPECT_TRUE(!info.refused || info.severity == Severity::ERROR) << info.name;
    }
}

TEST(SrcError, SaysPlaceSentenceDetailAndRemedy) {
    const std::string text =
        Editable(triangleFile()).replace("\"byteStride\":12", "\"byteStride\":11").file();
    try {
        read(text);
        FAIL();
    } catch (const SrcError& error) {
        EXPECT_EQ(error.path(), "/accessors/attributeViews/attributeView0/byteStride");
        EXPECT_EQ(std::string(error.what()),
                  "/accessors/attributeViews/attributeView0/byteStride: The stride is smaller than one "
                  "element. (11 for elements of 12 "
                  "bytes) Use the size of an element, or more when data are interleaved.");
    }
}

} // namespace
