#include <kel/prepare/WriteChecked.h>

#include <kel/src/DefaultSrcWriter.h>
#include <kel/src/SrcWriter.h>

#include <support/Meshes.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>

namespace {

using namespace kel::prepare;
using kel::src::SrcWriter;
using kel::src::SrcWriterInput;
using testing::AllOf;
using testing::HasSubstr;
using testing::ThrowsMessage;

/// An octahedron in the box of "CMP1", whose bytes do not depend on earlier writes.
SrcWriterInput smallInput() {
    auto mesh = fixture::octahedron();
    mesh->addAttribute("normal", 3, std::vector<float>(18, 0.25f));
    return fixture::inputOf({mesh});
}

std::string checked(Target target) {
    std::ostringstream out;
    writeChecked(smallInput(), target, out);
    return out.str();
}

std::string byPublicWriter(SrcWriter::Compression mode) {
    std::ostringstream out;
    SrcWriter::write(smallInput(), out, mode);
    return out.str();
}

std::string byContainerWriter(bool compressed) {
    std::ostringstream out;
    SrcWriterInput input = smallInput();
    input.useCompressedPreset = compressed;
    kel::src::writeMeshSrcDefault(input, out);
    return out.str();
}

TEST(WriteChecked, WritesWhatTheWriterOfTheTargetWrites) {
    EXPECT_EQ(checked(Target::PRESET_DEFAULT), byContainerWriter(false));
    EXPECT_EQ(checked(Target::PRESET_CMP1), byContainerWriter(true));
    EXPECT_EQ(checked(Target::UNCOMPRESSED), byPublicWriter(SrcWriter::UNCOMPRESSED));
    EXPECT_EQ(checked(Target::POSITION_COMPRESSED), byPublicWriter(SrcWriter::POSITION_COMPRESSED));
    EXPECT_EQ(checked(Target::POSITION_NORMAL_COMPRESSED),
              byPublicWriter(SrcWriter::POSITION_NORMAL_COMPRESSED));
}

TEST(WriteChecked, TakesThePresetFromTheTarget) {
    SrcWriterInput input = smallInput();
    input.useCompressedPreset = true;
    std::ostringstream out;
    write(input, Target::PRESET_DEFAULT, out);
    EXPECT_EQ(out.str(), byContainerWriter(false));
    EXPECT_TRUE(input.useCompressedPreset);
}

TEST(WriteChecked, ComesBackFromPositionsThatTheWriterHasNoEndFor) {
    auto flat = std::make_shared<kel::mesh::DefaultMesh>();
    flat->addAttribute("position", 2, std::vector<float>{0, 0, 1, 0, 0, 1});
    flat->setIndices(std::vector<std::uint16_t>{0, 1, 2});
    auto nameless = std::make_shared<kel::mesh::DefaultMesh>();
    nameless->addAttribute("coordinates", 3, std::vector<float>(9, 0.5f));
    nameless->setIndices(std::vector<std::uint16_t>{0, 1, 2});
    for (const Target target : {Target::POSITION_COMPRESSED, Target::POSITION_NORMAL_COMPRESSED}) {
        std::ostringstream out;
        EXPECT_THAT(
            [&] {
                writeChecked(fixture::inputOf({fixture::octahedron(), flat}), target, out);
            },
            ThrowsMessage<std::invalid_argument>(
                AllOf(HasSubstr("Mesh 1 (\"mesh1\"), attribute \"position\""),
                      HasSubstr("Convert them to three floats."))));
        EXPECT_THAT(
            [&] {
                writeChecked(fixture::inputOf({nameless, flat}), target, out);
            },
            ThrowsMessage<std::invalid_argument>(
                AllOf(HasSubstr("Mesh 0 (\"mesh0\"): The mesh has no attribute \"position\""),
                      HasSubstr("(and 1 more)"))));
        EXPECT_EQ(out.str(), "");
    }
}

TEST(WriteChecked, WritesWithWarningsAndHints) {
    SrcWriterInput input = smallInput();
    input.metaData.clear(); // a warning for the public writer
    std::ostringstream out;
    writeChecked(input, Target::UNCOMPRESSED, out);
    EXPECT_NE(out.str(), "");
}

} // namespace
