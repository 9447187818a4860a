// "export" writes what other tools read; here the importer, and readings of the text formats by hand.

#include "CommandRun.h"
#include "Models.h"

#include <kel/importer/Importer.h>
#include <kel/material/MaterialClassic.h>
#include <kel/mesh/Mesh.h>
#include <reader/Files.h>

#include <gmock/gmock.h>
#include <picojson.h>

#include <algorithm>
#include <cstring>

namespace {

using namespace kel::tests;
using reader_fixture::Mode;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;

class Export : public testing::Test {
protected:
    std::string convertedFrom(const std::string& model, const std::string& preset = "default") {
        const CommandResult converted = runCommand(
            {"convert", writeFile(folder / "in.gltf", model), "-o", folder / "in.src", "--preset", preset});
        if (converted.status != 0) throw std::runtime_error(converted.err);
        return folder / "in.src";
    }

    std::string written(const kel::src::SrcWriterInput& input, Mode mode) {
        return writeFile(folder / "in.src", reader_fixture::write(input, mode));
    }

    /// Exports to a file of that name and returns its content.
    std::string exported(const std::string& source, const std::string& name) {
        result = runCommand({"export", source, "-o", folder / name});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_THAT(result.out, IsEmpty());
        return contentOf(folder / name);
    }

    picojson::value gltfOf(const std::string& source) {
        picojson::value json;
        const std::string error = picojson::parse(json, exported(source, "out.gltf"));
        if (!error.empty()) throw std::runtime_error(error);
        return json;
    }

    /// All corners of the triangles of a binary STL.
    static std::vector<std::vector<float>> stlCorners(const std::string& bytes) {
        std::uint32_t count = 0;
        std::memcpy(&count, bytes.data() + 80, 4);
        std::vector<std::vector<float>> corners;
        for (std::uint32_t t = 0; t < count; ++t) {
            for (std::size_t corner = 0; corner < 3; ++corner) {
                std::vector<float> values(3);
                std::memcpy(values.data(), bytes.data() + 84 + t * 50 + 12 + corner * 12, 12);
                corners.push_back(values);
            }
        }
        return corners;
    }

