#include "GltfText.h"
#include "ImporterTest.h"

namespace kel::importer::test {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class GltfScene : public ImporterTest {
protected:
    std::vector<float> positionsIn(const GltfText& gltf) const {
        return numbersOf(*import("scene.gltf", gltf.json()).input.meshes.at(0), "position");
    }
    /// A zigzag of five vertices, numbered from left to right, and what the corners of a mode are.
    std::vector<std::size_t> cornersOfMode(int mode, bool indexed) const {
        GltfText gltf;
        gltf.addVec3({0, 0, 0, 0, 1, 0, 1, 0, 0, 1, 1, 0, 2, 0, 0});
        gltf.addIndices({0, 1, 2, 3, 4});
        gltf.addVec3({0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1});
        gltf.addMesh("\"POSITION\":0,\"NORMAL\":2",
                     (indexed ? ",\"indices\":1,\"mode\":" : ",\"mode\":") + std::to_string(mode));
        gltf.nodes = {R"({"mesh":0})"};
        return indicesOf(*import("mode.gltf", gltf.json()).input.meshes.at(0));
    }
};

// ---- Primitives -------------------------------------------------------------------------------------------

TEST_F(GltfScene, EveryModeWithAndWithoutIndices) {
    for (const bool indexed : {false, true}) {
        EXPECT_THAT(cornersOfMode(0, indexed), ElementsAre(0, 1, 2, 3, 4));
        EXPECT_THAT(cornersOfMode(1, indexed), ElementsAre(0, 1, 2, 3));
        EXPECT_THAT(cornersOfMode(2, indexed), ElementsAre(0, 1, 1, 2, 2, 3, 3, 4, 4, 0));
        EXPECT_THAT(cornersOfMode(3, indexed), ElementsAre(0, 1, 1, 2, 2, 3, 3, 4));
        EXPECT_THAT(cornersOfMode(4, indexed), ElementsAre(0, 1, 2));
        // Each triangle of a strip faces where the first one does.
        EXPECT_THAT(cornersOfMode(5, indexed), ElementsAre(0, 1, 2, 2, 1, 3, 2, 3, 4));
        EXPECT_THAT(cornersOfMode(6, indexed), ElementsAre(0, 1, 2, 0, 2, 3, 0, 3, 4));
    }
}

TEST_F(GltfScene, CornersThatMakeNoPrimitiveAreTold) {
    GltfText gltf = oneTriangle();
    gltf.addIndices({0, 1, 2, 0});
    gltf.meshes[0] = R"({"primitives":[{"attributes":{"POSITION":0},"indices":1}]})";
    EXPECT_THAT(import("rest.gltf", gltf.json()).report.notes,
                Contains(HasSubstr("The last 1 corners of meshes[0].primitives[0]")));
}

TEST_F(GltfScene, VerticesThatTheFileSharesAreNotJoined) {
    // Vertices 0 and 3 are the same, but the file keeps them apart.
    GltfText gltf;
    gltf.addVec3({0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 0});
    gltf.addVec3({0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1});
    gltf.addIndices({0, 1, 2, 3, 2, 1});
    gltf.addMesh("\"POSITION\":0,\"NORMAL\":1", ",\"indices\":2");
    gltf.nodes = {R"({"mesh":0})"};
    EXPECT_EQ(import("apart.gltf", gltf.json()).report.vertices, 4u);
}

TEST_F(GltfScene, AttributesOfUnknownNamesAreTold) {
    GltfText gltf = oneTriangle();
    gltf.meshes[0] = R"({"primitives":[{"attributes":{"POSITION":0,"WEIRD":0}}]})";
    EXPECT_EQ(droppedOf(import("weird.gltf", gltf.json()), "attributes with names that glTF does not have"),
              1u);
}

// ---- Scenes -----------------------------------------------------------------------------------------------

class GltfScenes : public ImporterTest {
protected:
    /// Three scenes of one triangle each, at x = 0, 10 and 20. The second is the default.
    static std::string json() {
        GltfText gltf = oneTriangle();
        gltf.nodes = {R"({"mesh":0})", R"({"mesh":0,"translation":[10,0,0]})",
                      R"({"mesh":0,"translation":[20,0,0]})"};
        std::string text = gltf.json();
        const std::string own = R"("scene":0,"scenes":[{"nodes":[0]}])";
        return text.replace(
            text.find(own), own.size(),
            R"("scene":1,"scenes":[{"nodes":[0]},{"nodes":[1]},{"nodes":[2],"name":"attic"}])");
    }
    float leftIn(const std::optional<std::string>& scene, std::string text = json()) const {
        ImportOptions options;
        options.scene = scene;
        return numbersOf(*import("scenes.gltf", text, options).input.meshes.at(0), "position")[0];
    }
};

TEST_F(GltfScenes, TheDefaultOneIsTaken) {
    EXPECT_EQ(leftIn(std::nullopt), 10.0f);
}

TEST_F(GltfScenes, WithoutADefaultTheFirstIsTaken) {
    std::string text = json();
    text.erase(text.find(R"("scene":1,)"), 10);
    EXPECT_EQ(leftIn(std::nullopt, text), 0.0f);
}

TEST_F(GltfScenes, OneIsChosenByNumberOrName) {
    EXPECT_EQ(leftIn("0"), 0.0f);
    EXPECT_EQ(leftIn("2"), 20.0f);
    EXPECT_EQ(leftIn("attic"), 20.0f);
}

TEST_F(GltfScenes, TheOthersAreTold) {
    EXPECT_EQ(droppedOf(import("scenes.gltf", json()), "scenes besides the one imported"), 2u);
}

TEST_F(GltfScenes, OneThatIsNotThereIsAnErrorThatListsThem) {
    for (const char* wanted : {"3", "-1", "cellar", ""}) {
        const auto error = errorOf([&] { leftIn(wanted); });
        EXPECT_EQ(error.code(), ImportCode::NO_SCENE) << wanted;
        EXPECT_THAT(error.remedy(), HasSubstr("0, 1, 2 \"attic\""));
    }
}

TEST_F(GltfScenes, OtherFormatsHaveNone) {
    ImportOptions options;
    options.scene = "0";
    const auto error = errorOf([&] { import("a.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n", options); });
    EXPECT_EQ(error.code(), ImportCode::NO_SCENE);
}

// ---- Nodes ------------------------------------------------------------------------------------------------

TEST_F(GltfScene, ANodeWithTwoParentsIsRefused) {
    GltfText gltf = oneTriangle(R"({"children":[2]})");
    gltf.nodes.push_back(R"({"children":[2]})");
    gltf.nodes.push_back(R"({"mesh":0})");
    gltf.roots = "0,1";
    const auto error = errorOf([&] { positionsIn(gltf); });
    EXPECT_EQ(error.code(), ImportCode::INVALID_MODEL);
    EXPECT_EQ(error.place(), "nodes[2]");
}

TEST_F(GltfScene, ACircleThatNoSceneReachesIsRefused) {
    GltfText gltf = oneTriangle();
    gltf.nodes.push_back(R"({"children":[2]})");
    gltf.nodes.push_back(R"({"children":[1]})");
    EXPECT_EQ(errorOf([&] { positionsIn(gltf); }).code(), ImportCode::INVALID_MODEL);
}

TEST_F(GltfScene, TransformsAreMultipliedInDoubles) {
    // 1e8 + 0.25 is no float, so two steps that cancel would lose the quarter.
    GltfText gltf = oneTriangle(R"({"translation":[100000000,0,0],"children":[1]})");
    gltf.nodes.push_back(R"({"translation":[-99999999.75,0,0],"mesh":0})");
    EXPECT_EQ(positionsIn(gltf)[0], 0.25f);
}

TEST_F(GltfScene, ARotationNeedNotBeOfLength1) {
    GltfText gltf = oneTriangle(R"({"mesh":0,"rotation":[0,0,2,2]})");
    const auto positions = positionsIn(gltf);
    EXPECT_NEAR(positions[3], 0.0f, 1e-7f);
    EXPECT_NEAR(positions[4], 1.0f, 1e-7f);
}

class GltfInstances : public GltfScene {
protected:
    static GltfText document(const std::string& attributes) {
        GltfText gltf = oneTriangle(R"({"name":"tree","mesh":0,"translation":[0,0,5],"extensions":{)"
                                    R"("EXT_mesh_gpu_instancing":{"attributes":{)" +
                                    attributes + "}}}}");
        gltf.addVec3({10, 0, 0, 20, 0, 0});
        gltf.addVec3({1, 1, 1, 2, 2, 2});
        gltf.more = R"(,"extensionsUsed":["EXT_mesh_gpu_instancing"])";
        return gltf;
    }
};

TEST_F(GltfInstances, EachIsAMesh) {
    const auto result = import("trees.gltf", document(R"("TRANSLATION":1,"SCALE":2)").json());
    ASSERT_EQ(result.report.meshes, 2u);
    EXPECT_THAT(numbersOf(*result.input.meshes[0], "position"), ElementsAre(10, 0, 5, 11, 0, 5, 10, 1, 5));
    EXPECT_THAT(numbersOf(*result.input.meshes[1], "position"), ElementsAre(20, 0, 5, 22, 0, 5, 20, 2, 5));
    EXPECT_EQ(metadataOf(result, 1, "node"), "\"tree\"");
    EXPECT_THAT(result.report.dropped, IsEmpty());
}

TEST_F(GltfInstances, AttributesThatPlaceNothingAreTold) {
    EXPECT_EQ(droppedOf(import("ids.gltf", document(R"("TRANSLATION":1,"_ID":2)").json()),
                        "attributes of instances"),
              1u);
}

TEST_F(GltfInstances, AttributesOfDifferentNumbersAreRefused) {
    GltfText gltf = document(R"("TRANSLATION":1,"SCALE":0)");
    EXPECT_EQ(errorOf([&] { positionsIn(gltf); }).code(), ImportCode::INVALID_MODEL);
}

// ---- Rest poses -------------------------------------------------------------------------------------------

class GltfPoses : public GltfScene {
protected:
    /// Two joints: the first moves by (0, 0, 1), the second by (0, 0, 3). The vertices hang on the first, on the
    /// second and on both alike.
    static GltfText skinned() {
        GltfText gltf = oneTriangle(R"({"name":"skinned","mesh":0,"skin":0,"translation":[100,100,100]})");
        gltf.add(std::vector<std::uint8_t>{0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0}, 5121, "VEC4", 4);
        gltf.add(std::vector<float>{1, 0, 0, 0, 1, 0, 0, 0, 0.5f, 0.5f, 0, 0}, 5126, "VEC4", 4);
        const std::vector<float> back = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, -2, 1};
        std::vector<float> matrices = back;
        matrices.insert(matrices.end(), back.begin(), back.end());
        gltf.add(matrices, 5126, "MAT4", 16);
        gltf.meshes[0] = R"({"primitives":[{"attributes":{"POSITION":0,"JOINTS_0":1,"WEIGHTS_0":2}}]})";
        gltf.nodes.push_back(R"({"translation":[0,0,3],"children":[2]})");
        gltf.nodes.push_back(R"({"translation":[0,0,2]})");
        gltf.roots = "0,1";
        gltf.more = R"(,"skins":[{"joints":[1,2],"inverseBindMatrices":3}])";
        return gltf;
    }
    /// A triangle with two targets, up by 1 and up by 10.
    static GltfText morphed(const std::string& meshMembers, const std::string& nodeMembers) {
        GltfText gltf = oneTriangle("{\"mesh\":0" + nodeMembers + "}");
        gltf.addVec3({0, 0, 1, 0, 0, 1, 0, 0, 1});
        gltf.addVec3({0, 0, 10, 0, 0, 10, 0, 0, 10});
        gltf.meshes[0] = R"({"primitives":[{"attributes":{"POSITION":0},"targets":[{"POSITION":1},)"
                         R"({"POSITION":2}]}])" +
                         meshMembers + "}";
        return gltf;
    }
};

