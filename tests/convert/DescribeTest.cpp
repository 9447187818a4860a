#include <kel/convert/Describe.h>
#include <reader/Files.h>

#include <gmock/gmock.h>

namespace {

using namespace kel::convert;
using namespace kel::tests;
using reader_fixture::Mode;
using testing::IsEmpty;
using testing::SizeIs;

FileInfo described(const kel::src::SrcWriterInput& input, Mode mode, bool listMeshes = false) {
    return describe(reader_fixture::read(reader_fixture::write(input, mode)), listMeshes);
}

TEST(Describe, CountsWhatTheHeaderSays) {
    const auto input = fixture::inputOf({fixture::unitSquare(), fixture::pointRow(5)});
    const FileInfo info = described(input, Mode::UNCOMPRESSED, true);
    EXPECT_EQ(info.counts.meshes, 2u);
    EXPECT_EQ(info.counts.triangles, 2u);
    EXPECT_EQ(info.counts.points, 5u);
    EXPECT_EQ(info.counts.vertices, 9u);
    ASSERT_THAT(info.meshList, SizeIs(2));
    EXPECT_STREQ(info.meshList[0].kind, "triangles");
    EXPECT_STREQ(info.meshList[1].kind, "points");
    EXPECT_EQ(info.meshList[1].primitives(), 5u);
    EXPECT_EQ(info.meshList[0].counts.vertices, 4u);
}

TEST(Describe, SectionsAddUpToTheFile) {
    for (const Mode mode : reader_fixture::ALL_MODES) {
        const std::string file = reader_fixture::write(fixture::twoMaterials(), mode);
        const FileInfo info = describe(reader_fixture::read(file));
        std::uint64_t sum = 0;
        for (const auto& section : info.sections)
            sum += section.bytes;
        EXPECT_EQ(sum, file.size());
        EXPECT_EQ(info.bytes, file.size());
        EXPECT_THAT(info.meshList, IsEmpty());
    }
}

TEST(Describe, StepIsThatOfTheCodes) {
    const FileInfo info = described(fixture::inputOf({fixture::unitSquare()}), Mode::CMP1);
    for (const auto& section : info.sections) {
        if (section.name != "position") continue;
        EXPECT_EQ(section.encoding, "16-bit codes");
        ASSERT_TRUE(section.step.has_value());
        EXPECT_NEAR(*section.step, 1.0 / 65535, 1e-9);
        return;
    }
    ADD_FAILURE() << "no positions";
}

} // namespace
