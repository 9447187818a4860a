#include "ConversionTest.h"
#include "Models.h"

#include <support/Streams.h>

#include <gmock/gmock.h>

#include <cstring>
#include <filesystem>
#include <fstream>

namespace {

using namespace kel::tests;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;

class Convert : public ConversionTest {
protected:
    Convert() : ConversionTest({"--writer=container"}) {}
};

/// The floats of an attribute of a mesh, found as a reader finds them; empty when the mesh has no such
/// attribute.
std::vector<float> attribute(const SrcText& file, const std::string& mesh, const std::string& name) {
    const auto& meshEntry = file.json.get("meshes").get(mesh);
    if (!meshEntry.get("attributes").contains(name)) return {};
    const auto& view = file.json.get("accessors")
                           .get("attributeViews")
                           .get(meshEntry.get("attributes").get(name).get<std::string>());
    // Every buffer view of these files has one chunk, and chunks lie back to back in the order of their
    // numbers.
    const auto& chunks =
        file.json.get("bufferViews").get(view.get("bufferView").get<std::string>()).get("chunks");
    const auto& chunk = file.json.get("bufferChunks").get(chunks.get(0).get<std::string>());
    const auto offset = static_cast<std::size_t>(chunk.get("byteOffset").get<double>());
    const auto length = static_cast<std::size_t>(chunk.get("byteLength").get<double>());
    if (view.get("componentType").get<double>() != 5126) throw std::runtime_error("not floats");
    std::vector<float> values(length / sizeof(float));
    std::memcpy(values.data(), file.data.data() + offset, length);
    return values;
}

TEST_F(Convert, WritesTheMeshesOfAModel) {
    const SrcText file = converted({model("plate.obj", PLATE_OBJ)});
    EXPECT_EQ(file.at("meshes", "0", "meta", "name"), "\"plate\"");
    EXPECT_EQ(file.at("meshes", "0", "meta", "numOriginalTriangles"), "2");
    EXPECT_EQ(file.at("meshes", "0", "bboxSize").substr(0, 5), "[2,2,");
    EXPECT_EQ(attribute(file, "0", "position").size(), 12u);
}

TEST_F(Convert, ReportsCountsOnStandardErrorAndNothingOnStandardOutput) {
    const SrcText file = converted({model("plate.obj", PLATE_OBJ)});
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_THAT(result.err,
                HasSubstr("out.src: 1 mesh, 2 triangles, 4 vertices, " +
                          std::to_string(12 + file.header.size() + file.data.size()) + " bytes (default)\n"));
}

TEST_F(Convert, QuietSaysNothing) {
    converted({model("plate.obj", PLATE_OBJ), "--quiet"});
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_THAT(result.err, IsEmpty());
}

TEST_F(Convert, ListPrintsATableOfMeshesOnStandardOutput) {
    converted({model("two.gltf", gltf({{"left"}, {"right", true}})), "--list"});
    // Three vertices: 6 bytes of indices, 36 each of positions and normals, 24 of texture coordinates.
    EXPECT_EQ(result.out, "mesh   triangles  vertices  bytes\n"
                          "left           1         3     78\n"
                          "right          1         3    102\n");
}

TEST_F(Convert, ListedBytesAreThoseOfTheFile) {
    for (const char* preset : {"default", "CMP1"}) {
        const SrcText file =
            converted({model("two.gltf", gltf({{"only", true, true}})), "--list", "--preset", preset});
        EXPECT_THAT(result.out, HasSubstr("  " + std::to_string(file.data.size()) + "\n"));
    }
}

TEST_F(Convert, VerboseAddsTheListAndTheFormat) {
    converted({model("plate.obj", PLATE_OBJ), "-v"});
    EXPECT_THAT(result.out, HasSubstr("plate"));
    EXPECT_THAT(result.err, HasSubstr("plate.obj: Wavefront"));
}

TEST_F(Convert, NamesCannotSteerTheTerminal) {
    converted({model("evil.gltf", gltf({{"\x1b[2Jred\a"}})), "--list"});
    EXPECT_THAT(result.out, HasSubstr("\\x1b[2Jred\\x07"));
    EXPECT_THAT(result.out, Not(HasSubstr("\x1b")));
}

TEST_F(Convert, NamesAndPathsThatAreNotAsciiWork) {
    const std::string name = "g\xc3\xbcr\xc3\xbcn \xe6\xa8\xa1\xe5\x9e\x8b \xf0\x9f\x9a\x80";
    std::filesystem::create_directory(folder / name);
    const std::string input = writeFile(folder / (name + "/" + name + ".obj"), PLATE_OBJ);
    const std::string output = folder / (name + "/" + name + ".src");
    result = runCommand({"convert", input, "-o", output});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.err, HasSubstr(name + ".src: 1 mesh"));
    EXPECT_EQ(SrcText(contentOf(output)).at("meshes", "mesh0", "meta", "name"), "\"plate\"");
}

