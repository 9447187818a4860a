#include <kel/prepare/KeepAttributes.h>
#include <kel/scene/Scene.h>

#include <kel/src/DefaultSrcWriter.h>

#include <support/Meshes.h>
#include <support/SrcText.h>
#include <support/Streams.h>

#include <gmock/gmock.h>

namespace {

using namespace fixture;
using kel::prepare::ApartReport;
using kel::prepare::keepAttributesApart;
using kel::prepare::keepStoredAttributes;
using kel::prepare::UnstoredAttribute;
using kel::src::SrcWriterInput;
using testing::ElementsAre;
using testing::IsEmpty;

/// The unit square with positions, normals and the attributes of these names, two or three floats each, all
/// 0.5.
DefaultMeshPtr squareWith(const std::vector<std::string>& names) {
    auto mesh = noNormals();
    for (const auto& name : names) {
        const std::size_t components = name.compare(0, 8, "texcoord") == 0 ? 2 : name == "id" ? 1 : 3;
        mesh->addAttribute(name, components, std::vector<float>(4 * components, 0.5f));
    }
    return mesh;
}

std::vector<std::string> namesOf(const kel::mesh::Mesh& mesh) {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < mesh.getNumAttributeBuffers(); ++i)
        names.push_back(mesh.getAttributeBuffer(i)->getAttributeName());
    return names;
}

std::vector<std::string> meshNames(const SrcWriterInput& input) {
    std::vector<std::string> names;
    for (const auto& entry : kel::scene::fromInput(input).meshes)
        names.push_back(nameOfMesh(entry));
    return names;
}

// ---- keepStoredAttributes -------------------------------------------------------------------------------

TEST(KeepStoredAttributes, RemovesNamesThatThePresetDoesNotKnow) {
    const auto input =
        inputOf({squareWith({"normal", "texcoord", "texcoord1"}), squareWith({"texcoord1", "weight"})});
    std::vector<UnstoredAttribute> removed;
    const auto result = keepStoredAttributes(input, &removed);
    EXPECT_THAT(namesOf(*result.meshes[0]), ElementsAre("position", "normal", "texcoord"));
    EXPECT_THAT(namesOf(*result.meshes[1]), ElementsAre("position"));
    ASSERT_EQ(removed.size(), 2u);
    EXPECT_EQ(removed[0].attribute, "texcoord1");
    EXPECT_EQ(removed[0].components, 2u);
    EXPECT_EQ(removed[0].meshes, 2u);
    EXPECT_EQ(removed[1].attribute, "weight");
    EXPECT_EQ(removed[1].meshes, 1u);
}

TEST(KeepStoredAttributes, RemovesFourComponentsAndNarrowTypes) {
    auto mesh = noNormals();
    mesh->addAttribute("color", 4, std::vector<float>(16, 1.0f));
    mesh->addAttribute("normal", 3, std::vector<std::int8_t>(12, 1));
    const auto result = keepStoredAttributes(inputOf({mesh}));
    EXPECT_THAT(namesOf(*result.meshes[0]), ElementsAre("position"));
}

TEST(KeepStoredAttributes, TheWriterThenPrintsNothing) {
    auto mesh = squareWith({"texcoord1", "weight"});
    mesh->addAttribute("color", 4, std::vector<float>(16, 1.0f));
    const auto result = keepStoredAttributes(inputOf({mesh}));
    const kel::tests::CapturedStreams streams;
    std::ostringstream out;
    kel::src::writeMeshSrcDefault(result, out);
    EXPECT_EQ(streams.out(), "");
    EXPECT_EQ(streams.err(), "");
}

TEST(KeepStoredAttributes, LeavesMeshesAloneThatLoseNothing) {
    const auto input = inputOf({squareWith({"normal", "color", "id"})});
    std::vector<UnstoredAttribute> removed;
    const auto result = keepStoredAttributes(input, &removed);
    EXPECT_EQ(result.meshes, input.meshes);
    EXPECT_THAT(removed, IsEmpty());
}