TEST_F(GltfPoses, SkinnedVerticesStandWhereTheirJointsTakeThem) {
    // The node's own transform does not count.
    const auto result = import("skin.gltf", skinned().json());
    EXPECT_THAT(numbersOf(*result.input.meshes.at(0), "position"), ElementsAre(0, 0, 1, 1, 0, 3, 0, 1, 2));
    EXPECT_EQ(metadataOf(result, 0, "node"), "\"skinned\"");
    EXPECT_EQ(droppedOf(result, "bones"), 2u);
    EXPECT_THAT(result.report.notes, Contains(HasSubstr("1 skinned mesh")));
}

TEST_F(GltfPoses, WeightsNeedNotAddUpTo1) {
    GltfText gltf = skinned();
    gltf.addVec3({0, 0, 0});
    const std::vector<float> weights = {2, 0, 0, 0, 0.5f, 0, 0, 0, 1, 1, 0, 0};
    gltf.bytes.replace(48, 48, bytesOf(weights));
    EXPECT_THAT(positionsIn(gltf), ElementsAre(0, 0, 1, 1, 0, 3, 0, 1, 2));
}

TEST_F(GltfPoses, AJointThatTheSkinDoesNotHave) {
    GltfText gltf = skinned();
    gltf.bytes[36] = 2;
    const auto error = errorOf([&] { positionsIn(gltf); });
    EXPECT_EQ(error.code(), ImportCode::INDEX_OUT_OF_RANGE);
    EXPECT_THAT(error.what(), HasSubstr("joint 2"));
}

