#include "Files.h"

#include <kel/src/SrcReader.h>

#include <support/TempFolder.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>

namespace {

using namespace kel::src;
using namespace reader_fixture;

TEST(ReadSrc, TellsMeshesViewsAndBytes) {
    const std::string text = triangleFile();
    const SrcFile file = read(text);

    ASSERT_EQ(file.meshes().size(), 1u);
    const SrcMesh& mesh = file.meshes()[0];
    EXPECT_EQ(mesh.id, "0");
    EXPECT_EQ(mesh.primitive, kel::mesh::TRIANGLES);
    EXPECT_TRUE(mesh.hasBounds);
    EXPECT_EQ(mesh.boundsCenter, (std::array<double, 3>{0.5, 0.5, 0.0}));
    EXPECT_EQ(file.materials()[mesh.material].id, "material0");

    const SrcIndexView& indices = file.indexViews()[mesh.indexView];
    EXPECT_EQ(indices.id, "indexView0");
    EXPECT_EQ(indices.componentType, kel::mesh::UNSIGNED_SHORT);
    EXPECT_EQ(indices.count, 3u);

    ASSERT_EQ(file.attributes(mesh).size(), 2u);
    EXPECT_EQ(file.attributes(mesh)[0].name, "normal");
    const SrcAttributeView* position = file.findAttribute(mesh, "position");
    ASSERT_NE(position, nullptr);
    EXPECT_EQ(position->byteStride, 12u);
    EXPECT_EQ(position->components, 3);
    EXPECT_FALSE(position->decoded);

    EXPECT_EQ(file.dataBytes(), 78u);
    EXPECT_EQ(file.dataOffset() + file.dataBytes(), text.size());
}

TEST(ReadSrc, HandsOutTheCallersBytesWithoutACopy) {
    const std::string text = triangleFile();
    const SrcFile file = read(text);
    const ByteView bytes = file.bytes(file.bufferViews()[0]);
    const auto* begin = reinterpret_cast<const unsigned char*>(text.data());
    EXPECT_EQ(bytes.data, begin + file.dataOffset());
    EXPECT_EQ(bytes.size, 6u);
    EXPECT_EQ(file.header().data(), text.data() + 12);
}

TEST(ReadSrc, ReadsEveryModeOfBothWriters) {
    for (const Mode mode : ALL_MODES) {
        const std::string text = write(fixture::twoMaterials(), mode);
        const SrcFile file = read(text);
        EXPECT_EQ(file.meshes().size(), 2u);
        EXPECT_EQ(file.materials().size(), 2u);
        EXPECT_EQ(file.techniques().size(), 1u);
    }
}

TEST(ReadSrc, PutsNumberedMeshesInTheOrderOfTheirNumbers) {
    std::vector<kel::mesh::MeshPtr> meshes(12, nullptr);
    for (auto& mesh : meshes)
        mesh = fixture::tetrahedron();
    for (const Mode mode : {Mode::DEFAULT, Mode::UNCOMPRESSED}) {
        const std::string text = write(fixture::inputOf(meshes), mode);
        const SrcFile file = read(text);
        for (std::size_t i = 0; i < 12; ++i) {
            const std::string id = (mode == Mode::DEFAULT ? "" : "mesh") + std::to_string(i);
            EXPECT_EQ(file.meshes()[i].id, id);
            EXPECT_EQ(file.findMesh(id), &file.meshes()[i]);
        }
    }
}

TEST(ReadSrc, KeepsTheHeadersOrderForOtherIds) {
    const std::string text = Editable(write(fixture::twoMaterials(), Mode::DEFAULT))
                                 .replace("\"1\":{\"attr", "\"b/\\u00e4\":{\"attr")
                                 .file();
    const SrcFile file = read(text);
    EXPECT_EQ(file.meshes()[1].id, "b/\xc3\xa4");
    EXPECT_EQ(file.findMesh("b/\xc3\xa4"), &file.meshes()[1]);
    EXPECT_EQ(file.findMesh("b"), nullptr);
}

TEST(ReadSrc, TakesAFileOfAMemoryBlockWithNothingBehindIt) {
    // A block of exactly the right size, so that a sanitizer sees a read past it.
    const std::string text = triangleFile();
    const auto block = std::make_unique<unsigned char[]>(text.size());
    std::copy(text.begin(), text.end(), block.get());
    EXPECT_EQ(readSrc(ByteView(block.get(), text.size())).meshes().size(), 1u);
    const std::string noData =
        assemble(R"({"accessors":{"attributeViews":{},"indexViews":{}},"bufferChunks":{},)"
                 R"("bufferViews":{},"meshes":{}})");
    const auto exact = std::make_unique<unsigned char[]>(noData.size());
    std::copy(noData.begin(), noData.end(), exact.get());
    EXPECT_EQ(readSrc(ByteView(exact.get(), noData.size())).meshes().size(), 0u);
}

TEST(ReadSrc, TheLastOfEqualKeysCounts) {
    Editable twice(triangleFile());
    twice.replace("\"chunk0\":{", "\"chunk0\":{\"byteLength\":1,\"byteOffset\":7},\"chunk0\":{");
    twice.replace("\"count\":3,\"decode", "\"count\":99,\"count\":3,\"decode");
    const std::string text = twice.file();
    const SrcFile file = read(text);
    EXPECT_EQ(file.chunks().size(), 3u);
    EXPECT_EQ(decodeIndices(file, file.indexViews()[0]), (std::vector<std::uint32_t>{0, 1, 2}));
}

TEST(ReadSrc, AStreamIsReadToTheEndOfTheLastChunkAndNoFurther) {
    std::istringstream in(triangleFile() + "more");
    const SrcFile file = readSrc(in);
    EXPECT_EQ(file.dataBytes(), 78u);
    std::string rest;
    in >> rest;
    EXPECT_EQ(rest, "more");
    EXPECT_EQ(decodeIndices(file, file.indexViews()[0]), (std::vector<std::uint32_t>{0, 1, 2}));
}

TEST(ReadSrc, MaterialParametersFallBackOnTheTechniquesDefaults) {
    const std::string text = triangleFile();
    const SrcFile file = read(text);
    const SrcMaterial& material = *file.findMaterial("material0");
    EXPECT_EQ(file.materialParameter(material, "diffuseColor"), (std::vector<double>{1, 0, 0}));
    EXPECT_EQ(file.materialParameter(material, "transparency"), (std::vector<double>{0.2}));
    EXPECT_TRUE(file.materialParameter(material, "colour").empty());
}

TEST(ReadSrc, GathersAViewOfSeveralChunks) {
    Editable split(triangleFile());
    // The positions in two chunks, of 5 and 31 bytes, with the normals' chunk between them.
    split.replace(
        "\"chunk1\":{\"byteLength\":36,\"byteOffset\":6}",
        "\"chunk1\":{\"byteLength\":5,\"byteOffset\":6},\"rest\":{\"byteLength\":31,\"byteOffset\":47}");
    split.replace("\"byteOffset\":42", "\"byteOffset\":11");
    split.replace("[\"chunk1\"]", "[\"chunk1\",\"rest\"]");
    split.data = split.data.substr(0, 11) + split.data.substr(42, 36) + split.data.substr(11, 31);
    const std::string text = split.file(), whole = triangleFile();
    const SrcFile file = read(text), expected = read(whole);
    const SrcAttributeView& view = *file.findAttribute(file.meshes()[0], "position");
    EXPECT_EQ(file.bytes(file.bufferViews()[view.bufferView]).data, nullptr);
    for (const char* name : {"position", "normal"}) {
        EXPECT_EQ(decodeAttribute(file, *file.findAttribute(file.meshes()[0], name)),
                  decodeAttribute(expected, *expected.findAttribute(expected.meshes()[0], name)));
    }
}

TEST(ReadSrc, AViewMayBeLongerThanItsChunksAsLongAsNoViewReadsThere) {
    const std::string text = Editable(triangleFile())
                                 .replace("\"byteLength\":36,\"chunks\"", "\"byteLength\":90,\"chunks\"")
                                 .file();
    EXPECT_EQ(read(text).bufferViews()[1].storedBytes, 36u);
}

// ---- Files ----------------------------------------------------------------------------------------------

class OpenSrc : public testing::Test {
protected:
    std::string path() const { return folder / "file.src"; }
    void store(const std::string& text) const { std::ofstream(path(), std::ios::binary) << text; }
    static SrcCode refusalOf(const std::string& path) {
        try {
            openSrc(path);
        } catch (const SrcError& error) {
            return error.code();
        }
        ADD_FAILURE() << "the reader took " << path;
        return SrcCode::HEADER_EMPTY;
    }

