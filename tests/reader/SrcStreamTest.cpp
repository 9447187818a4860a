#include "Files.h"

#include <kel/src/SrcReader.h>

#include <gtest/gtest.h>

#include <sstream>

namespace {

using namespace kel::src;
using namespace reader_fixture;

TEST(SrcStream, HandsOutEveryMeshAsReadSrcDoes) {
    const auto input = fixture::inputOf(
        {fixture::unitSquare(), fixture::sphere(10, 5), fixture::tetrahedron(), fixture::unitSquare()});
    for (const Mode mode : ALL_MODES) {
        const std::string text = write(input, mode);
        const SrcFile whole = read(text);
        std::istringstream in(text);
        SrcStream stream(in);
        std::size_t count = 0;
        while (const SrcMesh* mesh = stream.next()) {
            EXPECT_EQ(mesh->id, whole.meshes()[count].id);
            const DecodedMesh a = decodeMesh(stream.file(), *mesh),
                              b = decodeMesh(whole, whole.meshes()[count]);
            EXPECT_EQ(a.indices, b.indices);
            ASSERT_EQ(a.attributes.size(), b.attributes.size());
            for (std::size_t i = 0; i < a.attributes.size(); ++i)
                EXPECT_EQ(a.attributes[i].values, b.attributes[i].values);
            ++count;
        }
        EXPECT_EQ(count, 4u);
        EXPECT_EQ(stream.next(), nullptr);
    }
}

TEST(SrcStream, HoldsOneMeshAtATime) {
    std::vector<kel::mesh::MeshPtr> meshes;
    for (int i = 0; i < 50; ++i)
        meshes.push_back(fixture::sphere(10, 10));
    const std::string text = write(fixture::inputOf(meshes), Mode::DEFAULT);
    const std::size_t perMesh = SrcText(text).data.size() / 50;
    std::istringstream in(text);
    SrcStream stream(in);
    while (stream.next())
        EXPECT_LE(stream.heldBytes(), perMesh);
    EXPECT_EQ(stream.heldBytes(), 0u);
}

TEST(SrcStream, KeepsBytesThatALaterMeshStillNames) {
    const std::string text =
        write(fixture::inputOf({fixture::unitSquare(), fixture::tetrahedron()}), Mode::DEFAULT);
    std::istringstream in(text);
    SrcStream stream(in);
    stream.next();
    const SrcMesh* second = stream.next();
    DecodeOptions all;
    all.ownAttributesOnly = false;
    EXPECT_EQ(decodeMesh(stream.file(), *second, all).find("texcoord")->values.size(), 8u);
}

TEST(SrcStream, SaysWhichChunkIsMissing) {
    const std::string text = triangleFile();
    std::istringstream in(text.substr(0, text.size() - 1));
    SrcStream stream(in);
    try {
        stream.next();
        FAIL();
    } catch (const SrcError& error) {
        EXPECT_EQ(error.code(), SrcCode::CHUNK_PAST_END);
        EXPECT_EQ(error.path(), "/bufferChunks/chunk2");
    }
}

TEST(SrcStream, RefusesChunksThatShareBytes) {
    const std::string text =
        Editable(triangleFile()).replace("\"byteOffset\":42}", "\"byteOffset\":41}").file();
    std::istringstream in(text);
    try {
        SrcStream stream(in);
        FAIL();
    } catch (const SrcError& error) {
        EXPECT_EQ(error.code(), SrcCode::STREAM_OVERLAP);
    }
}

TEST(SrcStream, PassesOverBytesThatNoMeshUses) {
    Editable gap(triangleFile());
    gap.replace("\"byteOffset\":42}", "\"byteOffset\":10042}");
    gap.data.insert(42, 10000, 'x');
    std::istringstream in(gap.file());
    SrcStream stream(in);
    const SrcMesh* mesh = stream.next();
    EXPECT_EQ(decodeMesh(stream.file(), *mesh).find("normal")->values,
              (std::vector<float>{0, 0, 1, 0, 0, 1, 0, 0, 1}));
}

} // namespace