TEST(KeepStoredAttributes, KeepsBuffersMaterialAndMetadata) {
    auto input = inputOf({squareWith({"weight"})});
    const auto red = material(1, 0, 0);
    input.meshMaterials[input.meshes[0]] = red;
    const auto result = keepStoredAttributes(input);
    ASSERT_NE(result.meshes[0], input.meshes[0]);
    EXPECT_EQ(result.meshes[0]->getAttributeBuffer("position"),
              input.meshes[0]->getAttributeBuffer("position"));
    EXPECT_EQ(result.meshes[0]->getIndexBuffer(), input.meshes[0]->getIndexBuffer());
    EXPECT_EQ(result.meshMaterials.at(result.meshes[0]), red);
    EXPECT_EQ(result.metaData.at(result.meshes[0]), input.metaData.at(input.meshes[0]));
}

TEST(KeepStoredAttributes, AMeshThatIsListedTwiceStaysOne) {
    const auto mesh = squareWith({"weight"});
    auto input = inputOf({mesh});
    input.meshes.push_back(mesh);
    const auto result = keepStoredAttributes(input);
    EXPECT_EQ(result.meshes[0], result.meshes[1]);
    EXPECT_THAT(namesOf(*result.meshes[1]), ElementsAre("position"));
}

// ---- keepAttributesApart --------------------------------------------------------------------------------

TEST(KeepAttributesApart, ChangesNothingWhenEachMeshHasWhatItsPredecessorsHave) {
    const auto input = inputOf({squareWith({}), squareWith({"normal"}), squareWith({"normal", "texcoord"})});
    ApartReport report;
    const auto result = keepAttributesApart(input, &report);
    EXPECT_EQ(result.meshes, input.meshes);
    EXPECT_EQ(report.moved, 0u);
    EXPECT_THAT(report.filled, IsEmpty());
}

TEST(KeepAttributesApart, PutsMeshesWithFewerAttributesFirstAndKeepsTheOrderOfEquals) {
    const auto input = inputOf({squareWith({"normal"}), squareWith({"normal", "texcoord"}), squareWith({}),
                                squareWith({"normal"}), squareWith({})});
    ApartReport report;
    const auto result = keepAttributesApart(input, &report);
    EXPECT_THAT(meshNames(result), ElementsAre("mesh2", "mesh4", "mesh0", "mesh3", "mesh1"));
    EXPECT_EQ(report.moved, 4u); // mesh3 stays at position 3
    EXPECT_THAT(report.filled, IsEmpty());
}

TEST(KeepAttributesApart, FillsInWhereNoOrderDoes) {
    const auto input = inputOf({squareWith({"texcoord"}), squareWith({"color"}), squareWith({"id"})});
    ApartReport report;
    const auto result = keepAttributesApart(input, &report);
    // By name: {color, position}, {id, position}, {position, texcoord}.
    EXPECT_THAT(meshNames(result), ElementsAre("mesh1", "mesh2", "mesh0"));
    EXPECT_THAT(floatsOf(*result.meshes[1], "color"), ElementsAre(1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1));
    EXPECT_THAT(floatsOf(*result.meshes[2], "id"), ElementsAre(0, 0, 0, 0));
    EXPECT_THAT(floatsOf(*result.meshes[2], "texcoord"), ElementsAre(.5f, .5f, .5f, .5f, .5f, .5f, .5f, .5f));
    EXPECT_EQ(result.metaData.at(result.meshes[2])->at("filled"), R"(["color","id"])");
    ASSERT_EQ(report.filled.size(), 2u);
    EXPECT_EQ(report.filled[0].attribute, "color");
    EXPECT_EQ(report.filled[0].meshes, 2u);
    EXPECT_EQ(report.filled[1].attribute, "id");
    EXPECT_EQ(report.filled[1].meshes, 1u);
}

