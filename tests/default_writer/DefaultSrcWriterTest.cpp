#include <kel/material/MaterialClassic.h>
#include <kel/mesh/DefaultMesh.h>
#include <kel/src/DefaultSrcWriter.h>

#include <support/SrcText.h>
#include <support/Streams.h>

#include <gtest/gtest.h>

#include <limits>
#include <sstream>

namespace {

using kel::material::MaterialClassic;
using kel::mesh::DefaultMesh;
using kel::src::SrcWriterInput;
using kel::src::detail::writeMeshSrcDefault;
using kel::tests::CapturedStreams;
using kel::tests::SrcText;
using kel::tests::written;
using Texts = std::map<std::string, std::string>;

std::shared_ptr<DefaultMesh> triangle() {
    auto mesh = std::make_shared<DefaultMesh>();
    mesh->addAttribute("position", 3, std::vector<float>{0, 0, 0, 0.5f, 0, 0, 0, 0.5f, 0});
    mesh->setIndices(std::vector<std::uint16_t>{0, 1, 2});
    return mesh;
}

SrcText fileOf(const SrcWriterInput& input) {
    return written([&](std::ostream& out) { writeMeshSrcDefault(input, out); });
}

/// A material of somebody else's kind.
class OtherMaterial : public kel::material::Material {
public:
    OtherMaterial() : Material(3) {}
    const std::shared_ptr<kel::material::MaterialDescription>& getDescription() const override {
        return description;
    }
    kel::material::AttributeValues getAttribute(const std::string&) const override { return {}; }

private:
    std::shared_ptr<kel::material::MaterialDescription> description;
};

class DerivedClassic : public MaterialClassic {};

TEST(DefaultSrcWriter, OfNoMeshesWritesOnlyTheTechnique) {
    const SrcText file = fileOf({});
    for (const auto& [section, value] : file.json.get<picojson::object>()) {
        if (section == "techniques") {
            EXPECT_EQ(value.get<picojson::object>().size(), 1u);
            EXPECT_TRUE(value.contains("x3dStandardMaterialTechnique"));
        } else if (section != "accessors") {
            EXPECT_EQ(value.serialize(), "{}") << section;
        }
    }
    EXPECT_EQ(file.data, "");
}

TEST(DefaultSrcWriter, MaterialsAreNumberedByMeshPosition) {
    SrcWriterInput input;
    input.meshes = {triangle(), triangle(), triangle()};
    input.meshMaterials[input.meshes[1]] = std::make_shared<MaterialClassic>(9);
    const SrcText file = fileOf(input);
    EXPECT_EQ(file.json.get("materials").get<picojson::object>().size(), 1u);
    EXPECT_EQ(file.at("meshes", "0", "material"), "\"\"");
    EXPECT_EQ(file.at("meshes", "1", "material"), "\"material1\"");
    EXPECT_EQ(file.at("meshes", "2", "material"), "\"\"");
}

TEST(DefaultSrcWriter, ASharedMaterialIsWrittenOncePerMesh) {
    SrcWriterInput input;
    input.meshes = {triangle(), triangle()};
    const auto material = std::make_shared<MaterialClassic>(9);
    for (const auto& mesh : input.meshes)
        input.meshMaterials[mesh] = material;
    const SrcText file = fileOf(input);
    EXPECT_NE(file.at("materials", "material0"), "");
    EXPECT_EQ(file.at("materials", "material0"), file.at("materials", "material1"));
}

TEST(DefaultSrcWriter, OnlyClassicMaterialsAndTheirKindAreWritten) {
    SrcWriterInput input;
    input.meshes = {triangle(), triangle(), triangle()};
    input.meshMaterials[input.meshes[0]] = std::make_shared<OtherMaterial>();
    input.meshMaterials[input.meshes[1]] = nullptr;
    input.meshMaterials[input.meshes[2]] = std::make_shared<DerivedClassic>();
    const SrcText file = fileOf(input);
    EXPECT_EQ(file.json.get("materials").get<picojson::object>().size(), 1u);
    EXPECT_EQ(file.at("meshes", "2", "material"), "\"material2\"");
}

TEST(DefaultSrcWriter, CreatesEntriesInMeshOrder) {
    SrcWriterInput input;
    for (int i = 0; i < 2; ++i) {
        const auto mesh = triangle();
        mesh->addAttribute("normal", 3, std::vector<float>{0, 0, 1, 0, 0, 1, 0, 0, 1});
        input.meshes.push_back(mesh);
    }
    const SrcText file = fileOf(input);
    EXPECT_EQ(file.at("meshes", "1", "indices"), "\"indexView1\"");
    EXPECT_EQ(file.at("meshes", "1", "attributes"),
              R"({"normal":"attributeView3","position":"attributeView2"})");
    EXPECT_EQ(file.at("accessors", "indexViews", "indexView1", "bufferView"), "\"bufferView3\"");
    EXPECT_EQ(file.at("bufferViews", "bufferView5", "chunks"), R"(["chunk5"])");
    EXPECT_EQ(file.at("bufferChunks", "chunk5"), R"({"byteLength":36,"byteOffset":120})");
}

TEST(DefaultSrcWriter, TheDefaultPresetKeepsFloats) {
    SrcWriterInput input;
    input.meshes = {triangle()};
    EXPECT_EQ(fileOf(input).at("accessors", "attributeViews", "attributeView0", "componentType"), "5126");
}

TEST(DefaultSrcWriter, TheCompressedPresetStoresCodes) {
    SrcWriterInput input;
    const auto mesh = triangle();
    mesh->addAttribute("normal", 3, std::vector<float>(9));
    mesh->addAttribute("texcoord", 2, std::vector<float>(6));
    mesh->addAttribute("color", 3, std::vector<float>(9));
    mesh->addAttribute("id", 1, std::vector<float>(3));
    input.meshes = {mesh};
    input.useCompressedPreset = true;
    const SrcText file = fileOf(input);
    const char* expected[] = {"5123", "5121", "5123", "5121", "5126"};
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(
            file.at("accessors", "attributeViews", "attributeView" + std::to_string(i), "componentType"),
            expected[i]);
    }
}

