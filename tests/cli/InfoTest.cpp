// What "info" tells about files whose content is known.

#include "CommandRun.h"
#include "Models.h"

#include <reader/Files.h>

#include <gmock/gmock.h>
#include <picojson.h>

#include <map>

namespace {

using namespace kel::tests;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class Info : public testing::Test {
protected:
    std::string converted(const std::string& name, const std::string& model,
                          const std::string& preset = "default") {
        const std::string output = folder / (name + ".src");
        const CommandResult result =
            runCommand({"convert", writeFile(folder / name, model), "-o", output, "--preset", preset});
        if (result.status != 0) throw std::runtime_error(result.err);
        return output;
    }

    std::string triangle() { return writeFile(folder / "triangle.src", reader_fixture::triangleFile()); }

    static picojson::value json(std::vector<std::string> args) {
        args.insert(args.begin(), {"info", "--json"});
        const CommandResult result = runCommand(args);
        picojson::value value;
        const std::string error = picojson::parse(value, result.out);
        if (!error.empty()) throw std::runtime_error(error);
        return value;
    }

    static picojson::value fileOf(const std::vector<std::string>& args) {
        return json(args).get("files").get(0);
    }

    /// "purpose" or the attribute's name, to the section.
    static std::map<std::string, picojson::value> sections(const picojson::value& file) {
        std::map<std::string, picojson::value> result;
        for (const auto& section : file.get("sections").get<picojson::array>()) {
            const auto& name = section.get(section.get("name").is<std::string>() ? "name" : "purpose");
            result[name.get<std::string>()] = section;
        }
        return result;
    }

    static std::vector<double> numbers(const picojson::value& list) {
        std::vector<double> result;
        for (const auto& number : list.get<picojson::array>())
            result.push_back(number.get<double>());
        return result;
    }

    TempFolder folder;
};

TEST_F(Info, FirstLineCountsWhatTheFileHolds) {
    const std::string file = triangle();
    const CommandResult result = runCommand({"info", file});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, IsEmpty());
    EXPECT_THAT(result.out, HasSubstr(file + ": 1 mesh, 1 triangle, 3 vertices, " +
                                      std::to_string(contentOf(file).size()) + " bytes\n"));
}

TEST_F(Info, BytesAreToldByPurpose) {
    const std::string file = triangle();
    auto found = sections(fileOf({file}));
    // Two bytes per index, three floats per vertex; all else is the header.
    EXPECT_EQ(found.at("indices").get("bytes").get<double>(), 6);
    EXPECT_EQ(found.at("position").get("bytes").get<double>(), 36);
    EXPECT_EQ(found.at("normal").get("bytes").get<double>(), 36);
    EXPECT_EQ(found.at("header").get("bytes").get<double>(),
              static_cast<double>(contentOf(file).size()) - 6 - 36 - 36);
    EXPECT_EQ(found.size(), 4u);
    EXPECT_EQ(found.at("indices").get("storedAs").get<std::string>(), "16-bit");
    EXPECT_EQ(found.at("position").get("storedAs").get<std::string>(), "floats");
}

TEST_F(Info, BytesThatServeNoPurposeAreOther) {
    const std::string file = writeFile(folder / "long.src", reader_fixture::triangleFile() + "12345");
    EXPECT_EQ(sections(fileOf({file})).at("other").get("bytes").get<double>(), 5);
}

TEST_F(Info, BarsAreAsLongAsTheShares) {
    // A twentieth of the file is one sign.
    const CommandResult result = runCommand({"info", triangle()});
    std::istringstream lines(result.out);
    std::string line;
    std::size_t bars = 0;
    while (std::getline(lines, line)) {
        if (line.compare(0, 2, "  ") != 0 || line.find(" %") == std::string::npos) continue;
        const double share = std::stod(line.substr(line.find(" %") - 3));
        const auto length = static_cast<double>(std::count(line.begin(), line.end(), '#'));
        EXPECT_NEAR(length, share / 5, 0.7) << line;
        bars += static_cast<std::size_t>(length);
    }
    EXPECT_NEAR(static_cast<double>(bars), 20, 2);
}

TEST_F(Info, StepOfQuantizedPositionsIsInUnitsOfTheModel) {
    // The mesh reaches from x = 100 to 101 and y = 0 to 1; 16 bits cut one unit into 65,535 steps.
    const auto file = fileOf({converted("far.gltf", gltf({{"far", false, false, false, 100.0f}}), "CMP1")});
    const auto position = sections(file).at("position");
    EXPECT_EQ(position.get("storedAs").get<std::string>(), "16-bit codes");
    EXPECT_NEAR(position.get("step").get<double>(), 1.0 / 65535, 1e-9);
    // Normals lie between -1 and 1 and have 8 bits.
    EXPECT_NEAR(sections(file).at("normal").get("step").get<double>(), 2.0 / 255, 1e-9);
}

TEST_F(Info, StepOfFloatPositionsIsThatOfTheFarthestCoordinate) {
    const auto file = fileOf({converted("far.gltf", gltf({{"far", false, false, false, 100.0f}}))});
    // Floats from 64 to 128 are 2^-17 apart.
    EXPECT_EQ(sections(file).at("position").get("step").get<double>(), 1.0 / 131072);
}

TEST_F(Info, BoundsAreThoseOfTheModelInEveryPreset) {
    const std::string model =
        gltf({{"near", false, false, false, -3.0f}, {"far", false, false, false, 100.0f}});
    for (const char* preset : {"default", "CMP1"}) {
        const auto bounds = fileOf({converted("two.gltf", model, preset)}).get("bounds");
        const auto min = numbers(bounds.get("min")), max = numbers(bounds.get("max"));
        EXPECT_NEAR(min[0], -3, 1e-4);
        EXPECT_NEAR(min[1], 0, 1e-4);
        EXPECT_NEAR(max[0], 101, 1e-4);
        EXPECT_NEAR(max[1], 1, 1e-4);
    }
}

