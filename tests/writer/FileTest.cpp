// The public writer through the real builder library, judged by the file.
#include "support/LogCapture.h"
#include "support/Meshes.h"
#include "support/SrcFile.h"

#include <kel/src/SrcWriter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>

namespace {

using kel::src::SrcWriter;
using kel::src::SrcWriterInput;
using kel::tests::LogCapture;
using kel::tests::SrcFile;
using testing::ElementsAre;
using Element = SrcFile::Element;

std::string bytesOf(const SrcWriterInput& input, SrcWriter::Compression mode = SrcWriter::UNCOMPRESSED) {
    std::ostringstream out;
    SrcWriter::write(input, out, mode);
    return out.str();
}

SrcFile fileOf(const SrcWriterInput& input, SrcWriter::Compression mode = SrcWriter::UNCOMPRESSED) {
    return SrcFile(bytesOf(input, mode));
}

/// One mesh with an empty metadata map.
SrcWriterInput inputOf(const kel::mesh::MeshPtr& mesh) {
    SrcWriterInput input;
    input.meshes = {mesh};
    input.metaData[mesh] = std::make_shared<std::map<std::string, std::string>>();
    return input;
}

class AnyMode : public testing::TestWithParam<SrcWriter::Compression> {};
INSTANTIATE_TEST_SUITE_P(Modes, AnyMode,
                         testing::Values(SrcWriter::UNCOMPRESSED, SrcWriter::POSITION_COMPRESSED,
                                         SrcWriter::POSITION_NORMAL_COMPRESSED));

TEST(SrcWriter, ModesHaveTheirNumbers) {
    EXPECT_EQ(static_cast<int>(SrcWriter::UNCOMPRESSED), 0);
    EXPECT_EQ(static_cast<int>(SrcWriter::POSITION_COMPRESSED), 1);
    EXPECT_EQ(static_cast<int>(SrcWriter::POSITION_NORMAL_COMPRESSED), 2);
}

TEST(SrcWriter, RefusesAnUnknownModeAndWritesNothing) {
    for (const int mode : {3, -1}) {
        std::ostringstream out;
        try {
            SrcWriter::write({}, out, static_cast<SrcWriter::Compression>(mode));
            ADD_FAILURE() << "mode " << mode << " was taken";
        } catch (const std::invalid_argument& error) {
            EXPECT_STREQ(error.what(), "Unknown compression parameter!!!");
        }
        EXPECT_EQ(out.str(), "");
    }
}

TEST_P(AnyMode, AnEmptySceneIsADocumentWithTheTechnique) {
    const SrcFile file = fileOf({}, GetParam());
    EXPECT_EQ(
        file.header,
        R"({"accessors":{"attributeViews":{},"indexViews":{}},"bufferChunks":{},"bufferViews":{},)"
        R"("materials":{},"meshes":{},"meta":{},"techniques":{"x3dStandardMaterialTechnique":)"
        R"({"parameters":{"ambientIntensity":{"value":0.20000000000000001},)"
        R"("diffuseColor":{"value":[0.80000000000000004,0.80000000000000004,0.80000000000000004]},)"
        R"("emissiveColor":{"value":[0,0,0]},"shininess":{"value":0.20000000000000001},)"
        R"("specularColor":{"value":[0,0,0]},"transparency":{"value":0}}}},"textureViews":{},"textures":{}})");
    EXPECT_EQ(file.data, "");
}

TEST_P(AnyMode, MeshesAreNamedAfterTheirPlace) {
    SrcWriterInput input;
    for (int i = 0; i < 12; ++i)
        input.meshes.push_back(fixture::unitSquare());
    const SrcFile file = fileOf(input, GetParam());
    EXPECT_THAT(file.meshIds(), ElementsAre("mesh0", "mesh1", "mesh10", "mesh11", "mesh2", "mesh3", "mesh4",
                                            "mesh5", "mesh6", "mesh7", "mesh8", "mesh9"));
}

TEST_P(AnyMode, IndicesAreWrittenIn16Bits) {
    const SrcFile file = fileOf(inputOf(fixture::unitSquare()), GetParam());
    EXPECT_THAT(file.indices("mesh0"), ElementsAre(0, 1, 2, 0, 2, 3));
    EXPECT_EQ(file.at("accessors", "indexViews", "indexView0"),
              R"({"bufferView":"bufferView0","byteOffset":0,"componentType":5123,"count":6})");
}

TEST_P(AnyMode, EqualInputGivesEqualBytes) {
    EXPECT_EQ(bytesOf(inputOf(fixture::unitSquare()), GetParam()),
              bytesOf(inputOf(fixture::unitSquare()), GetParam()));
}

TEST(SrcWriter, UncompressedKeepsEveryAttribute) {
    const SrcFile file = fileOf(inputOf(fixture::unitSquare()));
    EXPECT_THAT(file.attributeNames("mesh0"), ElementsAre("normal", "position", "texcoord"));
    const auto positions = file.attribute("mesh0", "position");
    EXPECT_EQ(positions.type, "VEC3");
    EXPECT_EQ(positions.componentType, 5126u);
    EXPECT_THAT(positions.decoded,
                ElementsAre(Element{0, 0, 0}, Element{1, 0, 0}, Element{1, 1, 0}, Element{0, 1, 0}));
    EXPECT_EQ(file.attribute("mesh0", "texcoord").type, "VEC2");
    EXPECT_EQ(file.at("meshes", "mesh0", "bboxCenter"), "[0.5,0.5,0]");
    EXPECT_EQ(file.at("meshes", "mesh0", "bboxSize"), "[1,1,0]");
}

} // namespace