TEST_F(Convert, EqualInputGivesEqualBytes) {
    const std::string input = model("two.gltf", gltf({{"a", true}, {"b", false, true}}));
    ASSERT_EQ(runCommand({"convert", input, "-o", folder / "1.src"}).status, 0);
    ASSERT_EQ(runCommand({"convert", input, "-o", folder / "2.src"}).status, 0);
    EXPECT_EQ(contentOf(folder / "1.src"), contentOf(folder / "2.src"));
}

// ---- Presets --------------------------------------------------------------------------------------------

TEST_F(Convert, DefaultPresetStoresFloatsAsTheyAre) {
    const SrcText file = converted({model("far.gltf", gltf({{"far", false, false, false, 100.0f}}))});
    EXPECT_THAT(attribute(file, "0", "position"), ElementsAre(100, 0, 0, 101, 0, 0, 100, 1, 0));
    EXPECT_EQ(file.at("meshes", "0", "meta", "fit"), "");
}

TEST_F(Convert, Cmp1FitsAndSaysSo) {
    const SrcText file =
        converted({model("far.gltf", gltf({{"far", false, false, false, 100.0f}})), "--preset=CMP1"});
    EXPECT_EQ(file.at("accessors", "attributeViews", "attributeView0", "componentType"), "5123");
    EXPECT_NE(file.at("meshes", "0", "meta", "fit", "position", "offset"), "");
    EXPECT_NE(file.at("meshes", "0", "meta", "fit", "position", "scale"), "");
    EXPECT_THAT(result.err, HasSubstr("fitted 2 attributes of 1 mesh"));
    // Six indices' bytes, then the positions: x = 100 is the box's lower end, x = 101 its upper one.
    const auto code = [&](std::size_t vertex) {
        std::uint16_t value = 0;
        std::memcpy(&value, file.data.data() + 6 + vertex * 6, sizeof value);
        return value;
    };
    EXPECT_EQ(code(0), 0);
    EXPECT_EQ(code(1), 65535);
    EXPECT_EQ(code(2), 0);
}

