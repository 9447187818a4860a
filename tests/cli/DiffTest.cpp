// "diff" on models whose differences are known.

#include "CommandRun.h"
#include "Models.h"

#include <reader/Files.h>

#include <gmock/gmock.h>
#include <picojson.h>

#include <cmath>

namespace {

using namespace kel::tests;
using reader_fixture::Mode;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class Diff : public testing::Test {
protected:
    std::string model(const std::string& name, const std::string& content) {
        return writeFile(folder / name, content);
    }

    std::string converted(const std::string& source, const std::string& preset) {
        const std::string output = folder / "converted.src";
        const CommandResult result = runCommand({"convert", source, "-o", output, "--preset", preset});
        if (result.status != 0) throw std::runtime_error(result.err);
        return output;
    }

    static picojson::value diff(const std::string& a, const std::string& b,
                                const std::vector<std::string>& options = {}, int status = 0) {
        std::vector<std::string> args{"diff", "--json", a, b};
        args.insert(args.end(), options.begin(), options.end());
        const CommandResult result = runCommand(args);
        EXPECT_EQ(result.status, status) << result.err;
        picojson::value json;
        const std::string error = picojson::parse(json, result.out);
        if (!error.empty()) throw std::runtime_error(error);
        return json;
    }

    /// The kinds of the differences, each once, in order.
    static std::vector<std::string> kinds(const picojson::value& report) {
        std::vector<std::string> found;
        for (const auto& difference : report.get("differences").get<picojson::array>()) {
            const std::string kind = difference.get("kind").get<std::string>();
            if (found.empty() || found.back() != kind) found.push_back(kind);
        }
        return found;
    }

    static double number(const picojson::value& json, const char* key) { return json.get(key).get<double>(); }

    static std::vector<std::string> texts(const picojson::value& list) {
        std::vector<std::string> result;
        for (const auto& text : list.get<picojson::array>())
            result.push_back(text.get<std::string>());
        return result;
    }

    /// A square of 2 units with the corner (2, 2) moved along z, whose triangles stand in the order given.
    static std::string square(double z, const std::string& faces = "f 1 2 3\nf 1 3 4\n") {
        return "o plate\nv 0 0 0\nv 2 0 0\nv 2 2 " + std::to_string(z) + "\nv 0 2 0\n" + faces;
    }

    TempFolder folder;
};

TEST_F(Diff, FileAndItselfAreEqual) {
    const std::string file = model("plate.obj", PLATE_OBJ);
    const auto report = diff(file, file, {"--max-error", "0"});
    EXPECT_EQ(number(report, "maxDistance"), 0);
    EXPECT_EQ(number(report, "maxNormalDegrees"), 0);
    EXPECT_EQ(number(report, "compared"), 1);
    for (const char* list : {"onlyA", "onlyB", "attributes", "materials", "metadata"})
        EXPECT_THAT(report.get(list).get<picojson::array>(), IsEmpty()) << list;
}

TEST_F(Diff, MovedVertexIsMeasured) {
    const auto report = diff(model("a.obj", square(0)), model("b.obj", square(0.03)), {"--meshes"}, 1);
    EXPECT_NEAR(number(report, "maxDistance"), 0.03, 1e-6);
    // Two of six corners moved.
    EXPECT_NEAR(number(report, "rmsDistance"), 0.03 * std::sqrt(2.0 / 6), 1e-6);
    EXPECT_EQ(report.get("meshes").get(0).get("compared").get<std::string>(), "order");
}

TEST_F(Diff, MaxErrorDecidesTheStatus) {
    const std::string a = model("a.obj", square(0)), b = model("b.obj", square(0.03));
    // The normals made for the moved vertex lean by a degree.
    EXPECT_TRUE(
        diff(a, b, {"--max-error", "0.031", "--max-normal", "2"}, 0).get("withinMaxError").get<bool>());
    EXPECT_FALSE(
        diff(a, b, {"--max-error", "0.029", "--max-normal", "2"}, 1).get("withinMaxError").get<bool>());
    EXPECT_THAT(kinds(diff(a, b, {"--max-error", "0.031"}, 1)), ElementsAre("normals"));
    EXPECT_EQ(runCommand({"diff", a, b}).status, 1);
    EXPECT_EQ(runCommand({"diff", a, b, "--max-error", "-1"}).status, 2);
}

TEST_F(Diff, OtherOrderOfTrianglesAndCornersIsNoDifference) {
    const std::string a = model("a.obj", square(1));
    for (const char* faces : {"f 1 3 4\nf 1 2 3\n", "f 2 3 1\nf 4 1 3\n"}) {
        const auto report = diff(a, model("b.obj", square(1, faces)), {"--meshes", "--max-error", "0"});
        EXPECT_EQ(number(report, "maxDistance"), 0) << faces;
    }
}

TEST_F(Diff, OtherNumberOfTrianglesIsMeasuredBySurfacesAndADifference) {
    // The second has one triangle more on the same corners.
    const auto report = diff(model("a.obj", square(0)),
                             model("b.obj", square(0, "f 1 2 3\nf 1 3 4\nf 2 3 4\n")), {"--meshes"}, 1);
    EXPECT_EQ(report.get("meshes").get(0).get("compared").get<std::string>(), "surface");
    EXPECT_THAT(kinds(report), ElementsAre("topology"));
    EXPECT_EQ(number(report, "maxDistance"), 0);
    EXPECT_EQ(number(report.get("a"), "triangles"), 2);
    EXPECT_EQ(number(report.get("b"), "triangles"), 3);
}

TEST_F(Diff, VertexThatOneSideLacksIsAsFarAsTheOtherSurface) {
    // Without the second triangle the corner (0, 2) is missing; the diagonal is the square root of 2 away.
    for (const bool swapped : {false, true}) {
        std::string a = model("a.obj", square(0)), b = model("b.obj", square(0, "f 1 2 3\n"));
        if (swapped) std::swap(a, b);
        EXPECT_NEAR(number(diff(a, b, {}, 1), "maxDistance"), std::sqrt(2.0), 1e-6);
    }
}

TEST_F(Diff, NormalsAreComparedAsAngles) {
    std::string tilted = PLATE_OBJ;
    tilted.replace(tilted.find("vn 0 0 1"), 8, "vn 0 1 1");
    const auto report = diff(model("a.obj", PLATE_OBJ), model("b.obj", tilted), {}, 1);
    EXPECT_THAT(kinds(report), ElementsAre("normals"));
    EXPECT_NEAR(number(report, "maxNormalDegrees"), 45, 1e-4);
    EXPECT_EQ(number(report, "maxDistance"), 0);
}

TEST_F(Diff, ModelAndItsQuantizedFileAreAStepApart) {
    const std::string source = model("far.gltf", gltf({{"far", true, true, false, 100.0f}}));
    const auto exact = diff(source, converted(source, "default"), {"--max-error", "0"});
    EXPECT_EQ(number(exact, "maxDistance"), 0);
    const auto report = diff(source, converted(source, "CMP1"));
    // The mesh is one unit wide, cut into 65,535 steps in two directions.
    EXPECT_LE(number(report, "maxDistance"), std::sqrt(2.0) / 65535 + 1e-5);
    EXPECT_THAT(report.get("metadata").get<picojson::array>(), IsEmpty());
    EXPECT_THAT(report.get("attributes").get<picojson::array>(), IsEmpty());
}

TEST_F(Diff, MeshesBelongTogetherByName) {
    const std::string a = model("a.gltf", gltf({{"x"}, {"y", false, false, false, 50.0f}}));
    const std::string b = model("b.gltf", gltf({{"y", false, false, false, 50.0f}, {"x"}}));
    EXPECT_EQ(number(diff(a, b, {"--max-error", "0", "--ignore=metadata"}), "maxDistance"), 0);
}

TEST_F(Diff, MissingMeshesAreNamed) {
    const std::string a = model("a.gltf", gltf({{"x"}, {"y"}, {"z"}}));
    const std::string b = model("b.gltf", gltf({{"x"}, {"w"}}));
    const auto report = diff(a, b, {"--max-error", "1000"}, 1);
    EXPECT_THAT(texts(report.get("onlyA")), ElementsAre("y", "z"));
    EXPECT_THAT(texts(report.get("onlyB")), ElementsAre("w"));
    EXPECT_THAT(runCommand({"diff", a, b}).out, HasSubstr("meshes only in A (2): \"y\", \"z\"\n"));
}

TEST_F(Diff, RenamedMeshesArePairedInOrder) {
    const std::string a = model("a.gltf", gltf({{"x"}, {"y", false, false, false, 50.0f}}));
    const std::string b = model("b.gltf", gltf({{"p"}, {"q", false, false, false, 50.0f}}));
    const auto report = diff(a, b, {"--max-error", "0"}, 1);
    EXPECT_EQ(number(report, "compared"), 2);
    EXPECT_THAT(kinds(report), ElementsAre("names"));
    EXPECT_EQ(number(diff(a, b, {"--ignore=names"}), "maxDistance"), 0);
}

TEST_F(Diff, MeshAndItsPartsAreComparedAsOne) {
    const std::string a = model("a.gltf", gltf({{"x"}, {"x", false, false, false, 50.0f}}));
    const std::string b =
        model("b.obj", "o x\nv 0 0 0\nv 1 0 0\nv 0 1 0\nv 50 0 0\nv 51 0 0\nv 50 1 0\nf 1 2 3\nf 4 5 6\n");
    const auto report = diff(a, b, {"--meshes", "--ignore=metadata"}, 1);
    EXPECT_THAT(kinds(report), ElementsAre("meshes"));
    EXPECT_EQ(number(report, "maxDistance"), 0);
    EXPECT_EQ(number(report.get("meshes").get(0), "meshesA"), 2);
    EXPECT_EQ(number(report.get("meshes").get(0), "meshesB"), 1);
}

TEST_F(Diff, AttributesThatOneSideLacksAreCounted) {
    const std::string a = model("a.gltf", gltf({{"x", true}, {"y", true}}));
    const std::string b = model("b.gltf", gltf({{"x"}, {"y"}}));
    const auto attribute = diff(a, b, {}, 1).get("attributes").get(0);
    EXPECT_EQ(attribute.get("name").get<std::string>(), "texcoord");
    EXPECT_EQ(number(attribute, "onlyA"), 2);
    EXPECT_EQ(number(attribute, "onlyB"), 0);
    EXPECT_THAT(runCommand({"diff", a, b}).out,
                HasSubstr("attribute \"texcoord\": only in A, on 2 meshes\n"));
}

TEST_F(Diff, MaterialValuesThatDifferAreMeasured) {
    const auto red = [](const char* colour) {
        return std::string("{\"pbrMetallicRoughness\":{\"baseColorFactor\":[") + colour +
               ",0,0,1],\"metallicFactor\":0,\"roughnessFactor\":0.5}}";
    };
    const std::string a = model("a.gltf", gltf({{"x"}}, red("1")));
    const std::string b = model("b.gltf", gltf({{"x"}}, red("0.75")));
    const auto materials = diff(a, b, {}, 1).get("materials").get<picojson::array>();
    ASSERT_EQ(materials.size(), 1u);
    EXPECT_EQ(materials[0].get("value").get<std::string>(), "diffuseColor");
    EXPECT_EQ(number(materials[0], "largest"), 0.25);
    const auto none = diff(a, model("c.gltf", gltf({{"x"}})), {}, 1).get("materials").get(0);
    EXPECT_EQ(none.get("value").get<std::string>(), "");
    EXPECT_EQ(number(none, "onlyA"), 1);
}

TEST_F(Diff, MetadataThatDifferAreNamed) {
    const auto text = [](const char* key, const char* value) {
        auto input = fixture::inputOf({fixture::unitSquare()});
        input.metaData[input.meshes[0]] = std::make_shared<std::map<std::string, std::string>>(
            std::map<std::string, std::string>{{"name", "\"x\""}, {key, value}});
        return reader_fixture::write(input, Mode::UNCOMPRESSED);
    };
    const std::string a = writeFile(folder / "a.src", text("color", "[1, 2]"));
    EXPECT_THAT(
        diff(a, writeFile(folder / "b.src", text("color", "[1,2]"))).get("metadata").get<picojson::array>(),
        IsEmpty());
    const auto other = diff(a, writeFile(folder / "c.src", text("color", "3")), {}, 1).get("metadata").get(0);
    EXPECT_EQ(other.get("key").get<std::string>(), "color");
    EXPECT_EQ(number(other, "differ"), 1);
    EXPECT_EQ(diff(a, writeFile(folder / "d.src", text("size", "3")), {}, 1)
                  .get("metadata")
                  .get<picojson::array>()
                  .size(),
              2u);
}

TEST_F(Diff, BoundsAndCountsOfBothSidesAreShown) {
    const CommandResult result =
        runCommand({"diff", model("a.obj", square(0)), model("b.obj", square(0.5, "f 1 2 3\n"))});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, IsEmpty());
    EXPECT_THAT(result.out, HasSubstr("triangles       2  1\n"));
    EXPECT_THAT(result.out, HasSubstr("boundary edges  4  3\n"));
    EXPECT_THAT(result.out, HasSubstr("components      1  1\n"));
    EXPECT_THAT(result.out, HasSubstr("bounds of A: 0, 0, 0 to 2, 2, 0\n"));
    EXPECT_THAT(result.out, HasSubstr("bounds of B: 0, 0, 0 to 2, 2, 0.5\n"));
}