TEST(DefaultSrcWriter, ChangingItsCopyLeavesThePresetAlone) {
    SrcWriterInput input;
    input.meshes = {triangle()};
    fileOf(input);
    input.useCompressedPreset = true;
    fileOf(input);
    input.useCompressedPreset = false;
    EXPECT_EQ(fileOf(input).at("accessors", "attributeViews", "attributeView0", "componentType"), "5126");
}

TEST(DefaultSrcWriter, StatisticsReachTheCallersMapsAndTheFile) {
    SrcWriterInput input;
    input.meshes = {triangle(), triangle()};
    const auto meta = std::make_shared<Texts>();
    input.metaData[input.meshes[0]] = meta;
    const SrcText file = fileOf(input);
    EXPECT_EQ(meta->at("surfaceArea"), "0.125000");
    EXPECT_EQ(file.at("meshes", "0", "meta"), file.at("meshes", "1", "meta"));
    EXPECT_EQ(input.metaData.size(), 1u);
}

TEST(DefaultSrcWriter, AnEmptyMetaDataPointerIsLikeNone) {
    SrcWriterInput input;
    input.meshes = {triangle()};
    input.metaData[input.meshes[0]] = nullptr;
    EXPECT_EQ(fileOf(input).at("meshes", "0", "meta", "numOriginalVertices"), "3");
}

TEST(DefaultSrcWriter, TheMaterialOfASkippedMeshIsStillAdded) {
    SrcWriterInput input;
    const auto mesh = std::make_shared<DefaultMesh>();
    mesh->setIndices(std::vector<std::uint16_t>{0});
    input.meshes = {mesh, triangle()};
    input.meshMaterials[mesh] = std::make_shared<MaterialClassic>(1);
    CapturedStreams streams;
    const SrcText file = fileOf(input);
    EXPECT_EQ(streams.err(), "No attribute buffer with default positions name \"position\" found in mesh\n"
                             "ERROR: Cannot assign material to mesh with ID \"\", no such mesh found.\n");
    EXPECT_NE(file.at("materials", "material0"), "");
    EXPECT_EQ(file.at("meshes", "0"), "");
    EXPECT_NE(file.at("meshes", "1"), "");
}

TEST(DefaultSrcWriter, AMeshWithoutIndicesIsSkippedAndTheExportGoesOn) {
    SrcWriterInput input;
    const auto unindexed = std::make_shared<DefaultMesh>();
    unindexed->addAttribute("position", 3, std::vector<float>(9));
    input.meshes = {unindexed, triangle()};
    CapturedStreams streams;
    const SrcText file = fileOf(input);
    EXPECT_EQ(file.at("meshes", "0"), "");
    EXPECT_NE(file.at("meshes", "1"), "");
}

TEST(DefaultSrcWriter, ANumberThatIsNoneLeavesTheStreamUntouched) {
    SrcWriterInput input;
    const auto mesh = triangle();
    mesh->addAttribute("position", 3, std::vector<float>(9, std::numeric_limits<float>::quiet_NaN()));
    input.meshes = {triangle(), mesh};
    std::ostringstream out;
    EXPECT_THROW(writeMeshSrcDefault(input, out), std::overflow_error);
    EXPECT_EQ(out.str(), "");
}

TEST(DefaultSrcWriter, EqualInputGivesEqualBytes) {
    SrcWriterInput input;
    for (int i = 0; i < 20; ++i)
        input.meshes.push_back(triangle());
    std::ostringstream first, second;
    writeMeshSrcDefault(input, first);
    writeMeshSrcDefault(input, second);
    EXPECT_EQ(first.str(), second.str());
}

} // namespace
