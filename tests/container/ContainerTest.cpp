#include <kel/src/container/ShapeResourceContainer.h>

#include <support/SrcText.h>
#include <support/Streams.h>
#include <support/TempFolder.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace {

using kel::src::detail::ShapeResourceContainer;
using kel::tests::CapturedStreams;
using kel::tests::SrcText;

std::string bytesOf(ShapeResourceContainer& container) {
    std::ostringstream out;
    container.writeToStream(out);
    return out.str();
}

const std::string EMPTY_HEADER =
    R"({"accessors":{"attributeViews":{},"indexViews":{}},"bufferChunks":{},"bufferViews":{},"materials":{},)"
    R"("meshes":{},"meta":{},"techniques":{},"textureViews":{},"textures":{}})";

TEST(Container, EmptyIsTwelveBytesAndTheSkeleton) {
    ShapeResourceContainer container;
    const std::string expected = std::string("\x17\0\0\0\x2a\0\0\0\xab\0\0\0", 12) + EMPTY_HEADER;
    ASSERT_EQ(expected.size(), 12u + 171u);
    EXPECT_EQ(bytesOf(container), expected);
}

TEST(Container, SmallDocumentIsTheseBytes) {
    ShapeResourceContainer container;
    const unsigned char position[12] = {0, 0, 128, 63, 0, 0, 0, 64, 0, 0, 64, 64};
    const unsigned char indices[6] = {0, 0, 1, 0, 2, 0};
    const double zeros[3] = {0, 0, 0}, ones[3] = {1, 1, 1};
    const std::string positionView = container.addBufferView(position, 12, nullptr);
    container.addAttributeView<3>(positionView, 0, 12, 1, ShapeResourceContainer::FLOAT, zeros, ones);
    const std::string indexView = container.addBufferView(indices, 6, nullptr);
    container.addIndexView(indexView, 0, 3, ShapeResourceContainer::USHORT);

    const std::string header =
        R"({"accessors":{"attributeViews":{"attributeView0":{"bufferView":"bufferView0","byteOffset":0,)"
        R"("byteStride":12,"componentType":5126,"count":1,"decodeOffset":[0,0,0],"decodeScale":[1,1,1],)"
        R"("type":"VEC3"}},"indexViews":{"indexView0":{"bufferView":"bufferView1","byteOffset":0,)"
        R"("componentType":5123,"count":3}}},"bufferChunks":{"chunk0":{"byteLength":12,"byteOffset":0},)"
        R"("chunk1":{"byteLength":6,"byteOffset":12}},"bufferViews":{"bufferView0":{"byteLength":12,)"
        R"("chunks":["chunk0"]},"bufferView1":{"byteLength":6,"chunks":["chunk1"]}},"materials":{},"meshes":{},)"
        R"("meta":{},"techniques":{},"textureViews":{},"textures":{}})";
    ASSERT_EQ(header.size(), 609u);
    const std::string expected = std::string("\x17\0\0\0\x2a\0\0\0\x61\x02\0\0", 12) + header +
                                 std::string("\0\0\x80\x3f\0\0\0\x40\0\0\x40\x40", 12) +
                                 std::string("\0\0\1\0\2\0", 6);
    ASSERT_EQ(expected.size(), 639u);
    EXPECT_EQ(bytesOf(container), expected);
}

TEST(Container, FirstIdsOfEachKindEndInZero) {
    ShapeResourceContainer container;
    EXPECT_EQ(container.createBufferViewID(), "bufferView0");
    EXPECT_EQ(container.createBufferViewID(), "bufferView1");
    EXPECT_EQ(container.createIndexViewID(), "indexView0");
    EXPECT_EQ(container.createAttributeViewID(), "attributeView0");
    EXPECT_EQ(container.createBufferChunkID(), "chunk0");
}

TEST(Container, EleventhIdHasNoPadding) {
    ShapeResourceContainer container;
    std::string id;
    for (int i = 0; i < 11; ++i)
        id = container.addBufferView(nullptr, 0, nullptr);
    EXPECT_EQ(id, "bufferView10");
}

TEST(Container, NumberedEntriesStandInByteOrder) {
    ShapeResourceContainer container;
    for (int i = 0; i < 112; ++i)
        container.addIndexView("b", 0, 0, ShapeResourceContainer::USHORT);
    const SrcText file(bytesOf(container));
    // picojson sorts by bytes on its own, so equal texts mean that ours is sorted and complete.
    EXPECT_EQ(file.json.get("accessors").get("indexViews").get<picojson::object>().size(), 112u);
    EXPECT_EQ(file.json.serialize(), file.header);
}

TEST(Container, AnIdThatWasOnlyCreatedLeavesNoEntry) {
    ShapeResourceContainer container;
    container.createIndexViewID();
    container.addIndexView("b", 0, 0, ShapeResourceContainer::USHORT);
    const SrcText file(bytesOf(container));
    EXPECT_EQ(file.at("accessors", "indexViews", "indexView0"), "");
    EXPECT_NE(file.at("accessors", "indexViews", "indexView1"), "");
}

