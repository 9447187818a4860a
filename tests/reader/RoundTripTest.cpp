#include "Files.h"

#include <kel/src/SrcReader.h>

#include <gtest/gtest.h>

namespace {

using namespace kel::src;
using namespace reader_fixture;

/// Meshes of every kind that both writers take, with metadata and materials, some shared.
SrcWriterInput variety() {
    auto wide = fixture::sphere(9, 6);
    std::vector<float> weights(wide->getAttributeBuffer("position")->getElementCount(), 0.25f);
    wide->addAttribute("id", 1, std::move(weights));
    auto input = fixture::inputOf({fixture::unitSquare(), wide, fixture::tetrahedron(), octahedron(),
                                   fixture::unitSquare(), fixture::grid(3, 2)});
    auto& texts = *input.metaData[input.meshes[1]];
    texts["list"] = R"([1, 2.5, {"deep": null}])";
    texts["text"] = R"("a \"quoted\" \u00e9 / text")";
    texts["number"] = "0.1";
    const auto red = fixture::material(1, 0, 0);
    red->setTransparency(0.5f);
    red->setShininess(0.3f);
    const auto green = fixture::material(0, 1, 0);
    input.materials = {red, green};
    input.meshMaterials[input.meshes[0]] = red;
    input.meshMaterials[input.meshes[3]] = green;
    return input;
}

std::string again(const std::string& text, Mode mode) {
    const SrcFile file = read(text);
    return write(toInput(file), mode);
}

TEST(ToInput, WritesTheSameBytesAgainWhereNothingIsLost) {
    for (const Mode mode : {Mode::DEFAULT, Mode::UNCOMPRESSED}) {
        const std::string text = write(variety(), mode);
        EXPECT_EQ(again(text, mode), text);
    }
}

TEST(ToInput, WritesTheSameCodesAgainForTheCompressedPreset) {
    const std::string text = write(variety(), Mode::CMP1);
    const SrcFile file = read(text);
    const SrcWriterInput input = toInput(file);
    EXPECT_TRUE(input.useCompressedPreset);
    const std::string second = write(input, Mode::CMP1);
    EXPECT_EQ(SrcText(second).data, SrcText(text).data);
}

TEST(ToInput, EveryCodeOfThePresetsQuantizerComesBack) {
    // All 65536 codes of a position component, and all 256 of a normal's.
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
    std::vector<float> positions, normals;
    for (int i = 0; i < 65536; ++i) {
        positions.insert(positions.end(), 3, (static_cast<float>(i) + 0.5f) / 65536.0f - 0.5f);
        normals.insert(normals.end(), 3, static_cast<float>(i % 256) / 255.0f - 0.5f);
    }
    mesh->addAttribute("position", 3, std::move(positions));
    mesh->addAttribute("normal", 3, std::move(normals));
    mesh->setIndices(std::vector<std::uint32_t>{0, 1, 65535});
    const std::string text = write(fixture::inputOf({mesh}), Mode::CMP1);
    EXPECT_EQ(SrcText(again(text, Mode::CMP1)).data, SrcText(text).data);
}

TEST(ToInput, WritesTheSameCodesAgainForCompressedPositions) {
    const std::string text = write(variety(), Mode::POSITIONS);
    EXPECT_EQ(SrcText(again(text, Mode::POSITIONS)).data, SrcText(text).data);
}

TEST(ToInput, WritesTheSamePositionCodesAgainForCombinedVertices) {
    const std::string text = write(variety(), Mode::POSITIONS_AND_NORMALS);
    const std::string second = again(text, Mode::POSITIONS_AND_NORMALS);
    const IndependentReading before(text), after(second);
    for (const std::string& id : before.meshIds()) {
        for (const std::string& name : before.attributeNames(id)) {
            if (name != "pos3us_nor2ub_oct") continue;
            const auto a = before.attribute(id, name).codes, b = after.attribute(id, name).codes;
            for (std::size_t e = 0; e < a.size(); ++e)
                for (std::size_t axis = 0; axis < 3; ++axis)
                    EXPECT_EQ(a[e][axis], b.at(e)[axis]) << id << " vertex " << e;
        }
    }
}

