// When a mesh's entry "fit" is undone and when it is left alone. The web loader is held to the same cases:
// web/loader/test/header.test.ts.

#include "Files.h"

#include <kel/src/SrcReader.h>
#include <kel/src/SrcValidator.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

using namespace kel::src;
using namespace reader_fixture;

/// A file with an octahedron of positions, normals and one number per vertex, "weight".
std::string fileWith(const std::string& fit, Mode mode) {
    auto mesh = octahedron();
    mesh->addAttribute("weight", 1, std::vector<float>{0, 1, 2, 3, 4, 5});
    auto input = fixture::inputOf({mesh});
    (*input.metaData[mesh])["fit"] = fit;
    return write(input, mode);
}

/// Whether undoing the fit changes the values of the attribute.
bool applies(const std::string& fit, const char* attribute, Mode mode = Mode::UNCOMPRESSED) {
    const std::string text = fileWith(fit, mode);
    const SrcFile file = read(text);
    DecodeOptions asStored;
    asStored.applyFit = false;
    const DecodedMesh fitted = decodeMesh(file, file.meshes()[0]);
    const DecodedMesh stored = decodeMesh(file, file.meshes()[0], asStored);
    return fitted.find(attribute)->values != stored.find(attribute)->values;
}

bool isReported(const std::string& fit) {
    const std::string text = fileWith(fit, Mode::UNCOMPRESSED);
    const ValidationReport report = validateSrc(ByteView(std::string_view(text)));
    return std::any_of(report.findings.begin(), report.findings.end(),
                       [](const SrcFinding& finding) { return finding.code == SrcCode::FIT_MALFORMED; });
}

const std::string THREE = R"({"offset":[1,2,3],"scale":[4,5,6]})";

TEST(Fit, IsUndoneWithOneNumberPerComponent) {
    EXPECT_TRUE(applies(R"({"position":)" + THREE + "}", "position"));
    EXPECT_TRUE(
        applies(R"({"position":{"more":true,"offset":[1,2,3],"scale":[4,5,6]},"other":5})", "position"));
    EXPECT_TRUE(applies(R"({"weight":{"offset":[1],"scale":[2]}})", "weight"));
    EXPECT_FALSE(isReported(R"({"position":)" + THREE + "}"));
}

TEST(Fit, MayBeABareNumberWhereThereIsOneComponent) {
    EXPECT_TRUE(applies(R"({"weight":{"offset":1,"scale":2}})", "weight"));
    EXPECT_FALSE(applies(R"({"position":{"offset":1,"scale":2}})", "position"));
}

TEST(Fit, OfInterleavedPositionsAndNormalsIsThatOfThePositions) {
    EXPECT_TRUE(applies(R"({"position":)" + THREE + "}", "position", Mode::POSITIONS_AND_NORMALS));
    EXPECT_FALSE(applies(R"({"pos3us_nor2ub_oct":)" + THREE + "}", "position", Mode::POSITIONS_AND_NORMALS));
    EXPECT_FALSE(applies(R"({"position":{"offset":[1,2,3,4],"scale":[4,5,6,7]}})", "position",
                         Mode::POSITIONS_AND_NORMALS));
}

TEST(Fit, OfAnotherShapeIsLeftAlone) {
    const std::string shapes[] = {
        "null",
        R"("position")",
        "[" + THREE + "]",
        R"({"normal":)" + THREE + "}",
        R"({"position":[1,2,3]})",
        R"({"position":{"scale":[4,5,6]}})",
        R"({"position":{"offset":[1,2,3]}})",
        R"({"position":{"offset":[1,2],"scale":[4,5]}})",
        R"({"position":{"offset":[1,2,3,4],"scale":[4,5,6,7]}})",
        R"({"position":{"offset":[1,2,3],"scale":[4,5]}})",
        R"({"position":{"offset":["1","2","3"],"scale":[4,5,6]}})",
        R"({"position":{"offset":[1,2,3],"scale":[4,null,6]}})",
        R"({"position":{"offset":[[1,2,3]],"scale":[[4,5,6]]}})",
    };
    for (const std::string& shape : shapes)
        EXPECT_FALSE(applies(shape, "position")) << shape;
}

TEST(Fit, TheValidatorReportsWhatReadersLeaveOut) {
    for (const char* malformed : {"null", "5", R"({"position":5})", R"({"position":{"offset":[1,2,3]}})",
                                  R"({"position":{"offset":[1,2,3],"scale":[4,5]}})",
                                  R"({"position":{"offset":[1,2,3,4,5],"scale":[1,2,3,4,5]}})",
                                  R"({"position":{"offset":[],"scale":[]}})"})
        EXPECT_TRUE(isReported(malformed)) << malformed;
    EXPECT_FALSE(isReported("{}"));
}

} // namespace