    TempFolder folder;
    CommandResult result;
};

TEST_F(Export, StlHoldsTheTriangles) {
    const std::string bytes =
        exported(written(fixture::inputOf({fixture::unitSquare()}), Mode::DEFAULT), "out.stl");
    EXPECT_EQ(bytes.size(), 84u + 2 * 50);
    EXPECT_THAT(stlCorners(bytes),
                ElementsAre(ElementsAre(0, 0, 0), ElementsAre(1, 0, 0), ElementsAre(1, 1, 0),
                            ElementsAre(0, 0, 0), ElementsAre(1, 1, 0), ElementsAre(0, 1, 0)));
}

TEST_F(Export, FittedValuesComeBackInUnitsOfTheModel) {
    const std::string source = convertedFrom(gltf({{"far", false, false, false, 100.0f}}), "CMP1");
    const auto corners = stlCorners(exported(source, "out.stl"));
    ASSERT_EQ(corners.size(), 3u);
    const float expected[3][3] = {{100, 0, 0}, {101, 0, 0}, {100, 1, 0}};
    for (std::size_t i = 0; i < 3; ++i) {
        for (std::size_t c = 0; c < 3; ++c)
            EXPECT_NEAR(corners[i][c], expected[i][c], 2.0 / 65535);
    }
}

TEST_F(Export, ObjHoldsNamesPositionsNormalsAndTextureCoordinates) {
    const std::string text = exported(convertedFrom(gltf({{"part", true}})), "out.obj");
    EXPECT_THAT(text, HasSubstr("g part\n"));
    EXPECT_THAT(text, HasSubstr("v 1 0 0\n"));
    EXPECT_THAT(text, HasSubstr("vn 0 0 1\n"));
    EXPECT_THAT(text, HasSubstr("vt 1 1 0\n")); // the origin of v is at the bottom
    EXPECT_THAT(text, HasSubstr("\nf  1/1/1 2/2/1 3/3/1\n"));
}

TEST_F(Export, ObjBringsItsMaterialsInAFileBesideIt) {
    auto square = fixture::unitSquare();
    auto input = fixture::inputOf({square});
    input.meshMaterials[square] = fixture::material(1, 0, 0);
    EXPECT_THAT(exported(written(input, Mode::DEFAULT), "out.obj"), HasSubstr("mtllib out.mtl"));
    const std::string materials = contentOf(folder / "out.mtl");
    EXPECT_THAT(materials, HasSubstr("newmtl material0\n"));
    EXPECT_THAT(materials, HasSubstr("Kd 1 0 0\n"));
    EXPECT_THAT(result.err, HasSubstr("with out.mtl"));
}

TEST_F(Export, GltfBringsItsDataInAFileBesideIt) {
    const auto json = gltfOf(convertedFrom(gltf({{"part"}})));
    EXPECT_THAT(folder.entries(), UnorderedElementsAre("in.gltf", "in.src", "out.gltf", "out.bin"));
    EXPECT_EQ(json.get("buffers").get(0).get("uri").get<std::string>(), "out.bin");
    EXPECT_EQ(json.get("buffers").get(0).get("byteLength").get<double>(),
              static_cast<double>(contentOf(folder / "out.bin").size()));
}

TEST_F(Export, GltfKeepsMetadataAsExtrasButTheFit) {
    const auto nodes = gltfOf(convertedFrom(gltf({{"part"}}), "CMP1")).get("nodes").get<picojson::array>();
    const auto node = std::find_if(nodes.begin(), nodes.end(), [](const picojson::value& entry) {
        return entry.get("name").is<std::string>() && entry.get("name").get<std::string>() == "part";
    });
    ASSERT_NE(node, nodes.end());
    const auto extras = node->get("extras");
    EXPECT_EQ(extras.get("numOriginalTriangles").get<double>(), 1);
    EXPECT_EQ(extras.get("node").get<std::string>().substr(0, 1), "n");
    EXPECT_EQ(extras.get("source").get("file").get<std::string>(), "in.gltf");
    EXPECT_FALSE(extras.contains("fit"));
}

TEST_F(Export, GlbKeepsMetadataAndIsWhole) {
    const std::string bytes = exported(convertedFrom(gltf({{"part"}})), "out.glb");
    std::uint32_t words[5] = {};
    std::memcpy(words, bytes.data(), sizeof words);
    EXPECT_EQ(words[0], 0x46546c67u); // "glTF"
    EXPECT_EQ(words[2], bytes.size());
    EXPECT_EQ(words[3] % 4, 0u);
    EXPECT_EQ(words[4], 0x4e4f534au); // "JSON"
    const auto after = kel::importer::importModel(bytes.data(), bytes.size(), "out.glb").input;
    EXPECT_THAT(after.metaData.at(after.meshes.at(0))->at("extras"), HasSubstr("numOriginalTriangles"));
}

TEST_F(Export, GltfMaterialsAreMetallicRoughness) {
    auto square = fixture::unitSquare();
    auto input = fixture::inputOf({square});
    auto material = fixture::material(1, 0.5f, 0);
    input.meshMaterials[square] = material;
    const auto json = gltfOf(written(input, Mode::DEFAULT));
    EXPECT_FALSE(json.get("materials").get(0).contains("extensions"));
    const auto pbr = json.get("materials").get(0).get("pbrMetallicRoughness");
    const auto colour = pbr.get("baseColorFactor");
    EXPECT_EQ(colour.get(0).get<double>(), 1);
    EXPECT_EQ(colour.get(1).get<double>(), 0.5);
    EXPECT_EQ(pbr.get("metallicFactor").get<double>(), 0);
}

TEST_F(Export, MaterialIsOpaqueWhenItsOwnValuesDoNotSayOtherwise) {
    // The technique's default would make it see-through.
    auto square = fixture::unitSquare();
    auto input = fixture::inputOf({square});
    input.meshMaterials[square] = fixture::material(1, 0, 0);
    const auto material = gltfOf(written(input, Mode::DEFAULT)).get("materials").get(0);
    const auto colour = material.get("pbrMetallicRoughness").get("baseColorFactor");
    EXPECT_EQ(colour.get(3).get<double>(), 1);
    EXPECT_FALSE(material.contains("alphaMode"));
}

TEST_F(Export, ImportedAgainTheModelIsTheSame) {
    const std::string model = gltf({{"left", true, true, false, -3.0f}, {"right", true, true, false, 50.0f}},
                                   "{\"name\":\"red\",\"pbrMetallicRoughness\":{\"baseColorFactor\":"
                                   "[1,0,0,1],\"metallicFactor\":0,\"roughnessFactor\":0.5}}");
    const auto before = kel::importer::importModel(model.data(), model.size(), "model.gltf").input;
    const std::string source = convertedFrom(model);
    for (const char* name : {"out.glb", "out.gltf"}) {
        exported(source, name);
        const auto after = kel::importer::importModel(std::filesystem::path(folder / name)).input;
        ASSERT_EQ(after.meshes.size(), 2u) << name;
        for (std::size_t i = 0; i < 2; ++i) {
            for (const char* attribute : {"position", "normal", "texcoord", "color"}) {
                ASSERT_TRUE(after.meshes[i]->getAttributeBuffer(attribute)) << name << ' ' << attribute;
                EXPECT_EQ(fixture::floatsOf(*after.meshes[i], attribute),
                          fixture::floatsOf(*before.meshes[i], attribute))
                    << name << ' ' << attribute;
            }
            EXPECT_EQ(after.metaData.at(after.meshes[i])->at("name"), i == 0 ? "\"left\"" : "\"right\"");
            const auto material = std::dynamic_pointer_cast<kel::material::MaterialClassic>(
                after.meshMaterials.at(after.meshes[i]));
            ASSERT_TRUE(material);
            EXPECT_EQ(material->getDiffuse(), glm::vec3(1, 0, 0));
            // 2 / 0.5^4 - 2 over 128.
            EXPECT_NEAR(material->getShininess(), 30.0 / 128, 1e-4);
        }
    }
}

TEST_F(Export, PlyIsReadAgainWithNormalsAndColours) {
    exported(convertedFrom(gltf({{"part", false, true}})), "out.ply");
    const auto after = kel::importer::importModel(std::filesystem::path(folder / "out.ply")).input;
    ASSERT_EQ(after.meshes.size(), 1u);
    EXPECT_THAT(fixture::floatsOf(*after.meshes[0], "position"), ElementsAre(0, 0, 0, 1, 0, 0, 0, 1, 0));
    EXPECT_THAT(fixture::floatsOf(*after.meshes[0], "normal"), ElementsAre(0, 0, 1, 0, 0, 1, 0, 0, 1));
    EXPECT_NEAR(fixture::floatsOf(*after.meshes[0], "color")[1], 0.5, 1.0 / 255);
}

TEST_F(Export, LinesStripsAndFansBecomeSinglePrimitives) {
    // A strip over the corners of a square: two triangles, the second one turned to face the same way.
    auto square = fixture::noNormals();
    square->setIndices(std::vector<std::uint16_t>{0, 1, 3, 2});
    square->setPrimitiveType(kel::mesh::TRIANGLE_STRIP);
    const auto corners =
        stlCorners(exported(written(fixture::inputOf({square}), Mode::UNCOMPRESSED), "out.stl"));
    EXPECT_THAT(corners, ElementsAre(ElementsAre(0, 0, 0), ElementsAre(1, 0, 0), ElementsAre(0, 1, 0),
                                     ElementsAre(0, 1, 0), ElementsAre(1, 0, 0), ElementsAre(1, 1, 0)));
}

TEST_F(Export, WhatTheTargetCannotHoldIsReportedOncePerKind) {
    exported(convertedFrom(gltf({{"left", true, true}, {"right", true, true}})), "out.stl");
    EXPECT_THAT(result.err, HasSubstr("  dropped \"normal\" attributes: 2"));
    EXPECT_THAT(result.err, HasSubstr("  dropped \"texcoord\" attributes: 2"));
    EXPECT_THAT(result.err, HasSubstr("  dropped \"color\" attributes: 2"));
    EXPECT_THAT(result.err, HasSubstr("  dropped names of meshes: 2"));
    EXPECT_THAT(result.err, HasSubstr("  dropped metadata of meshes: 2"));
}

TEST_F(Export, FileWithNothingForTheTargetIsAnError) {
    auto points = fixture::noNormals();
    points->setPrimitiveType(kel::mesh::POINTS);
    const std::string source = written(fixture::inputOf({points}), Mode::UNCOMPRESSED);
    result = runCommand({"export", source, "-o", folder / "out.stl"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, HasSubstr("nothing in it that .stl files can hold"));
    EXPECT_THAT(folder.entries(), ElementsAre("in.src"));
    EXPECT_EQ(gltfOf(source).get("meshes").get(0).get("primitives").get(0).get("mode").get<double>(), 0);
}

TEST_F(Export, IndexBeyondTheVerticesIsRefused) {
    reader_fixture::Editable file(reader_fixture::triangleFile());
    file.data[4] = 7;
    result = runCommand({"export", writeFile(folder / "in.src", file.file()), "-o", folder / "out.glb"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, HasSubstr("uses vertex 7 of 3"));
    EXPECT_THAT(folder.entries(), ElementsAre("in.src"));
}

TEST_F(Export, UnknownExtensionIsAUsageErrorThatNamesTheKnownOnes) {
    const std::string source = written(fixture::inputOf({fixture::unitSquare()}), Mode::DEFAULT);
    for (const char* name : {"out.step", "out"}) {
        result = runCommand({"export", source, "-o", folder / name});
        EXPECT_EQ(result.status, 2);
        EXPECT_THAT(result.err, HasSubstr(".glb, .gltf, .obj, .ply or .stl"));
    }
}

TEST_F(Export, OutputThatIsTheInputIsRefused) {
    const std::string source = written(fixture::inputOf({fixture::unitSquare()}), Mode::DEFAULT);
    std::filesystem::create_symlink(source, folder / "link.glb");
    const std::string before = contentOf(source);
    result = runCommand({"export", source, "-o", folder / "link.glb"});
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(contentOf(source), before);
}

TEST_F(Export, FolderThatDoesNotExistIsStatus4) {
    const std::string source = written(fixture::inputOf({fixture::unitSquare()}), Mode::DEFAULT);
    EXPECT_EQ(runCommand({"export", source, "-o", folder / "no/out.glb"}).status, 4);
    EXPECT_EQ(runCommand({"export", folder / "none.src", "-o", folder / "out.glb"}).status, 3);
}

} // namespace
