// Every kind of bad input, end to end: status 3, one message with file, fault and remedy, nothing left
// behind.

#include "CommandRun.h"
#include "Models.h"

#include <support/SrcText.h>

#include <gmock/gmock.h>

#include <cstdint>
#include <filesystem>
#include <string>

namespace {

using namespace kel::tests;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class BadInput : public testing::Test {
protected:
    void expectRefused(const std::string& name, const std::string& content,
                       const testing::Matcher<std::string>& message) {
        const std::string file = writeFile(folder / name, content);
        const CommandResult result = runCommand({"convert", file, "-o", folder / "out.src"});
        EXPECT_EQ(result.status, 3);
        EXPECT_THAT(result.out, IsEmpty());
        EXPECT_THAT(result.err, testing::StartsWith("kelsrc: error: " + file + ": "));
        EXPECT_THAT(result.err, message);
        EXPECT_THAT(folder.entries(), ElementsAre(name));
    }

    TempFolder folder;
};

std::string littleEndian(std::uint32_t value) {
    std::string bytes;
    for (int i = 0; i < 4; ++i)
        bytes += static_cast<char>(value >> (8 * i) & 255);
    return bytes;
}

std::string glb(std::string json) {
    while (json.size() % 4 != 0)
        json += ' ';
    const auto size = static_cast<std::uint32_t>(json.size());
    return "glTF" + littleEndian(2) + littleEndian(20 + size) + littleEndian(size) + "JSON" + json;
}

TEST_F(BadInput, MissingFile) {
    const CommandResult result = runCommand({"convert", folder / "no.obj", "-o", folder / "out.src"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, HasSubstr("no.obj"));
    EXPECT_THAT(folder.entries(), IsEmpty());
}

TEST_F(BadInput, Folder) {
    const CommandResult result = runCommand({"convert", folder.path().string(), "-o", folder / "out.src"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(folder.entries(), IsEmpty());
}

TEST_F(BadInput, ZeroByteFile) {
    expectRefused("empty.obj", "", HasSubstr("is empty"));
}

TEST_F(BadInput, TruncatedGlb) {
    const std::string whole = glb(gltf({{"a"}}));
    expectRefused("cut.glb", whole.substr(0, whole.size() / 2),
                  HasSubstr("announces " + std::to_string(whole.size()) + " bytes, the file has " +
                            std::to_string(whole.size() / 2) + " (byte 8)"));
}

TEST_F(BadInput, ContentOfAnotherKindThanTheExtension) {
    expectRefused("image.glb", "\x89PNG\r\n\x1a\n and so on", HasSubstr("looks like a PNG image"));
}

TEST_F(BadInput, BrokenJson) {
    expectRefused("broken.gltf", gltf({{"a"}}).substr(0, 100), HasSubstr("line 1"));
}

TEST_F(BadInput, SceneWithoutAMesh) {
    expectRefused("none.gltf",
                  "{\"asset\":{\"version\":\"2.0\"},\"scene\":0,\"scenes\":[{\"nodes\":[0]}],\"nodes\":[{"
                  "\"name\":\"n\"}]}",
                  HasSubstr("no mesh"));
}

TEST_F(BadInput, GeometryWithoutExtent) {
    expectRefused("dot.obj", "v 1 1 1\nv 1 1 1\nv 1 1 1\nf 1 2 3\n", HasSubstr("at one place"));
}

TEST_F(BadInput, NothingButDegenerateTriangles) {
    expectRefused("line.obj", "v 0 0 0\nv 1 0 0\nv 2 0 0\nf 1 2 3\n", HasSubstr("area"));
}

TEST_F(BadInput, NonFinitePositionsTellCountMeshAndWhatToDo) {
    expectRefused(
        "nan.obj",
        "o good\nv 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\no bad\nv 0 0 1\nv nan 0 1\nv 0 1 1\nf 4 5 6\n",
        AllOf(HasSubstr("1 vertex position"), HasSubstr("\"bad\""), HasSubstr("--on-bad-geometry=drop")));
}

TEST_F(BadInput, DropRemovesWhatUsesNonFinitePositionsAndSaysHowMany) {
    const std::string file = writeFile(
        folder / "nan.obj",
        "o good\nv 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\no bad\nv 0 0 1\nv nan 0 1\nv 0 1 1\nf 4 5 6\n");
    const CommandResult result =
        runCommand({"convert", file, "-o", folder / "out.src", "--on-bad-geometry=drop"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.err, HasSubstr("1 mesh, 1 triangle,"));
    EXPECT_THAT(result.err, testing::ContainsRegex("dropped primitives .*: 1\n"));
    EXPECT_EQ(SrcText(contentOf(folder / "out.src")).at("meshes", "mesh0", "meta", "name"), "\"good\"");
}

TEST_F(BadInput, IndexOutOfRange) {
    expectRefused("far.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\nf 1 2 9\n",
                  HasSubstr("vertex 9, the file has 3 (line 5)"));
}

TEST_F(BadInput, IndexOutOfRangeInAFaceThatIsDroppedSilently) {
    expectRefused(
        "far.ply",
        "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\nproperty float z\n"
        "element face 2\nproperty list uchar int vertex_indices\nend_header\n"
        "0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n3 0 1 9\n",
        HasSubstr("beyond"));
}

TEST_F(BadInput, ExtentThatOverflowsAFloat) {
    expectRefused("huge.obj", "v -3e38 0 0\nv 3e38 0 0\nv 0 3e38 0\nf 1 2 3\n",
                  HasSubstr("does not fit a 32-bit float"));
}

TEST_F(BadInput, HeaderThatClaimsBillionsOfElements) {
    expectRefused(
        "claims.ply",
        "ply\nformat ascii 1.0\nelement vertex 4000000000\nproperty float x\nproperty float y\nproperty "
        "float z\n"
        "element face 1\nproperty list uchar int vertex_indices\nend_header\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n",
        HasSubstr("4000000000"));
    std::filesystem::remove(folder / "claims.ply");
    expectRefused("claims.stl", std::string(80, ' ') + littleEndian(4000000000u) + std::string(50, '\0'),
                  HasSubstr("4000000000"));
}

} // namespace