TEST_F(GltfPoses, OneMeshMayHaveAPoseForEachNode) {
    GltfText gltf = skinned();
    gltf.nodes.push_back(R"({"mesh":0,"translation":[0,0,7]})");
    gltf.roots = "0,1,3";
    const auto result = import("both.gltf", gltf.json());
    ASSERT_EQ(result.report.meshes, 2u);
    EXPECT_THAT(numbersOf(*result.input.meshes[1], "position"), ElementsAre(0, 0, 7, 1, 0, 7, 0, 1, 7));
}

TEST_F(GltfPoses, MorphTargetsAreAppliedByTheWeightsOfTheMesh) {
    EXPECT_THAT(positionsIn(morphed(R"(,"weights":[0.5,0.25])", "")), ElementsAre(0, 0, 3, 1, 0, 3, 0, 1, 3));
}

TEST_F(GltfPoses, TheWeightsOfTheNodeOverruleThoseOfTheMesh) {
    EXPECT_THAT(positionsIn(morphed(R"(,"weights":[1,1])", R"(,"weights":[0,1])")),
                ElementsAre(0, 0, 10, 1, 0, 10, 0, 1, 10));
}

TEST_F(GltfPoses, WithoutWeightsATargetDoesNothing) {
    EXPECT_THAT(positionsIn(morphed("", "")), ElementsAre(0, 0, 0, 1, 0, 0, 0, 1, 0));
}