TEST_F(Convert, NoFitFailsWithCountsWhenValuesWouldBeClamped) {
    // Outside -0.5 to 0.5 lie x of all three vertices and y of one; of the normals every z.
    const std::string input = model("far.gltf", gltf({{"far", false, false, false, 100.0f}}));
    result = runCommand({"convert", input, "-o", folder / "out.src", "--preset=CMP1", "--no-fit"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, HasSubstr("4 components of \"position\" in 1 mesh, first in \"far\" (mesh 0)"));
    EXPECT_THAT(result.err, HasSubstr("3 components of \"normal\""));
    EXPECT_THAT(result.err, HasSubstr("--allow-clamping"));
    EXPECT_THAT(folder.entries(), ElementsAre("far.gltf"));
}

TEST_F(Convert, AllowClampingWritesAndWarns) {
    const SrcText file = converted({model("far.gltf", gltf({{"far", false, false, false, 100.0f}})),
                                    "--preset=CMP1", "--no-fit", "--allow-clamping"});
    EXPECT_EQ(file.at("meshes", "0", "meta", "fit"), "");
    EXPECT_THAT(result.err, HasSubstr("warning: values were clamped"));
    EXPECT_THAT(result.err, HasSubstr("4 components of \"position\""));
}

TEST_F(Convert, NoFitOfTheDefaultPresetHasNothingToClamp) {
    converted({model("far.gltf", gltf({{"far", false, false, false, 100.0f}})), "--no-fit"});
    EXPECT_EQ(result.status, 0);
}

// ---- Points and lines -----------------------------------------------------------------------------------

TEST_F(Convert, APresetChoosesTheContainerWriter) {
    const std::string input = model("plate.obj", PLATE_OBJ);
    ASSERT_EQ(runCommand({"convert", input, "-o", folder / "1.src", "--preset=default"}).status, 0);
    ASSERT_EQ(runCommand({"convert", input, "-o", folder / "2.src", "--writer=container"}).status, 0);
    EXPECT_EQ(contentOf(folder / "1.src"), contentOf(folder / "2.src"));
}

TEST_F(Convert, MeshesOfPointsAndLinesAreRefusedByName) {
    const std::string input =
        model("mixed.gltf",
              gltf({{"plate"}, {"dots", false, false, false, 0, 0}, {"axes", false, false, false, 0, 1}}));
    result = runCommand({"convert", input, "-o", folder / "out.src", "--writer=container"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, HasSubstr("\"dots\" (mesh 1) of points"));
    EXPECT_THAT(result.err, HasSubstr("\"axes\" (mesh 2) of lines"));
    EXPECT_THAT(result.err, HasSubstr("--only-triangles"));
    EXPECT_THAT(folder.entries(), ElementsAre("mixed.gltf"));
}

TEST_F(Convert, OnlyTrianglesLeavesThemOutAndSaysHowMany) {
    const SrcText file = converted({model("mixed.gltf", gltf({{"dots", false, false, false, 0, 0},
                                                              {"plate"},
                                                              {"dots2", false, false, false, 0, 0},
                                                              {"axes", false, false, false, 0, 1}})),
                                    "--only-triangles"});
    EXPECT_EQ(file.json.get("meshes").get<picojson::object>().size(), 1u);
    EXPECT_EQ(file.at("meshes", "0", "meta", "name"), "\"plate\"");
    EXPECT_THAT(result.err, HasSubstr("dropped meshes of points: 2"));
    EXPECT_THAT(result.err, HasSubstr("dropped meshes of lines: 1"));
}

TEST_F(Convert, AModelWithoutAnyTriangleIsRefused) {
    const std::string input = model("dots.gltf", gltf({{"dots", false, false, false, 0, 0}}));
    result = runCommand({"convert", input, "-o", folder / "out.src", "--only-triangles"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, HasSubstr("no mesh of triangles"));
}

// ---- Attributes -----------------------------------------------------------------------------------------

TEST_F(Convert, AttributesWithoutAPlaceInThePresetAreReportedAndLeftOut) {
    CapturedStreams standardStreams;
    const SrcText file =
        converted({model("uv2.gltf", gltf({{"a", true, false, true}, {"b", true, false, true}}))});
    EXPECT_EQ(file.at("meshes", "0", "attributes", "texcoord1"), "");
    EXPECT_NE(file.at("meshes", "0", "attributes", "texcoord"), "");
    EXPECT_THAT(result.err, HasSubstr("dropped \"texcoord1\" attributes: 2"));
    EXPECT_THAT(result.err, Not(HasSubstr("Cannot create SRC attribute view")));
    EXPECT_THAT(standardStreams.out(), IsEmpty());
    EXPECT_THAT(standardStreams.err(), IsEmpty());
}

TEST_F(Convert, MeshesWithFewerAttributesComeFirst) {
    const SrcText file = converted(
        {model("order.gltf", gltf({{"textured", true}, {"plain"}, {"textured2", true, false, false, 5}}))});
    EXPECT_EQ(file.at("meshes", "0", "meta", "name"), "\"plain\"");
    EXPECT_EQ(file.at("meshes", "0", "attributes", "texcoord"), "");
    EXPECT_EQ(file.at("meshes", "1", "meta", "name"), "\"textured\"");
    EXPECT_EQ(file.at("meshes", "2", "meta", "name"), "\"textured2\"");
    EXPECT_EQ(attribute(file, "1", "position")[0], 0.0f);
    EXPECT_EQ(attribute(file, "2", "position")[0], 5.0f);
    EXPECT_THAT(result.err, HasSubstr("another order"));
}

TEST_F(Convert, OrderStaysWhereNothingWouldBeMixedUp) {
    const SrcText file = converted({model("order.gltf", gltf({{"plain"}, {"textured", true}}))});
    EXPECT_EQ(file.at("meshes", "0", "meta", "name"), "\"plain\"");
    EXPECT_THAT(result.err, Not(HasSubstr("order")));
}

TEST_F(Convert, WhereNoOrderDoesAttributesAreFilledInNeutrally) {
    const SrcText file =
        converted({model("mixed.gltf", gltf({{"painted", false, true}, {"textured", true}}))});
    // {color, normal, position} and {normal, position, texcoord}: the former comes first by its names.
    EXPECT_EQ(file.at("meshes", "0", "meta", "name"), "\"painted\"");
    EXPECT_THAT(attribute(file, "0", "color"),
                ElementsAre(.25f, .5f, .75f, .25f, .5f, .75f, .25f, .5f, .75f));
    EXPECT_THAT(attribute(file, "0", "texcoord"), IsEmpty());
    EXPECT_THAT(attribute(file, "1", "color"), ElementsAre(1, 1, 1, 1, 1, 1, 1, 1, 1));
    // glTF counts v from the top, SRC from the bottom.
    EXPECT_THAT(attribute(file, "1", "texcoord"), ElementsAre(0, 1, 1, 1, 0, 0));
    EXPECT_EQ(file.at("meshes", "1", "meta", "filled"), "[\"color\"]");
    EXPECT_EQ(file.at("meshes", "0", "meta", "filled"), "");
    EXPECT_THAT(result.err, HasSubstr("1 mesh got a neutral \"color\""));
}

TEST_F(Convert, TransparencyIsReportedAsDropped) {
    converted({model("glass.gltf", gltf({{"a"}, {"b"}}, "{\"alphaMode\":\"BLEND\",\"pbrMetallicRoughness\":"
                                                        "{\"baseColorFactor\":[1,0,0,0.25]}}"))});
    EXPECT_THAT(result.err, HasSubstr("dropped transparencies: 1"));
}

// ---- The output -----------------------------------------------------------------------------------------

TEST_F(Convert, ReplacesAnExistingFileAndKeepsItsPermissions) {
    const std::string old = writeFile(folder / "out.src", "old");
    std::filesystem::permissions(old, std::filesystem::perms(0640));
    converted({model("plate.obj", PLATE_OBJ)});
    EXPECT_EQ(std::filesystem::status(old).permissions(), std::filesystem::perms(0640));
    EXPECT_THAT(folder.entries(), UnorderedElementsAre("plate.obj", "out.src"));
}

TEST_F(Convert, OutputEqualToInputIsRefusedHoweverItIsNamed) {
    const std::string input = model("plate.obj", PLATE_OBJ);
    std::filesystem::create_symlink(input, folder / "soft.src");
    std::filesystem::create_hard_link(input, folder / "hard.src");
    std::filesystem::create_directory(folder / "sub");
    for (const std::string& output :
         {input, folder / "soft.src", folder / "hard.src", folder / "sub/../plate.obj"}) {
        result = runCommand({"convert", input, "-o", output});
        EXPECT_EQ(result.status, 4) << output;
        EXPECT_THAT(result.err, HasSubstr("is the model itself"));
        EXPECT_EQ(contentOf(input), PLATE_OBJ);
    }
}

TEST_F(Convert, MissingFolderIsFoundBeforeTheModelIsRead) {
    // The model does not exist either, so what is reported tells what was looked at first.
    result = runCommand({"convert", folder / "no.obj", "-o", folder / "missing/out.src"});
    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.err, HasSubstr("missing"));
    EXPECT_THAT(result.err, HasSubstr("Make the folder first"));
    EXPECT_THAT(folder.entries(), IsEmpty());
}

TEST_F(Convert, AFolderAsOutputIsRefused) {
    result = runCommand({"convert", model("plate.obj", PLATE_OBJ), "-o", folder.path().string()});
    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.err, HasSubstr("is a folder"));
}

TEST_F(Convert, AFailedConversionLeavesTheOldFile) {
    writeFile(folder / "out.src", "old");
    result = runCommand({"convert", model("broken.obj", ""), "-o", folder / "out.src"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(contentOf(folder / "out.src"), "old");
    EXPECT_THAT(folder.entries(), UnorderedElementsAre("broken.obj", "out.src"));
}

} // namespace
