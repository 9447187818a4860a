// `kelsrc convert` with the public writer: modes, splitting, units and axes, standard input and output.

#include "ConversionTest.h"
#include "Models.h"

#include <gmock/gmock.h>

#include <cmath>
#include <cstring>
#include <sstream>

namespace {

using namespace kel::tests;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class PublicConvert : public ConversionTest {};

std::vector<std::string> attributesOf(const SrcText& file, const std::string& mesh) {
    std::vector<std::string> names;
    for (const auto& [name, view] :
         file.json.get("meshes").get(mesh).get("attributes").get<picojson::object>())
        names.push_back(name);
    return names;
}

double numberAt(const picojson::value& array, std::size_t i) {
    return array.get(i).get<double>();
}

/// The positions of a mesh as a reader decodes them: value = (stored + offset) / scale.
std::vector<double> positions(const SrcText& file, const std::string& mesh) {
    const auto& attributes = file.json.get("meshes").get(mesh).get("attributes");
    const bool packed = !attributes.contains("position");
    const std::string viewId = attributes.get(packed ? "pos3us_nor2ub_oct" : "position").get<std::string>();
    const auto& view = file.json.get("accessors").get("attributeViews").get(viewId);
    const auto& chunks =
        file.json.get("bufferViews").get(view.get("bufferView").get<std::string>()).get("chunks");
    const auto& chunk = file.json.get("bufferChunks").get(chunks.get(0).get<std::string>());
    const auto start = static_cast<std::size_t>(chunk.get("byteOffset").get<double>());
    const auto stride = static_cast<std::size_t>(view.get("byteStride").get<double>());
    const bool floats = view.get("componentType").get<double>() == 5126;
    std::vector<double> values;
    for (std::size_t i = 0; i < static_cast<std::size_t>(view.get("count").get<double>()); ++i) {
        for (std::size_t c = 0; c < 3; ++c) {
            const char* at = file.data.data() + start + i * stride + c * (floats ? 4 : 2);
            if (floats) {
                float value;
                std::memcpy(&value, at, sizeof value);
                values.push_back(static_cast<double>(value));
            } else {
                std::uint16_t value;
                std::memcpy(&value, at, sizeof value);
                values.push_back((value + numberAt(view.get("decodeOffset"), c)) /
                                 numberAt(view.get("decodeScale"), c));
            }
        }
    }
    return values;
}

/// A triangle from (0, 0, 0) over (10, 0, 0) to (0, 20, 30) without normals of its own.
const char* const TRIANGLE_OBJ = "o tri\nv 0 0 0\nv 10 0 0\nv 0 20 30\nf 1 2 3\n";

// ---- Modes ----------------------------------------------------------------------------------------------

TEST_F(PublicConvert, IsTheDefaultAndTakesTheSmallestModeThatLosesNothing) {
    const SrcText file = converted({model("plate.obj", PLATE_OBJ)});
    EXPECT_THAT(attributesOf(file, "mesh0"), ElementsAre("pos3us_nor2ub_oct"));
    EXPECT_THAT(result.err, HasSubstr(" bytes (position-normal)\n"));
    EXPECT_THAT(result.err, HasSubstr("largest error: positions "));
}

TEST_F(PublicConvert, AutoKeepsAttributesThatASmallerModeWouldLeaveOut) {
    const SrcText file = converted({model("uv.gltf", gltf({{"a", true}}))});
    EXPECT_THAT(attributesOf(file, "mesh0"), ElementsAre("normal", "position", "texcoord"));
    EXPECT_THAT(result.err, HasSubstr(" bytes (position)\n"));
    EXPECT_THAT(result.err, HasSubstr("\"texcoord\""));
}

TEST_F(PublicConvert, AutoStaysWithinTheErrorAskedFor) {
    // Ten units in 65,535 steps: no position can be off by less than about 1e-5 everywhere.
    const std::string input =
        model("tri.obj", "v 0 0 0\nv 10 0 0\nv 0 3.3333 7.7777\nv 1.2345 5.6789 0.9876\nf 1 2 3\nf 1 2 4\n");
    converted({input, "--max-error=1e-9"});
    EXPECT_THAT(result.err, HasSubstr("(uncompressed)"));
    converted({input, "--max-error=0.01"});
    EXPECT_THAT(result.err, HasSubstr("(position-normal)"));
    EXPECT_THAT(result.err, HasSubstr("largest error: positions "));
}

TEST_F(PublicConvert, ModesAreTakenAsAskedFor) {
    const std::string input = model("plate.obj", PLATE_OBJ);
    EXPECT_THAT(attributesOf(converted({input, "--mode=uncompressed"}), "mesh0"),
                ElementsAre("normal", "position"));
    EXPECT_THAT(attributesOf(converted({input, "--mode=position"}), "mesh0"),
                ElementsAre("normal", "position"));
    EXPECT_THAT(attributesOf(converted({input, "--mode=position-normal"}), "mesh0"),
                ElementsAre("pos3us_nor2ub_oct"));
}

TEST_F(PublicConvert, LosslessIsUncompressed) {
    const std::string input = model("plate.obj", PLATE_OBJ);
    converted({input, "--mode=uncompressed"});
    const std::string expected = contentOf(folder / "out.src");
    converted({input, "--lossless"});
    EXPECT_THAT(result.err, HasSubstr("positions and normals are exact"));
    EXPECT_EQ(contentOf(folder / "out.src"), expected);
}

TEST_F(PublicConvert, AModeThatLeavesAttributesOutSaysSo) {
    converted({model("uv.gltf", gltf({{"a", true}, {"b", true, true}})), "--mode=position-normal"});
    EXPECT_THAT(result.err, HasSubstr("dropped \"texcoord\" attributes: 2"));
    EXPECT_THAT(result.err, HasSubstr("dropped \"color\" attributes: 1"));
}

TEST_F(PublicConvert, PositionsComeBackInEveryMode) {
    const std::string input = model("tri.obj", TRIANGLE_OBJ);
    for (const char* mode : {"uncompressed", "position", "position-normal"}) {
        const auto values = positions(converted({input, std::string("--mode=") + mode}), "mesh0");
        ASSERT_EQ(values.size(), 9u) << mode;
        const double expected[] = {0, 0, 0, 10, 0, 0, 0, 20, 30};
        for (std::size_t i = 0; i < 9; ++i)
            EXPECT_NEAR(values[i], expected[i], 30.0 / 65535) << mode << ' ' << i;
    }
}

TEST_F(PublicConvert, PointsAndLinesAreWritten) {
    const SrcText file = converted(
        {model("mixed.gltf",
               gltf({{"plate"}, {"dots", false, false, false, 0, 0}, {"axes", false, false, false, 0, 1}})),
         "--list"});
    EXPECT_EQ(file.at("meshes", "mesh0", "primitive"), "4");
    EXPECT_EQ(file.at("meshes", "mesh1", "primitive"), "0");
    EXPECT_EQ(file.at("meshes", "mesh2", "primitive"), "1");
    EXPECT_THAT(result.err, HasSubstr("3 meshes, 1 triangle, 1 line, 3 points"));
    EXPECT_THAT(result.out, testing::StartsWith("mesh   triangles  lines  points  vertices  bytes"));
}

TEST_F(PublicConvert, OnlyTrianglesLeavesOthersOutHereToo) {
    const SrcText file = converted(
        {model("mixed.gltf", gltf({{"plate"}, {"dots", false, false, false, 0, 0}})), "--only-triangles"});
    EXPECT_EQ(file.json.get("meshes").get<picojson::object>().size(), 1u);
    EXPECT_THAT(result.err, HasSubstr("dropped meshes of points: 1"));
}

TEST_F(PublicConvert, ListedBytesAreThoseOfTheFile) {
    const std::string input = model("one.gltf", gltf({{"only", true, true}}));
    for (const char* mode : {"uncompressed", "position", "position-normal"}) {
        const SrcText file = converted({input, "--list", std::string("--mode=") + mode});
        EXPECT_THAT(result.out, HasSubstr("  " + std::to_string(file.data.size()))) << mode;
    }
}

// ---- Large meshes ---------------------------------------------------------------------------------------

/// A sheet of (columns + 1) * (rows + 1) vertices at whole numbers.
std::string sheet(int columns, int rows) {
    std::ostringstream obj;
    for (int y = 0; y <= rows; ++y) {
        for (int x = 0; x <= columns; ++x)
            obj << "v " << x << ' ' << y << " 0\n";
    }
    for (int y = 0; y < rows; ++y) {
        for (int x = 0; x < columns; ++x) {
            const int a = y * (columns + 1) + x + 1, d = a + columns + 1;
            obj << "f " << a << ' ' << a + 1 << ' ' << d + 1 << "\nf " << a << ' ' << d + 1 << ' ' << d
                << '\n';
        }
    }
    return obj.str();
}

TEST_F(PublicConvert, MeshesOverTheLimitOfShortIndicesAreCutAndTheReportSaysSo) {
    const SrcText file = converted({model("sheet.obj", sheet(299, 299))}); // 90,000 vertices
    EXPECT_THAT(result.err, HasSubstr("cut 1 mesh of more than 65535 vertices into 2 parts"));
    EXPECT_THAT(result.err, HasSubstr("2 meshes, 178802 triangles"));
    EXPECT_EQ(file.at("meshes", "mesh0", "meta", "part"), "0");
    EXPECT_EQ(file.at("meshes", "mesh1", "meta", "part"), "1");
    EXPECT_EQ(file.at("meshes", "mesh1", "meta", "parts"), "2");
}

TEST_F(PublicConvert, OptimizeKeepsTheTriangles) {
    const std::string input = model("sheet.obj", sheet(20, 20));
    const SrcText file = converted({input, "--optimize"});
    EXPECT_EQ(file.at("meshes", "mesh0", "meta", "numOriginalTriangles"), "800");
    // That of the vertices as the writer gets them, in the middles of their codes' bins.
    EXPECT_NEAR(std::stod(file.at("meshes", "mesh0", "meta", "surfaceArea")), 400.0, 400.0 / 65535.0);
    EXPECT_THAT(result.err, HasSubstr("reordered 1 mesh for GPUs"));
    const std::string optimized = contentOf(folder / "out.src");
    converted({input});
    EXPECT_NE(contentOf(folder / "out.src"), optimized);
}

// ---- Units, axes, scale ---------------------------------------------------------------------------------

TEST_F(PublicConvert, ScaleMultipliesPositionsAndIsRecorded) {
    const SrcText file = converted({model("tri.obj", TRIANGLE_OBJ), "--scale=0.5", "--lossless"});
    EXPECT_THAT(positions(file, "mesh0"), ElementsAre(0, 0, 0, 5, 0, 0, 0, 10, 15));
    EXPECT_EQ(file.at("meshes", "mesh0", "meta", "transform", "scale"), "0.5");
}

TEST_F(PublicConvert, UnitsScaleFromWhatTheModelStates) {
    // glTF is in metres.
    const SrcText file = converted({model("m.gltf", gltf({{"a"}})), "--units=mm", "--lossless"});
    EXPECT_THAT(positions(file, "mesh0"), ElementsAre(0, 0, 0, 1000, 0, 0, 0, 1000, 0));
    EXPECT_EQ(file.at("meshes", "mesh0", "meta", "source", "unit"), "0.001");
    EXPECT_THAT(result.err, Not(HasSubstr("states no unit")));
}

TEST_F(PublicConvert, UnitsOfAModelThatStatesNoneCanBeGiven) {
    const std::string input = model("tri.obj", TRIANGLE_OBJ);
    EXPECT_THAT(positions(converted({input, "--units=cm:m", "--scale=10", "--lossless"}), "mesh0"),
                ElementsAre(0, 0, 0, 1, 0, 0, 0, 2, 3));
    converted({input, "--units=cm"});
    EXPECT_THAT(result.err, HasSubstr("states no unit; its numbers are taken as metres"));
}

TEST_F(PublicConvert, UpTurnsPositionsAndNormals) {
    // Up from y to z: (x, y, z) becomes (x, -z, y), for the plate's normals, too.
    const SrcText file = converted({model("plate.obj", PLATE_OBJ), "--up=y:z", "--lossless"});
    EXPECT_THAT(positions(file, "mesh0"), ElementsAre(0, 0, 0, 2, 0, 0, 2, 0, 2, 0, 0, 2));
    EXPECT_EQ(file.at("meshes", "mesh0", "meta", "source", "upAxis"), "\"Z\"");
    float normal[3];
    std::memcpy(normal, file.data.data() + 12 + 48, sizeof normal); // behind six indices and four positions
    EXPECT_THAT(normal, ElementsAre(0, -1, 0));
}

TEST_F(PublicConvert, NothingIsRecordedWhereNothingIsChanged) {
    const SrcText file = converted({model("plate.obj", PLATE_OBJ)});
    EXPECT_EQ(file.at("meshes", "mesh0", "meta", "transform"), "");
}

TEST_F(PublicConvert, UnknownUnitsAxesAndFactorsAreUsageErrors) {
    const std::string input = model("plate.obj", PLATE_OBJ);
    for (const char* option : {"--units=parsec", "--units=m:", "--up=w", "--scale=0", "--scale=-1",
                               "--scale=nan", "--scale=x", "--max-error=-1", "--mode=best", "-j-1"}) {
        EXPECT_EQ(runCommand({"convert", input, "-o", folder / "out.src", option}).status, 2) << option;
    }
    EXPECT_THAT(folder.entries(), ElementsAre("plate.obj"));
}

TEST_F(PublicConvert, OptionsOfTheOtherWriterAreUsageErrors) {
    const std::string input = model("plate.obj", PLATE_OBJ);
    const std::vector<std::vector<std::string>> wrong{
        {"--writer=public", "--preset=CMP1"}, {"--writer=container", "--mode=position"},
        {"--preset=default", "--lossless"},   {"--preset=default", "--max-error=1"},
        {"--lossless", "--mode=position"},    {"--max-error=1", "--mode=position"}};
    for (auto args : wrong) {
        args.insert(args.end(), {"convert", input, "-o", folder / "out.src"});
        std::rotate(args.begin(), args.end() - 4, args.end());
        EXPECT_EQ(runCommand(args).status, 2) << args[4] << ' ' << args[5];
    }
}

// ---- Standard input and output --------------------------------------------------------------------------

CommandResult runWithInput(const std::vector<std::string>& args, const std::string& input) {
    std::istringstream in(input);
    std::ostringstream out, err;
    CommandResult result;
    result.status = kelsrc::cli::run(args, in, out, err);
    result.out = out.str();
    result.err = err.str();
    return result;
}

TEST_F(PublicConvert, ReadsStandardInput) {
    result = runWithInput({"convert", "-", "-o", folder / "out.src"}, gltf({{"a"}}));
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(SrcText(contentOf(folder / "out.src")).at("meshes", "mesh0", "meta", "name"), "\"a\"");
}

TEST_F(PublicConvert, WritesStandardOutputAndNothingElseThere) {
    const std::string input = model("plate.obj", PLATE_OBJ);
    result = runCommand({"convert", input, "-o", "-", "-v"});
    ASSERT_EQ(result.status, 0) << result.err;
    converted({input});
    EXPECT_TRUE(runCommand({"convert", input, "-o", "-"}).out == contentOf(folder / "out.src"));
}

TEST_F(PublicConvert, EmptyStandardInputIsInvalidInput) {
    result = runWithInput({"convert", "-", "-o", folder / "out.src"}, "");
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, HasSubstr("standard input"));
    EXPECT_THAT(folder.entries(), IsEmpty());
}

TEST_F(PublicConvert, AFailedStandardOutputIsAnError) {
    const std::string input = model("plate.obj", PLATE_OBJ);
    std::istringstream in;
    std::ostringstream err;
    std::ofstream full("/dev/full", std::ios::binary);
    EXPECT_EQ(kelsrc::cli::run({"convert", input, "-o", "-"}, in, full, err), 4);
}

TEST_F(PublicConvert, StandardOutputCannotHoldTheModelAndAReport) {
    const std::string input = model("plate.obj", PLATE_OBJ);
    EXPECT_EQ(runCommand({"convert", input, "-o", "-", "--json"}).status, 2);
    EXPECT_EQ(runCommand({"convert", input, "-o", "-", "--list"}).status, 2);
}

} // namespace