    const kel::tests::TempFolder folder;
};

TEST_F(OpenSrc, MapsAFile) {
    store(triangleFile());
    SrcFile file = openSrc(path());
    const SrcFile moved = std::move(file);
    EXPECT_EQ(decodeIndices(moved, moved.indexViews()[0]), (std::vector<std::uint32_t>{0, 1, 2}));
}

TEST_F(OpenSrc, ReadsAPipe) {
    ASSERT_EQ(::mkfifo(path().c_str(), 0600), 0);
    std::thread writer([&] { std::ofstream(path(), std::ios::binary) << triangleFile(); });
    const SrcFile file = openSrc(path());
    writer.join();
    EXPECT_EQ(decodeIndices(file, file.indexViews()[0]), (std::vector<std::uint32_t>{0, 1, 2}));
}

TEST_F(OpenSrc, RefusesWhatIsNoFile) {
    EXPECT_EQ(refusalOf(folder.path()), SrcCode::NOT_A_FILE);
    EXPECT_EQ(refusalOf(folder / "none"), SrcCode::UNREADABLE);
    EXPECT_EQ(refusalOf("/dev/zero"), SrcCode::WRONG_SIGNATURE);
    EXPECT_EQ(refusalOf("/dev/null"), SrcCode::EMPTY_FILE);
    store("");
    EXPECT_EQ(refusalOf(path()), SrcCode::EMPTY_FILE);
}

TEST_F(OpenSrc, ReadsAPayloadBeyond4GiB) {
    // One triangle whose data lie behind a hole of 5 GiB.
    constexpr std::uint64_t HOLE = std::uint64_t(5) << 30;
    Editable far(triangleFile());
    far.replace("\"byteOffset\":0}", "\"byteOffset\":" + std::to_string(HOLE) + "}");
    far.replace("\"byteOffset\":6}", "\"byteOffset\":" + std::to_string(HOLE + 6) + "}");
    far.replace("\"byteOffset\":42}", "\"byteOffset\":" + std::to_string(HOLE + 42) + "}");
    {
        std::ofstream out(path(), std::ios::binary);
        out << assemble(far.header);
        out.seekp(static_cast<std::streamoff>(HOLE), std::ios::cur);
        out << far.data;
        ASSERT_TRUE(out);
    }
    const SrcFile file = openSrc(path());
    EXPECT_EQ(file.dataBytes(), HOLE + 78);
    EXPECT_EQ(decodeAttribute(file, *file.findAttribute(file.meshes()[0], "position")),
              (std::vector<float>{0, 0, 0, 1, 0, 0, 0, 1, 0}));
}

} // namespace
