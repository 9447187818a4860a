// The builder library by itself, judged by the files it writes.
#include "support/SrcFile.h"

#include <src/SrcWriter.h>
#include <src/Technique.h>
#include <src/builder/MaterialBuilder.h>
#include <src/builder/MeshBuilder.h>
#include <src/builder/SrcBuilder.h>
#include <src/builder/TechniqueBuilder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <sstream>
#include <stdexcept>

namespace {

using namespace src;
using namespace src::builder;
using kel::tests::SrcFile;
using testing::ElementsAre;
using testing::HasSubstr;
using Element = SrcFile::Element;
using Doubles = std::shared_ptr<std::vector<double>>;

SrcFile fileOf(const std::shared_ptr<SrcBuilder>& builder) {
    std::ostringstream out;
    SrcWriter::create()->write(builder->build(), out);
    return SrcFile(out.str());
}

template<typename T>
T* arrayOf(const std::vector<T>& values) {
    auto* array = new T[values.size()];
    std::copy(values.begin(), values.end(), array);
    return array;
}

Doubles doubles(std::vector<double> values) {
    return std::make_shared<std::vector<double>>(std::move(values));
}

std::shared_ptr<AttributeView> addFloats(SrcBuilder& builder, std::vector<float> values) {
    return builder.addDefaultAttributeView(arrayOf(values), FLOAT, 1, values.size(), nullptr, nullptr);
}

std::shared_ptr<Mesh> meshWith(const std::string& name, const std::shared_ptr<Material>& material = nullptr) {
    const auto mesh = MeshBuilder::create(name, nullptr, POINTS);
    mesh->setMaterial(material);
    return mesh->build();
}

std::shared_ptr<Material>
materialWith(const std::string& name, double shininess,
             const std::shared_ptr<Technique>& technique = TechniqueBuilder::createStandardTechnique()) {
    const auto material = MaterialBuilder::create(name, technique);
    material->addParameterValue("shininess", {shininess});
    return material->build();
}

/// What the writer throws; the stream must be untouched then.
template<typename Error>
std::string refusalOf(const std::shared_ptr<SrcBuilder>& builder,
                      std::uint32_t limit = std::numeric_limits<std::uint32_t>::max()) {
    std::ostringstream out;
    const auto writer = SrcWriter::create();
    writer->setHeaderLimit(limit);
    std::string message;
    try {
        writer->write(builder->build(), out);
    } catch (const Error& error) {
        message = error.what();
    }
    EXPECT_EQ(out.str(), "");
    return message;
}

TEST(SrcBuilder, AViewOfEachKindInTheContainersWords) {
    const auto builder = SrcBuilder::create();
    builder->addDefaultIndexView(arrayOf<unsigned short>({0, 1, 2}), UNSIGNED_SHORT, 3);
    builder->addDefaultAttributeView(arrayOf<float>({1, 2, 3, 4, 5, 6}), FLOAT, 3, 2, nullptr, nullptr);
    const SrcFile file = fileOf(builder);
    EXPECT_EQ(
        file.at("accessors"),
        R"({"attributeViews":{"attributeView0":{"bufferView":"bufferView1","byteOffset":0,"byteStride":12,)"
        R"("componentType":5126,"count":2,"decodeOffset":[0,0,0],"decodeScale":[1,1,1],"type":"VEC3"}},)"
        R"("indexViews":{"indexView0":{"bufferView":"bufferView0","byteOffset":0,"componentType":5123,"count":3}}})");
    EXPECT_EQ(file.at("bufferChunks"),
              R"({"chunk0":{"byteLength":6,"byteOffset":0},"chunk1":{"byteLength":24,"byteOffset":6}})");
    EXPECT_EQ(
        file.at("bufferViews"),
        R"({"bufferView0":{"byteLength":6,"chunks":["chunk0"]},"bufferView1":{"byteLength":24,"chunks":["chunk1"]}})");
    EXPECT_EQ(file.data.size(), 30u);
    EXPECT_EQ(file.data.substr(0, 6), std::string("\0\0\1\0\2\0", 6));
}

TEST(SrcBuilder, TheHeaderIsCompactAndSorted) {
    const auto builder = SrcBuilder::create();
    for (int i = 0; i < 12; ++i)
        addFloats(*builder, {1});
    const SrcFile file = fileOf(builder);
    // picojson's own serialisation of what it has read sorts and packs in the same way.
    EXPECT_EQ(file.header, file.json.serialize());
    EXPECT_LT(file.header.find("attributeView11"), file.header.find("attributeView2"));
}

TEST(SrcBuilder, FourComponentsAreVec4) {
    const auto builder = SrcBuilder::create();
    const auto mesh = MeshBuilder::create("m", nullptr, POINTS);
    const std::vector<std::pair<unsigned, std::string>> types = {
        {1, "SCALAR"}, {2, "VEC2"}, {3, "VEC3"}, {4, "VEC4"}};
    for (const auto& [components, type] : types) {
        mesh->addAttribute(type, builder->addDefaultAttributeView(arrayOf<signed char>({-1, 2, 3, -128}),
                                                                  BYTE, components, 1, nullptr, nullptr));
    }
    builder->addMesh(mesh->build());
    const SrcFile file = fileOf(builder);
    for (const auto& [components, type] : types) {
        const auto attribute = file.attribute("m", type);
        EXPECT_EQ(attribute.type, type);
        EXPECT_EQ(attribute.decoded[0].size(), components);
        EXPECT_EQ(attribute.decoded[0][0], -1);
    }
}

TEST(SrcBuilder, InterleavedViewsReadTheirOwnPart) {
    const auto builder = SrcBuilder::create();
    const auto bytes =
        builder->addBufferView(arrayOf<unsigned short>({1, 2, 3, 0x0504, 6, 7, 8, 0x0a09}), 16);
    const auto mesh = MeshBuilder::create("m", nullptr, POINTS);
    mesh->addAttribute("a", builder->addAttributeView(bytes, 0, 8, UNSIGNED_SHORT, 3, 2, doubles({1, 0, 0}),
                                                      doubles({2, 1, 4})));
    mesh->addAttribute("b", builder->addAttributeView(bytes, 6, 8, UNSIGNED_BYTE, 2, 2, nullptr, nullptr));
    builder->addMesh(mesh->build());
    const SrcFile file = fileOf(builder);
    EXPECT_THAT(file.attribute("m", "a").decoded, ElementsAre(Element{1, 2, 0.75}, Element{3.5, 7, 2}));
    EXPECT_THAT(file.attribute("m", "b").decoded, ElementsAre(Element{4, 5}, Element{9, 10}));
}

TEST(SrcBuilder, RefusesViewsOutsideTheirBuffer) {
    const auto builder = SrcBuilder::create();
    const auto bytes = builder->addBufferView(new unsigned char[16](), 16);
    const auto add = [&](unsigned long offset, unsigned long stride, unsigned long components,
                         unsigned long count) {
        return builder->addAttributeView(bytes, offset, stride, UNSIGNED_SHORT, components, count, nullptr,
                                         nullptr);
    };
    EXPECT_NO_THROW(add(0, 8, 4, 2));
    EXPECT_NO_THROW(add(1000, 8, 4, 0)); // nothing is read
    EXPECT_THROW(add(1, 8, 4, 2), std::invalid_argument);
    EXPECT_THROW(add(0, 8, 4, 3), std::invalid_argument);
    EXPECT_THROW(add(~0ul, 8, 1, 1), std::invalid_argument);
    EXPECT_THROW(add(0, ~0ul, 1, 3), std::invalid_argument);
    EXPECT_THROW(add(0, 1ul << 63, 1, 3), std::invalid_argument);
    EXPECT_THROW(add(0, 8, 0, 1), std::invalid_argument);
    EXPECT_THROW(add(0, 8, 5, 1), std::invalid_argument);
}

TEST(SrcBuilder, RefusesWhatItCannotDescribe) {
    const auto builder = SrcBuilder::create();
    // The arrays are freed all the same: the leak checker watches.
    EXPECT_THROW(builder->addDefaultAttributeView(new unsigned char[4], static_cast<ComponentType>(5127), 1,
                                                  1, nullptr, nullptr),
                 std::invalid_argument);
    EXPECT_THROW(builder->addDefaultAttributeView(new unsigned char[4], FLOAT, 5, 1, nullptr, nullptr),
                 std::invalid_argument);
    EXPECT_THROW(
        builder->addDefaultAttributeView(new unsigned char[4], FLOAT, 4, 1ul << 61, nullptr, nullptr),
        std::length_error);
    EXPECT_THROW(
        builder->addDefaultAttributeView(new unsigned char[4], FLOAT, 1, 1, doubles({1, 2}), nullptr),
        std::invalid_argument);
    EXPECT_THROW(builder->addDefaultIndexView(new unsigned short[4], static_cast<ComponentType>(0), 4),
                 std::invalid_argument);
    EXPECT_THROW(builder->addDefaultIndexView(new unsigned short[4], UNSIGNED_SHORT, ~0ul),
                 std::length_error);
    EXPECT_THROW(builder->addBufferView(nullptr, 1), std::invalid_argument);
    EXPECT_THROW(builder->addAttributeView(nullptr, 0, 4, FLOAT, 1, 1, nullptr, nullptr),
                 std::invalid_argument);
    EXPECT_EQ(fileOf(builder).at("bufferViews"), "{}");
}

TEST(SrcBuilder, ANullArrayIsAnEmptyOne) {
    const auto builder = SrcBuilder::create();
    builder->addBufferView(nullptr, 0);
    EXPECT_EQ(fileOf(builder).at("bufferChunks"), R"({"chunk0":{"byteLength":0,"byteOffset":0}})");
}

TEST(SrcBuilder, RefusesViewsOfAnotherBuilder) {
    const auto one = SrcBuilder::create(), other = SrcBuilder::create();
    const auto bytes = one->addBufferView(new unsigned char[4], 4);
    other->addBufferView(new unsigned char[4], 4);
    EXPECT_THROW(other->addAttributeView(bytes, 0, 4, FLOAT, 1, 1, nullptr, nullptr), std::invalid_argument);
    addFloats(*other, {1});
    const auto mesh = MeshBuilder::create("m", nullptr, POINTS);
    mesh->addAttribute("a", addFloats(*one, {1}));
    EXPECT_THROW(other->addMesh(mesh->build()), std::invalid_argument);
    const auto indexed =
        MeshBuilder::create("m", one->addDefaultIndexView(new unsigned char[1], UNSIGNED_BYTE, 1), POINTS);
    EXPECT_THROW(other->addMesh(indexed->build()), std::invalid_argument);
}

TEST(SrcBuilder, GoesOnWithAnEmptyDocument) {
    const auto builder = SrcBuilder::create();
    addFloats(*builder, {1});
    EXPECT_EQ(fileOf(builder).data.size(), 4u);
    EXPECT_EQ(fileOf(builder).data.size(), 0u);
}

TEST(SrcBuilder, ADocumentCanBeWrittenTwice) {
    const auto builder = SrcBuilder::create();
    addFloats(*builder, {1, 2});
    const auto document = builder->build();
    std::ostringstream first, second;
    SrcWriter::create()->write(document, first);
    SrcWriter::create()->write(document, second);
    EXPECT_EQ(first.str(), second.str());
}

TEST(MeshBuilder, AMeshInTheContainersWords) {
    const auto builder = SrcBuilder::create();
    const auto indices = builder->addDefaultIndexView(arrayOf<unsigned short>({0}), UNSIGNED_SHORT, 1);
    const auto mesh = MeshBuilder::create("sail/1", indices, TRIANGLE_FAN);
    mesh->addAttribute("weight", addFloats(*builder, {1}));
    mesh->addAttribute("id", addFloats(*builder, {1}));
    mesh->setBoundingBoxMinMax({-1, 0, 2}, {3, 0.5, 2});
    mesh->setMaterial(materialWith("red", 0.25));
    mesh->setMetaJsonString("{\"a\" : 1}");
    builder->addMesh(mesh->build());
    const SrcFile file = fileOf(builder);
    EXPECT_THAT(
        file.header,
        HasSubstr(R"("meshes":{"sail\/1":{"attributes":{"id":"attributeView1","weight":"attributeView0"},)"
                  R"("bboxCenter":[1,0.25,2],"bboxSize":[4,0.5,0],"indices":"indexView0","material":"red",)"
                  R"("meta":{"a":1},"primitive":6}})"));
}

TEST(MeshBuilder, ABareMeshNamesNothing) {
    const auto builder = SrcBuilder::create();
    builder->addMesh(meshWith("m"));
    EXPECT_EQ(fileOf(builder).at("meshes", "m"),
              R"({"attributes":{},"indices":"","material":"","primitive":0})");
}

TEST(MeshBuilder, AReversedBoxIsHandedOn) {
    const auto builder = SrcBuilder::create();
    const double largest = static_cast<double>(std::numeric_limits<float>::max());
    const auto mesh = MeshBuilder::create("m", nullptr, POINTS);
    mesh->setBoundingBoxMinMax({largest, largest, largest}, {-largest, -largest, -largest});
    builder->addMesh(mesh->build());
    const SrcFile file = fileOf(builder);
    EXPECT_EQ(file.at("meshes", "m", "bboxCenter"), "[0,0,0]");
    EXPECT_EQ(file.meshEntry("m").get("bboxSize").get(0).get<double>(), -2 * largest);
}

TEST(MeshBuilder, RefusesBoundsOfOtherThanThreeNumbers) {
    const auto mesh = MeshBuilder::create("m", nullptr, POINTS);
    EXPECT_THROW(mesh->setBoundingBoxMinMax({1, 2}, {1, 2, 3}), std::invalid_argument);
    EXPECT_THROW(mesh->setBoundingBoxMinMax({1, 2, 3}, {1, 2, 3, 4}), std::invalid_argument);
    EXPECT_THROW(mesh->addAttribute("a", nullptr), std::invalid_argument);
}

TEST(MeshBuilder, MayGoOnAfterBuildWithoutChangingWhatItBuilt) {
    const auto builder = SrcBuilder::create();
    const auto mesh = MeshBuilder::create("m", nullptr, POINTS);
    builder->addMesh(mesh->build());
    mesh->addAttribute("a", addFloats(*builder, {1}));
    builder->addMesh(mesh->build());
    const SrcFile file = fileOf(builder);
    EXPECT_THAT(file.attributeNames("m"), ElementsAre());
    EXPECT_THAT(file.attributeNames("m_2"), ElementsAre("a"));
}

TEST(SrcBuilder, MeshesOfOneNameAllStay) {
    const auto builder = SrcBuilder::create();
    for (const char* name : {"part", "part", "part_2", "part", "part_2"})
        builder->addMesh(meshWith(name));
    EXPECT_THAT(fileOf(builder).meshIds(), ElementsAre("part", "part_2", "part_2_2", "part_2_3", "part_3"));
}

TEST(SrcBuilder, ManyMeshesOfOneNameAllStay) {
    const auto builder = SrcBuilder::create();
    for (int i = 0; i < 3000; ++i)
        builder->addMesh(meshWith(""));
    EXPECT_EQ(fileOf(builder).meshIds().size(), 3000u);
}

TEST(SrcBuilder, OneMeshAddedTwiceIsOne) {
    const auto builder = SrcBuilder::create();
    const auto mesh = meshWith("m");
    builder->addMesh(mesh);
    builder->addMesh(mesh);
    EXPECT_THAT(fileOf(builder).meshIds(), ElementsAre("m"));
}

TEST(SrcBuilder, MaterialsOfOneNameBothStayAndMeshesKeepTheirs) {
    const auto builder = SrcBuilder::create();
    const auto dull = materialWith("mat3", 0.1), shiny = materialWith("mat3", 0.9);
    builder->addMaterial(dull);
    builder->addMaterial(shiny);
    builder->addMesh(meshWith("a", dull));
    builder->addMesh(meshWith("b", shiny));
    const SrcFile file = fileOf(builder);
    EXPECT_EQ(file.at("meshes", "a", "material"), "\"mat3\"");
    EXPECT_EQ(file.at("meshes", "b", "material"), "\"mat3_2\"");
    EXPECT_EQ(file.at("materials", "mat3", "instanceTechnique", "values", "shininess"),
              "[0.10000000000000001]");
    EXPECT_EQ(file.at("materials", "mat3_2", "instanceTechnique", "values", "shininess"),
              "[0.90000000000000002]");
}

TEST(SrcBuilder, TheOrderInWhichNamesakesAreAddedDoesNotShow) {
    const auto bytes = [](bool swapped) {
        const auto builder = SrcBuilder::create();
        const auto technique = TechniqueBuilder::createStandardTechnique();
        std::vector<std::shared_ptr<Material>> materials;
        for (const double shininess : {0.1, 0.2, 0.3, 0.4})
            materials.push_back(materialWith("mat3", shininess, technique));
        auto added = materials;
        if (swapped) std::reverse(added.begin(), added.end());
        for (const auto& material : added)
            builder->addMaterial(material);
        builder->addMesh(meshWith("a", materials[2]));
        builder->addMesh(meshWith("b", materials[1]));
        std::ostringstream out;
        SrcWriter::create()->write(builder->build(), out);
        return out.str();
    };
    EXPECT_EQ(bytes(false), bytes(true));
}

TEST(SrcBuilder, EmptyPointersAddNothing) {
    const auto builder = SrcBuilder::create();
    builder->addMaterial(nullptr);
    builder->addTechnique(nullptr);
    builder->addMesh(nullptr);
    const SrcFile file = fileOf(builder);
    EXPECT_EQ(file.at("materials") + file.at("techniques") + file.at("meshes"), "{}{}{}");
}

TEST(SrcBuilder, AMaterialBringsItsTechnique) {
    const auto builder = SrcBuilder::create();
    builder->addMesh(meshWith("m", materialWith("red", 0.5)));
    const SrcFile file = fileOf(builder);
    EXPECT_EQ(
        file.at("materials", "red"),
        R"({"instanceTechnique":{"technique":"x3dStandardMaterialTechnique","values":{"shininess":[0.5]}}})");
    EXPECT_NE(file.at("techniques", "x3dStandardMaterialTechnique"), "");
}

TEST(SrcBuilder, ATechniqueAddedTwiceStandsOnce) {
    const auto builder = SrcBuilder::create();
    builder->addTechnique(TechniqueBuilder::createStandardTechnique());
    builder->addTechnique(TechniqueBuilder::createStandardTechnique());
    EXPECT_EQ(fileOf(builder).json.get("techniques").get<picojson::object>().size(), 1u);
}

TEST(MaterialBuilder, RefusesAnEmptyTechnique) {
    EXPECT_THROW(MaterialBuilder::create("m", nullptr), std::invalid_argument);
}

TEST(TechniqueBuilder, DefaultsAreThoseOfClassicMaterialsButOpaque) {
    EXPECT_EQ(TechniqueBuilder::createStandardTechnique()->getParameters(),
              (Technique::Parameters{{"ambientIntensity", {0.2}},
                                     {"diffuseColor", {0.8, 0.8, 0.8}},
                                     {"emissiveColor", {0, 0, 0}},
                                     {"shininess", {0.2}},
                                     {"specularColor", {0, 0, 0}},
                                     {"transparency", {0}}}));
}

TEST(SrcWriterLimits, ANumberThatIsNotFiniteNamesMeshAttributeAndField) {
    const double inf = std::numeric_limits<double>::infinity();
    const auto builder = SrcBuilder::create();
    const auto mesh = MeshBuilder::create("sail", nullptr, POINTS);
    mesh->addAttribute("normal", addFloats(*builder, {1}));
    mesh->addAttribute("position", builder->addDefaultAttributeView(arrayOf<float>({1, 2}), FLOAT, 2, 1,
                                                                    nullptr, doubles({1, inf})));
    builder->addMesh(mesh->build());
    EXPECT_THAT(refusalOf<std::overflow_error>(builder),
                HasSubstr("Mesh \"sail\", attribute \"position\": decodeScale[1] is infinite"));
}

TEST(SrcWriterLimits, BoundsThatAreNotFiniteNameTheMesh) {
    const auto builder = SrcBuilder::create();
    const auto mesh = MeshBuilder::create("sail", nullptr, POINTS);
    mesh->setBoundingBoxMinMax({0, 0, std::nan("")}, {1, 1, 1});
    builder->addMesh(mesh->build());
    EXPECT_THAT(refusalOf<std::overflow_error>(builder),
                HasSubstr("Mesh \"sail\", bounds of its positions: bboxCenter[2] is not a number"));
}

TEST(SrcWriterLimits, AParameterThatIsNotFiniteNamesTheMaterial) {
    const auto builder = SrcBuilder::create();
    builder->addMaterial(materialWith("red", std::nan("")));
    EXPECT_THAT(refusalOf<std::overflow_error>(builder),
                HasSubstr("Material \"red\": shininess[0] is not a number"));
}

TEST(SrcWriterLimits, AHeaderThatIsTooLongIsRefused) {
    const auto builder = [] {
        auto made = SrcBuilder::create();
        addFloats(*made, {1});
        return made;
    };
    const auto length = static_cast<std::uint32_t>(fileOf(builder()).header.size());
    EXPECT_EQ(refusalOf<std::length_error>(builder(), length - 1),
              "The header would have " + std::to_string(length) + " bytes, more than the " +
                  std::to_string(length - 1) + " that the file can state. Write the scene in several files.");
    std::ostringstream out;
    const auto writer = SrcWriter::create();
    writer->setHeaderLimit(length);
    EXPECT_NO_THROW(writer->write(builder()->build(), out));
}

TEST(SrcWriterLimits, AHeaderOfManyBlocksIsWhole) {
    const auto builder = SrcBuilder::create();
    for (int i = 0; i < 10000; ++i)
        addFloats(*builder, {static_cast<float>(i)});
    const SrcFile file = fileOf(builder);
    EXPECT_GT(file.header.size(), 2000000u);
    EXPECT_EQ(file.header, file.json.serialize());
    EXPECT_EQ(file.bytesOf("bufferView9999"), (std::vector<unsigned char>{0, 0x3c, 0x1c, 0x46})); // 9999.0f
}

/// Counts what a stream is asked to do.
class CountingBuffer : public std::streambuf {
public:
    std::vector<const char*> sources;
    std::size_t writes = 0;

protected:
    std::streamsize xsputn(const char* data, std::streamsize size) override {
        ++writes;
        sources.push_back(data);
        return size;
    }
    int overflow(int c) override {
        ++writes;
        return c;
    }
};

TEST(SrcWriterLimits, ALargeArrayIsWrittenFromWhereItLies) {
    const auto builder = SrcBuilder::create();
    auto* bytes = new unsigned char[1 << 20]();
    builder->addBufferView(bytes, 1 << 20);
    CountingBuffer buffer;
    std::ostream out(&buffer);
    SrcWriter::create()->write(builder->build(), out);
    EXPECT_THAT(buffer.sources, testing::Contains(reinterpret_cast<const char*>(bytes)));
}

TEST(SrcWriterLimits, ManySmallArraysAreWrittenInLargeBlocks) {
    const auto builder = SrcBuilder::create();
    for (int i = 0; i < 10000; ++i)
        addFloats(*builder, std::vector<float>(50));
    CountingBuffer buffer;
    std::ostream out(&buffer);
    SrcWriter::create()->write(builder->build(), out);
    EXPECT_LT(buffer.writes, 40u); // 5 MB
}

} // namespace