// ---- The file around them ---------------------------------------------------------------------------------

class GltfFile : public ImporterTest {};

TEST_F(GltfFile, ARequiredExtensionThatIsNotKnownIsNamed) {
    GltfText gltf = oneTriangle();
    gltf.more = R"(,"extensionsRequired":["KHR_materials_sheen","VND_curved_space"])";
    const auto error = errorOf([&] { import("curved.gltf", gltf.json()); });
    EXPECT_EQ(error.code(), ImportCode::UNSUPPORTED_EXTENSION);
    EXPECT_THAT(error.what(), HasSubstr("\"VND_curved_space\""));
    EXPECT_EQ(error.place(), "extensionsRequired[1]");
}

TEST_F(GltfFile, AnExtensionThatIsOnlyUsedIsANote) {
    GltfText gltf = oneTriangle();
    gltf.more = R"(,"extensionsUsed":["VND_curved_space"])";
    EXPECT_THAT(import("curved.gltf", gltf.json()).report.notes, Contains(HasSubstr("VND_curved_space")));
}

TEST_F(GltfFile, ExtensionsOfLooksAreTold) {
    GltfText gltf = oneTriangle();
    gltf.more = R"(,"extensionsUsed":["KHR_texture_transform","KHR_materials_clearcoat"],)"
                R"("extensionsRequired":["KHR_texture_transform"])";
    EXPECT_EQ(droppedOf(import("coat.gltf", gltf.json()), "glTF extensions"), 2u);
}

TEST_F(GltfFile, ANewerVersionIsRefused) {
    GltfText gltf = oneTriangle();
    gltf.asset = R"({"version":"3.0"})";
    EXPECT_EQ(errorOf([&] { import("new.gltf", gltf.json()); }).code(), ImportCode::UNSUPPORTED_FEATURE);
    gltf.asset = R"({"version":"2.1","minVersion":"2.0"})";
    EXPECT_EQ(import("old.gltf", gltf.json()).report.triangles, 1u);
}

TEST_F(GltfFile, ANeighbourWithAnEncodedName) {
    const GltfText gltf = oneTriangle();
    std::string json = gltf.json(false);
    const std::string buffer = R"("buffers":[{)";
    json.insert(json.find(buffer) + buffer.size(), R"("uri":"my%20b%C3%BCffer.bin",)");
    file("my b\xC3\xBC"
         "ffer.bin",
         gltf.bytes);
    EXPECT_EQ(import("encoded.gltf", json).report.triangles, 1u);
}