TEST(KeepAttributesApart, LeavesTheCallersMetadataAlone) {
    const auto input = inputOf({squareWith({"texcoord"}), squareWith({"color"})});
    keepAttributesApart(input);
    EXPECT_EQ(input.metaData.at(input.meshes[0])->count("filled"), 0u);
}

TEST(KeepAttributesApart, ComputesMissingNormalsFromTheTriangles) {
    // Two triangles that share the edge from (0, 0, 0) to (0, 0, 1): one in the plane y = 0, area 1/2, normal
    // +y; one in the plane x = 0, area 3/2, normal -x. Their common corners lean three times as far to -x.
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
    mesh->addAttribute("position", 3, std::vector<float>{0, 0, 0, 0, 0, 1, 1, 0, 0, 0, 3, 0, 9, 9, 9});
    mesh->addAttribute("texcoord", 2, std::vector<float>(10, 0.0f));
    mesh->setIndices(std::vector<std::uint16_t>{0, 1, 2, 0, 1, 3});
    const auto result = keepAttributesApart(inputOf({squareWith({"normal"}), mesh}));
    const auto normals = floatsOf(*result.meshes[1], "normal");
    ASSERT_EQ(normals.size(), 15u);
    const float long3 = 3.0f / std::sqrt(10.0f), short1 = 1.0f / std::sqrt(10.0f);
    const std::vector<float> expected{-long3, short1, 0, -long3, short1, 0, 0, 1, 0, -1, 0, 0, 0, 0, 1};
    for (std::size_t i = 0; i < normals.size(); ++i)
        EXPECT_NEAR(normals[i], expected[i], 1e-6f) << i;
}

/// What the container writer makes of the input: for each mesh the names of its attributes, and that none of
/// their views is another mesh's.
std::vector<std::vector<std::string>> writtenAttributes(const SrcWriterInput& input) {
    const auto file =
        kel::tests::written([&](std::ostream& out) { kel::src::writeMeshSrcDefault(input, out); });
    std::vector<std::vector<std::string>> result;
    std::set<std::string> views;
    for (std::size_t i = 0; i < input.meshes.size(); ++i) {
        result.emplace_back();
        const auto& attributes = file.json.get("meshes").get(std::to_string(i)).get("attributes");
        for (const auto& [name, view] : attributes.get<picojson::object>()) {
            result.back().push_back(name);
            EXPECT_TRUE(views.insert(view.get<std::string>()).second)
                << "mesh " << i << " shares its " << name;
        }
    }
    return result;
}

TEST(KeepAttributesApart, NoMeshOfTheFileRefersToValuesOfAnother) {
    const auto input = inputOf({squareWith({"normal", "texcoord"}), squareWith({"color"}),
                                squareWith({"normal"}), squareWith({}), squareWith({"normal", "color"})});
    EXPECT_THAT(writtenAttributes(keepAttributesApart(input)),
                ElementsAre(ElementsAre("position"), ElementsAre("color", "position"),
                            ElementsAre("color", "normal", "position"),
                            ElementsAre("color", "normal", "position"),
                            ElementsAre("color", "normal", "position", "texcoord")));
}

TEST(KeepAttributesApart, AnEmptyInputStaysEmpty) {
    EXPECT_THAT(keepAttributesApart(SrcWriterInput()).meshes, IsEmpty());
}

// ---- meshName -------------------------------------------------------------------------------------------

TEST(MeshName, IsTheContentOfAJsonStringAndAnyOtherTextAsItIs) {
    auto input = inputOf({noNormals(), noNormals(), noNormals()});
    (*input.metaData[input.meshes[0]])["name"] = R"("a \"b\"")";
    (*input.metaData[input.meshes[1]])["name"] = "plain";
    input.metaData.erase(input.meshes[2]);
    EXPECT_THAT(meshNames(input), ElementsAre("a \"b\"", "plain", ""));
}

} // namespace