TEST(ToInput, NormalsComeBackToTheSameDirection) {
    const std::string text = write(variety(), Mode::POSITIONS_AND_NORMALS);
    const std::string second = again(text, Mode::POSITIONS_AND_NORMALS);
    const SrcFile before = read(text), after = read(second);
    for (std::size_t m = 0; m < before.meshes().size(); ++m) {
        const DecodedMesh a = decodeMesh(before, before.meshes()[m]),
                          b = decodeMesh(after, after.meshes()[m]);
        ASSERT_EQ(a.attributes.size(), b.attributes.size());
        if (a.find("normal")) {
            EXPECT_EQ(a.find("normal")->values, b.find("normal")->values);
        }
    }
}

TEST(ToInput, KeepsComponentTypesIndexWidthsAndAttributeOrder) {
    auto mesh = fixture::tetrahedron();
    mesh->addAttribute("weights", 4, std::vector<std::uint8_t>(16, 7));
    mesh->addAttribute("a", 1, std::vector<std::int16_t>{-1, 2, -3, 4});
    const std::string text = write(fixture::inputOf({mesh}), Mode::UNCOMPRESSED);
    const SrcFile file = read(text);
    const SrcWriterInput input = toInput(file);
    ASSERT_EQ(input.meshes.size(), 1u);
    EXPECT_EQ(input.meshes[0]->getIndexBuffer()->getElementSizeInBytes(), 2u);
    ASSERT_EQ(input.meshes[0]->getNumAttributeBuffers(), 3u);
    EXPECT_EQ(input.meshes[0]->getAttributeBuffer(1)->getAttributeName(), "weights");
    EXPECT_EQ(input.meshes[0]->getAttributeBuffer(1)->getComponentType(), kel::mesh::UNSIGNED_BYTE);
    EXPECT_EQ(input.meshes[0]->getAttributeBuffer(2)->getComponentType(), kel::mesh::SHORT);
}

TEST(ToInput, RecognisesPointsAndLinesOfTheContainerWriterByTheirStatistics) {
    auto lines = fixture::pointRow(4);
    lines->setPrimitiveType(kel::mesh::LINES);
    const std::string text = write(fixture::inputOf({fixture::pointRow(3), lines}), Mode::DEFAULT);
    const SrcFile file = read(text);
    const SrcWriterInput input = toInput(file);
    EXPECT_EQ(input.meshes[0]->getPrimitiveType(), kel::mesh::POINTS);
    EXPECT_EQ(input.meshes[1]->getPrimitiveType(), kel::mesh::LINES);
    EXPECT_EQ(again(text, Mode::DEFAULT), text);
}

TEST(ToInput, AMeshWithoutIndicesMaterialOrMetadataStaysOne) {
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>(kel::mesh::TRIANGLE_FAN);
    mesh->addAttribute("position", 3, std::vector<float>{0, 0, 0, 1, 0, 0, 0, 1, 0});
    SrcWriterInput input;
    input.meshes.push_back(mesh);
    const std::string text = write(input, Mode::UNCOMPRESSED);
    const SrcFile file = read(text);
    EXPECT_EQ(file.meshes()[0].indexView, SRC_NONE);
    const SrcWriterInput back = toInput(file);
    EXPECT_EQ(back.meshes[0]->getIndexBuffer(), nullptr);
    EXPECT_EQ(back.meshes[0]->getPrimitiveType(), kel::mesh::TRIANGLE_FAN);
    EXPECT_TRUE(back.metaData.empty());
    EXPECT_TRUE(back.meshMaterials.empty());
    EXPECT_EQ(again(text, Mode::UNCOMPRESSED), text);
}

TEST(ToInput, RefusesCopiesBeyondTheLimit) {
    const std::string text = triangleFile();
    const SrcFile file = read(text);
    ReadLimits small;
    small.memoryBytes = 60;
    try {
        toInput(file, small);
        FAIL();
    } catch (const SrcError& error) {
        EXPECT_EQ(error.code(), SrcCode::LIMIT_EXCEEDED);
    }
}

} // namespace