TEST_F(GltfFile, ADataUriWithoutBase64) {
    const GltfText gltf = oneTriangle();
    std::string uri = "data:application/octet-stream,";
    for (const char c : gltf.bytes) {
        char code[4];
        std::snprintf(code, sizeof code, "%%%02X", static_cast<unsigned char>(c));
        uri += code;
    }
    std::string json = gltf.json(false);
    const std::string buffer = R"("buffers":[{)";
    json.insert(json.find(buffer) + buffer.size(), "\"uri\":\"" + uri + "\",");
    EXPECT_EQ(import("percent.gltf", json).report.triangles, 1u);
}

TEST_F(GltfFile, ANameThatIsNotUtf8IsRepaired) {
    const auto result = import("latin.gltf", oneTriangle("{\"mesh\":0,\"name\":\"Gr\xF6\xDF"
                                                         "e\"}")
                                                 .json());
    EXPECT_EQ(metadataOf(result, 0, "name"), "\"Gr\uFFFD\uFFFDe\"");
    EXPECT_THAT(result.report.notes, Contains(HasSubstr("not UTF-8")));
}

TEST_F(GltfFile, LargeNumbersAmongExtrasStayWhole) {
    const auto result =
        import("ids.gltf", oneTriangle(R"({"mesh":0,"extras":{"id": 9223372036854775809 }})").json());
    EXPECT_EQ(metadataOf(result, 0, "extras"), R"({"id":9223372036854775809})");
}

TEST_F(GltfFile, AMemberOfTheWrongTypeIsPlaced) {
    const auto error =
        errorOf([&] { import("odd.gltf", oneTriangle(R"({"mesh":0,"translation":[1,"2",3]})").json()); });
    EXPECT_EQ(error.code(), ImportCode::INVALID_MODEL);
    EXPECT_EQ(error.place(), "nodes[0]");
    EXPECT_THAT(error.what(), HasSubstr("\"translation\""));
}

// ---- Copies -----------------------------------------------------------------------------------------------

class GltfCopies : public ImporterTest {
protected:
    /// `nodes` nodes, each of which places the mesh of one triangle `instances` times, all by the same accessor.
    static std::string json(std::size_t nodes, std::size_t instances) {
        GltfText gltf = oneTriangle();
        const std::size_t places = gltf.addVec3(std::vector<float>(3 * instances, 1.0f));
        gltf.nodes.assign(
            nodes, R"({"mesh":0,"extensions":{"EXT_mesh_gpu_instancing":{"attributes":{"TRANSLATION":)" +
                       std::to_string(places) + "}}}}");
        gltf.roots.clear();
        for (std::size_t n = 0; n < nodes; ++n)
            gltf.roots += (n == 0 ? "" : ",") + std::to_string(n);
        return gltf.json();
    }
};

TEST_F(GltfCopies, MillionsOfInstancesInASmallFileAreRefused) {
    const auto error = errorOf([&] { import("many.gltf", json(10000, 10000)); });
    EXPECT_EQ(error.code(), ImportCode::TOO_MANY_COPIES);
    EXPECT_THAT(error.what(), HasSubstr("it is placed 100000000 times"));
    EXPECT_THAT(error.what(), HasSubstr("copies may take 4295 MB (mesh 0)"));
}

TEST_F(GltfCopies, TheLimitIsTheCallers) {
    ImportOptions options;
    options.maxCopiedBytes = 100 * 1024;
    EXPECT_EQ(import("some.gltf", json(10, 9), options).report.meshes, 90u);
    EXPECT_EQ(errorOf([&] { import("some.gltf", json(10, 12), options); }).code(),
              ImportCode::TOO_MANY_COPIES);
}

TEST_F(GltfCopies, PrimitivesThatShareNumbersAreCopies) {
    GltfText gltf;
    gltf.addVec3(std::vector<float>(3 * 10000, 1.0f));
    gltf.meshes = {R"({"primitives":[)" +
                   joined(std::vector<std::string>(100, R"({"attributes":{"POSITION":0}})")) + "]}"};
    gltf.nodes = {R"({"mesh":0})"};
    ImportOptions options;
    options.maxCopiedBytes = 10 * 1000 * 1000;
    EXPECT_EQ(errorOf([&] { import("shared.gltf", gltf.json(), options); }).code(),
              ImportCode::TOO_MANY_COPIES);
}

} // namespace kel::importer::test