TEST_F(Diff, ADifferenceNamesMeshKindAmountAndPlace) {
    const CommandResult result = runCommand({"diff", model("a.obj", square(0)), model("b.obj", square(0.5)),
                                             "--max-error=0.25", "--max-normal=90"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.out, HasSubstr("1 difference beyond the limits:\n  mesh \"plate\": positions off by "
                                      "0.5, more than 0.25, at 2 places, worst at (2, 2, 0)\n"));
}

TEST_F(Diff, LimitsDecideByKind) {
    const std::string a = model("a.gltf", gltf({{"x", true, true}}));
    std::string text = gltf({{"x", true, true, false, 0.125f}});
    const std::string b = model("b.gltf", text);
    // Positions and texture coordinates are moved by an eighth.
    EXPECT_THAT(kinds(diff(a, b, {}, 1)), ElementsAre("positions", "texcoords"));
    EXPECT_THAT(kinds(diff(a, b, {"--max-error=0.125"}, 1)), ElementsAre("texcoords"));
    EXPECT_THAT(kinds(diff(a, b, {"--max-error=0.125", "--max-texcoord=0.125"}, 0)), IsEmpty());
    EXPECT_THAT(kinds(diff(a, b, {"--ignore=positions,texcoords"}, 0)), IsEmpty());
}

TEST_F(Diff, LimitsThatMakeNoSenseAreRefused) {
    const std::string a = model("a.obj", square(0));
    for (const char* option : {"--max-normal=-1", "--max-color=nan", "--max-texcoord=inf", "--ignore=colour"})
        EXPECT_EQ(runCommand({"diff", a, a, option}).status, 2) << option;
}

TEST_F(Diff, FileThatCannotBeReadIsStatus3) {
    const std::string a = model("a.obj", square(0));
    EXPECT_EQ(runCommand({"diff", a, folder / "none.obj"}).status, 3);
    EXPECT_EQ(runCommand({"diff", folder / "none.src", a}).status, 3);
    reader_fixture::Editable broken(reader_fixture::triangleFile());
    broken.data[4] = 7;
    const CommandResult result = runCommand({"diff", a, writeFile(folder / "b.src", broken.file())});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, HasSubstr("uses vertices that it does not have"));
}

TEST_F(Diff, NamesCannotSteerTheTerminal) {
    const std::string a = model("a.gltf", gltf({{"x"}, {"\x1b[2Jred"}}));
    const std::string b = model("b.gltf", gltf({{"x"}}));
    EXPECT_THAT(runCommand({"diff", a, b, "--meshes"}).out, Not(HasSubstr("\x1b")));
}

} // namespace