TEST(Container, WritingTwiceGivesTheSameBytes) {
    ShapeResourceContainer container;
    const unsigned char bytes[3] = {1, 2, 3};
    container.addBufferView(bytes, 3, nullptr);
    const std::string first = bytesOf(container);
    EXPECT_EQ(bytesOf(container), first);
}

TEST(Container, AddingAfterWritingExtendsTheNextWrite) {
    ShapeResourceContainer container;
    const std::string before = bytesOf(container);
    container.addBufferView(nullptr, 0, nullptr);
    EXPECT_GT(bytesOf(container).size(), before.size());
}

TEST(Container, NumbersFollowTheHeaderRule) {
    ShapeResourceContainer container;
    const std::vector<unsigned char> kilobyte(1024);
    container.addBufferView(kilobyte.data(), kilobyte.size(), nullptr);
    const double offset = 0, scale = 0.1;
    container.addAttributeView<1>("bufferView0", 0, 4, 1, ShapeResourceContainer::FLOAT, &offset, &scale);
    const SrcText file(bytesOf(container));
    EXPECT_NE(file.header.find(R"("byteLength":1024,)"), std::string::npos);
    EXPECT_NE(file.header.find(R"("decodeScale":[0.10000000000000001])"), std::string::npos);
}

TEST(Container, LargeAndSmallChunksKeepTheirOrder) {
    ShapeResourceContainer container;
    std::string expected;
    for (const std::size_t size :
         {std::size_t(1), std::size_t(300000), std::size_t(7), std::size_t(262144)}) {
        const std::vector<unsigned char> bytes(size, static_cast<unsigned char>(expected.size() % 251 + 1));
        container.addBufferView(bytes.data(), bytes.size(), nullptr);
        expected.append(bytes.begin(), bytes.end());
    }
    EXPECT_EQ(SrcText(bytesOf(container)).data, expected);
}

TEST(Container, MetaDataCanBeChangedInPlace) {
    ShapeResourceContainer container;
    container.addMetaData("unit", picojson::value("metre"));
    container.getMetaData()["unit"] = picojson::value("inch");
    container.getMetaData()["a/b"] = picojson::value(1.5);
    EXPECT_NE(bytesOf(container).find(R"("meta":{"a\/b":1.5,"unit":"inch"})"), std::string::npos);
}

TEST(Container, WriteToFileSaysWhereAndWritesTheStreamsBytes) {
    ShapeResourceContainer container;
    const kel::tests::TempFolder folder;
    const std::string path = folder / "written.src";
    std::string out, err;
    {
        CapturedStreams streams;
        container.writeToFile(path.c_str());
        out = streams.out();
        err = streams.err();
    }
    EXPECT_EQ(out, "Writing SRC data to \"" + path + "\".\n");
    EXPECT_EQ(err, "");
    std::ifstream file(path, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), bytesOf(container));
}

TEST(Container, WriteToFileInAMissingFolderReportsAndCreatesNothing) {
    ShapeResourceContainer container;
    const kel::tests::TempFolder folder;
    const std::string path = folder / "no_such_folder/file.src";
    std::string out, err;
    {
        CapturedStreams streams;
        container.writeToFile(path.c_str());
        out = streams.out();
        err = streams.err();
    }
    EXPECT_EQ(out, "");
    EXPECT_EQ(err, "Unable to open file \"" + path + "\" for writing SRC data.\n");
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(Container, TechniqueAndMaterialEntriesHaveTheirShapes) {
    ShapeResourceContainer container;
    picojson::object values;
    values["shininess"] = picojson::value(picojson::array{picojson::value(0.5)});
    container.addTechnique("t", picojson::value(picojson::object()));
    container.addMaterial("m", "t", picojson::value(values));
    const SrcText file(bytesOf(container));
    EXPECT_EQ(file.at("techniques"), R"({"t":{"parameters":{}}})");
    EXPECT_EQ(file.at("materials"),
              R"({"m":{"instanceTechnique":{"technique":"t","values":{"shininess":[0.5]}}}})");
}

TEST(Container, AddingAMaterialTwiceKeepsTheSecond) {
    ShapeResourceContainer container;
    container.addMaterial("m", "first", picojson::value(picojson::object()));
    container.addMaterial("m", "second", picojson::value(picojson::object()));
    const SrcText file(bytesOf(container));
    EXPECT_EQ(file.at("materials", "m", "instanceTechnique", "technique"), "\"second\"");
}

TEST(Container, ANumberThatIsNoneRaisesPicojsonsOverflowError) {
    ShapeResourceContainer container;
    const double zero = 0, infinite = std::numeric_limits<double>::infinity();
    EXPECT_THROW(container.addAttributeView<1>("b", 0, 4, 1, ShapeResourceContainer::FLOAT, &zero, &infinite),
                 std::overflow_error);
    // The ID is used up, the entry is not there.
    EXPECT_EQ(container.createAttributeViewID(), "attributeView1");
    EXPECT_EQ(bytesOf(container).substr(12, 171), EMPTY_HEADER);
}

} // namespace