TEST_F(Info, CombinedPositionsAndNormalsAreOneAttribute) {
    const std::string file = writeFile(folder / "combined.src",
                                       reader_fixture::write(fixture::inputOf({fixture::octahedron()}),
                                                             reader_fixture::Mode::POSITIONS_AND_NORMALS));
    const auto found = sections(fileOf({file}));
    // Six vertices of 8 bytes; the octahedron is one unit wide.
    EXPECT_EQ(found.at("pos3us_nor2ub_oct").get("bytes").get<double>(), 48);
    EXPECT_EQ(found.at("pos3us_nor2ub_oct").get("storedAs").get<std::string>(),
              "16-bit codes, octahedral normals");
    EXPECT_NEAR(found.at("pos3us_nor2ub_oct").get("step").get<double>(), 1.0 / 65535, 1e-9);
    EXPECT_EQ(fileOf({file}).get("vertices").get<double>(), 6);
}

TEST_F(Info, MaterialsSayHowManyMeshesUseThem) {
    const auto materials = fileOf({triangle()}).get("materials").get<picojson::array>();
    ASSERT_EQ(materials.size(), 1u);
    EXPECT_EQ(materials[0].get("id").get<std::string>(), "material0");
    EXPECT_EQ(materials[0].get("technique").get<std::string>(), "x3dStandardMaterialTechnique");
    EXPECT_EQ(materials[0].get("meshes").get<double>(), 1);
    EXPECT_THAT(numbers(materials[0].get("diffuseColor")), ElementsAre(1, 0, 0));
}

TEST_F(Info, MetadataKeysCountTheirMeshes) {
    const auto keys = fileOf({converted("two.gltf", gltf({{"a"}, {""}}))}).get("meshMetadata");
    EXPECT_EQ(keys.get("numOriginalTriangles").get<double>(), 2);
    EXPECT_EQ(keys.get("name").get<double>(), 2); // a mesh without a name has that of its node
    EXPECT_FALSE(keys.contains("fit"));
}

TEST_F(Info, MeshesAreListedOnRequest) {
    const std::string file = converted("two.gltf", gltf({{"left"}, {"right", true}}));
    EXPECT_THAT(runCommand({"info", file}).out, Not(HasSubstr("left")));
    const CommandResult result = runCommand({"info", "--meshes", file});
    // Three vertices: 6 bytes of indices, 36 each of positions and normals, 24 of texture coordinates.
    EXPECT_THAT(result.out, HasSubstr("left    0           1  triangles         3     78  1 x 1 x 0"));
    EXPECT_THAT(result.out, HasSubstr("right   1           1  triangles         3    102  1 x 1 x 0"));
}

TEST_F(Info, ListOfMeshesIsPartOfTheJson) {
    const std::string file = converted("two.gltf", gltf({{"left"}, {"right", true}}));
    EXPECT_FALSE(fileOf({file}).contains("meshList"));
    const auto list = fileOf({file, "--meshes"}).get("meshList").get<picojson::array>();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[1].get("name").get<std::string>(), "right");
    EXPECT_EQ(list[1].get("bytes").get<double>(), 102);
    EXPECT_EQ(list[1].get("kind").get<std::string>(), "triangles");
}

TEST_F(Info, ViewsSharedByMeshesAreCountedOnce) {
    // The second mesh has no texture coordinates and names those of the first.
    const auto file =
        writeFile(folder / "shared.src",
                  reader_fixture::write(fixture::inputOf({fixture::unitSquare(), fixture::noNormals()}),
                                        reader_fixture::Mode::DEFAULT));
    EXPECT_EQ(sections(fileOf({file})).at("texcoord").get("bytes").get<double>(), 4 * 2 * 4);
}

TEST_F(Info, NamesCannotSteerTheTerminal) {
    const std::string file = converted("evil.gltf", gltf({{"\x1b[2Jred"}}));
    EXPECT_THAT(runCommand({"info", "--meshes", file}).out, Not(HasSubstr("\x1b")));
}

TEST_F(Info, StandardInputIsReadForADash) {
    std::istringstream in(reader_fixture::triangleFile());
    std::ostringstream out, err;
    EXPECT_EQ(kelsrc::cli::run({"info", "-"}, in, out, err), 0);
    EXPECT_THAT(out.str(), HasSubstr("standard input: 1 mesh, 1 triangle, 3 vertices"));
}

TEST_F(Info, FileThatCannotBeReadIsNamedWithTheReadersCode) {
    const std::string file = writeFile(folder / "cut.src", reader_fixture::triangleFile().substr(0, 30));
    const CommandResult result = runCommand({"info", file});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_THAT(result.err, HasSubstr(file + ": HEADER_TRUNCATED"));
    EXPECT_THAT(result.err, HasSubstr("Write or download the file again."));
}

TEST_F(Info, GoodFilesOfSeveralAreShownAll) {
    const CommandResult result = runCommand({"info", folder / "none.src", triangle()});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.out, HasSubstr("triangle.src: 1 mesh"));
    EXPECT_THAT(result.err, HasSubstr("none.src: UNREADABLE"));
}

TEST_F(Info, DataSectionIsNotReadForBounds) {
    // Positions that are not numbers do not matter: what is told comes from the header.
    reader_fixture::Editable file(reader_fixture::triangleFile());
    file.data.assign(file.data.size(), '\xff');
    const CommandResult result = runCommand({"info", writeFile(folder / "nan.src", file.file())});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, HasSubstr("bounds: 0, 0, 0 to 1, 1, 0"));
}

} // namespace
