#include "GltfText.h"
#include "ImporterTest.h"

#include <picojson.h>

namespace kel::importer::test {

using testing::Contains;
using testing::HasSubstr;

class Metadata : public ImporterTest {
protected:
    /// The value of a text, which must be JSON; null when the mesh has no such key.
    static picojson::value valueOf(const ImportResult& result, std::size_t mesh, const std::string& key) {
        const std::string text = metadataOf(result, mesh, key);
        picojson::value value;
        if (text.empty()) return value;
        EXPECT_EQ(picojson::parse(value, text), "") << text;
        return value;
    }
    static std::string stringOf(const ImportResult& result, std::size_t mesh, const std::string& key) {
        const auto value = valueOf(result, mesh, key);
        return value.is<std::string>() ? value.get<std::string>() : "(none)";
    }
    ImportResult named(const std::string& name) const {
        GltfText gltf = oneTriangle();
        gltf.meshes[0] = R"({"primitives":[{"attributes":{"POSITION":0}}],"name":)" + name + "}";
        return import("named.gltf", gltf.json());
    }
};

TEST_F(Metadata, NamesAreVerbatim) {
    const auto result = named(R"("a \"quoted\" \\ tab\t line\n gear.1 / Zahnrad-Größe 齿轮 🦷")");
    EXPECT_EQ(stringOf(result, 0, "name"),
              "a \"quoted\" \\ tab\t line\n gear.1 / Zahnrad-Größe 齿轮 🦷");
}

TEST_F(Metadata, EveryPrimitiveOfAMeshHasTheMeshsName) {
    GltfText gltf = oneTriangle();
    gltf.meshes[0] =
        R"({"name":"housing","primitives":[{"attributes":{"POSITION":0}},{"attributes":{"POSITION":0}}]})";
    const auto result = import("two.gltf", gltf.json());
    EXPECT_EQ(stringOf(result, 0, "name"), "housing");
    EXPECT_EQ(stringOf(result, 1, "name"), "housing");
}

TEST_F(Metadata, AMeshWithoutANameTakesThatOfItsNode) {
    const auto result = import("node.gltf", oneTriangle(R"({"mesh":0,"name":"bolt"})").json());
    EXPECT_EQ(stringOf(result, 0, "name"), "bolt");
}

TEST_F(Metadata, NoNameIsInvented) {
    const auto result = import("none.gltf", oneTriangle().json());
    EXPECT_EQ(metadataOf(result, 0, "name"), "");
}

TEST_F(Metadata, BytesThatAreNotUtf8AreReplacedAndReported) {
    // Latin 1 for "Größe", and a sequence that is cut short.
    const auto result = import("latin.obj", "o Gr\xF6\xDF"
                                            "e\xE2\x82\nv 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
    EXPECT_EQ(stringOf(result, 0, "name"), "Gr\uFFFD\uFFFDe\uFFFD");
    EXPECT_THAT(result.report.notes, Contains(HasSubstr("not UTF-8")));
}

TEST_F(Metadata, TheNodeIsAPathOfNames) {
    GltfText gltf = oneTriangle(R"({"name":"car","children":[1]})");
    gltf.nodes.push_back(R"({"name":"front/left ~ 1","children":[2]})");
    gltf.nodes.push_back(R"({"name":"wheel","mesh":0})");
    const auto result = import("path.gltf", gltf.json());
    EXPECT_EQ(stringOf(result, 0, "node"), "car/front~1left ~0 1/wheel");
}

TEST_F(Metadata, ARootThatTheFileDoesNotHaveIsNoPartOfThePath) {
    GltfText gltf = oneTriangle(R"({"name":"a","mesh":0})");
    gltf.nodes.push_back(R"({"name":"b","mesh":0})");
    gltf.roots = "0,1";
    const auto result = import("roots.gltf", gltf.json());
    EXPECT_EQ(stringOf(result, 0, "node"), "a");
    EXPECT_EQ(stringOf(result, 1, "node"), "b");
}

TEST_F(Metadata, TheSourceOfAGltfIsInMetresWithYUp) {
    const auto source = valueOf(import("my model.gltf", oneTriangle().json()), 0, "source");
    EXPECT_EQ(source.get("file").to_str(), "my model.gltf");
    EXPECT_EQ(source.get("unit").get<double>(), 1.0);
    EXPECT_EQ(source.get("upAxis").to_str(), "Y");
}

TEST_F(Metadata, TheSourceOfAnStlStatesNoUnit) {
    const auto source = valueOf(
        import("t.stl", "solid t\nfacet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 1 0 0\nvertex 0 1 0\n"
                        "endloop\nendfacet\nendsolid t\n"),
        0, "source");
    EXPECT_FALSE(source.contains("unit"));
    EXPECT_FALSE(source.contains("upAxis"));
}

TEST_F(Metadata, TheSourceOfAnFbxIsInItsOwnUnit) {
    // Written in centimetres with Y up, as its global settings say.
    const auto source = valueOf(importModel("/usr/share/assimp/models/FBX/spider.fbx"), 0, "source");
    EXPECT_NEAR(source.get("unit").get<double>(), 0.01, 1e-12);
    EXPECT_EQ(source.get("upAxis").to_str(), "Y");
}

TEST_F(Metadata, ExtrasKeepTheirTypes) {
    const std::string extras = R"({"id":42,"mass":0.5,"tags":["a",null,true],"nested":{"deep":{"er":-1}}})";
    const auto result = import("extras.gltf", oneTriangle(R"({"mesh":0,"extras":)" + extras + "}").json());
    picojson::value expected;
    ASSERT_EQ(picojson::parse(expected, extras), "");
    EXPECT_EQ(valueOf(result, 0, "extras"), expected);
}

TEST_F(Metadata, ExtrasOfMeshMaterialAndSceneHaveKeysOfTheirOwn) {
    const auto result = importModel("/usr/share/assimp/models/glTF2/BoxTextured-glTF/BoxTextured.gltf");
    EXPECT_EQ(metadataOf(result, 0, "meshExtras"), "") << "the box has none";

    GltfText gltf = oneTriangle();
    gltf.meshes[0] = R"({"primitives":[{"attributes":{"POSITION":0},"material":0}],"extras":"of mesh"})";
    gltf.more = R"(,"materials":[{"extras":[1]}])";
    std::string json = gltf.json();
    const std::string scene = R"("scenes":[{)";
    json.insert(json.find(scene) + scene.size(), R"("extras":{"of":"scene"},)");
    const auto own = import("extras.gltf", json);
    EXPECT_EQ(metadataOf(own, 0, "meshExtras"), "\"of mesh\"");
    EXPECT_EQ(metadataOf(own, 0, "materialExtras"), "[1]");
    EXPECT_EQ(metadataOf(own, 0, "sceneExtras"), "{\"of\":\"scene\"}");
    EXPECT_EQ(metadataOf(own, 0, "extras"), "");
}

TEST_F(Metadata, DeepExtrasAreRefused) {
    const std::string deep = std::string(5000, '[') + std::string(5000, ']');
    const auto error =
        errorOf([&] { import("deep.gltf", oneTriangle(R"({"mesh":0,"extras":)" + deep + "}").json()); });
    EXPECT_EQ(error.code(), ImportCode::INVALID_JSON);
}

} // namespace kel::importer::test
