#include <kel/mesh/DefaultMesh.h>
#include <kel/mesh/detail/AttributeBufferDataView.h>
#include <kel/src/default_writer/MeshToContainer.h>

#include <support/ForeignMesh.h>
#include <support/Kernels.h>
#include <support/SrcText.h>
#include <support/Streams.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <limits>

namespace {

using namespace kel::src::detail;
using kel::mesh::DefaultMesh;
using kel::tests::CapturedStreams;
using kel::tests::foreignFloats;
using kel::tests::SrcText;
using kel::tests::written;
using Texts = std::map<std::string, std::string>;

/// One export: a container with its shared attribute IDs.
struct Export {
    ShapeResourceContainer container;
    std::map<std::string, std::string> attributeIds;
    SRCEncodingConfig config;

    explicit Export(const std::string& preset = "default") : config(getSRCEncodingPreset(preset)) {}
    std::string add(const kel::mesh::MeshPtr& mesh, unsigned long index = 0,
                    kel::src::MetaDataPtr meta = nullptr) {
        return addMeshToSrc(container, attributeIds, index, mesh, std::move(meta), config);
    }
    SrcText file() {
        return written([&](std::ostream& out) { container.writeToStream(out); });
    }
};

std::shared_ptr<DefaultMesh> triangle() {
    auto mesh = std::make_shared<DefaultMesh>();
    mesh->addAttribute("position", 3, std::vector<float>{0, 0, 0, 1, 0, 0, 0, 1, 0});
    mesh->setIndices(std::vector<std::uint16_t>{0, 1, 2});
    return mesh;
}

std::string viewOf(const SrcText& file, const std::string& name, const std::string& key) {
    return file.at("accessors", "attributeViews", name, key);
}

TEST(MeshToContainer, TwoByteIndicesAreShorts) {
    Export e;
    e.add(triangle());
    EXPECT_EQ(e.file().at("accessors", "indexViews", "indexView0"),
              R"({"bufferView":"bufferView0","byteOffset":0,"componentType":5123,"count":3})");
    EXPECT_EQ(e.file().at("bufferViews", "bufferView0", "byteLength"), "6");
}

TEST(MeshToContainer, FourByteIndicesAreIntsEvenWhenTheyWouldFit) {
    Export e;
    const auto mesh = triangle();
    mesh->setIndices(std::vector<std::uint32_t>{0, 1, 2});
    e.add(mesh);
    EXPECT_EQ(e.file().at("accessors", "indexViews", "indexView0", "componentType"), "5125");
    EXPECT_EQ(e.file().at("bufferViews", "bufferView0", "byteLength"), "12");
    EXPECT_EQ(e.file().data.substr(0, 12), std::string("\0\0\0\0\1\0\0\0\2\0\0\0", 12));
}

TEST(MeshToContainer, OneByteIndicesAreWidenedToShorts) {
    Export e;
    const auto mesh = triangle();
    mesh->setIndices(std::vector<std::uint8_t>{0, 1, 2});
    e.add(mesh);
    EXPECT_EQ(e.file().data.substr(0, 6), std::string("\0\0\1\0\2\0", 6));
}

TEST(MeshToContainer, ForeignIndicesKeepTheirLowBits) {
    Export e;
    const auto mesh = triangle();
    mesh->setPrimitiveType(kel::mesh::POINTS); // so that nothing follows the wild indices
    mesh->setIndexBuffer(
        std::make_shared<kel::tests::ForeignIndices>(2, std::vector<std::size_t>{65536 + 5, 2}));
    e.add(mesh);
    EXPECT_EQ(e.file().data.substr(0, 4), std::string("\5\0\2\0", 4));
}

TEST(MeshToContainer, FloatsUnderTheDefaultPresetStayAsTheyAre) {
    Export e;
    const auto mesh = triangle();
    mesh->addAttribute("texcoord", 2, std::vector<float>{0, 0, 1, 0, 0, 1});
    e.add(mesh);
    const SrcText file = e.file();
    EXPECT_EQ(
        file.at("accessors", "attributeViews"),
        R"({"attributeView0":{"bufferView":"bufferView1","byteOffset":0,"byteStride":12,"componentType":5126,)"
        R"("count":3,"decodeOffset":[0,0,0],"decodeScale":[1,1,1],"type":"VEC3"},"attributeView1":{"bufferView":)"
        R"("bufferView2","byteOffset":0,"byteStride":8,"componentType":5126,"count":3,"decodeOffset":[0,0],)"
        R"("decodeScale":[1,1],"type":"VEC2"}})");
    EXPECT_EQ(file.at("meshes", "0", "attributes"),
              R"({"position":"attributeView0","texcoord":"attributeView1"})");
}

TEST(MeshToContainer, Cmp1ClampsPositionsToTheUnitBox) {
    Export e("CMP1");
    const auto mesh = std::make_shared<DefaultMesh>();
    mesh->addAttribute("position", 3, std::vector<float>{3, -3, 0});
    mesh->setIndices(std::vector<std::uint16_t>{0});
    e.add(mesh);
    const SrcText file = e.file();
    EXPECT_EQ(file.data.substr(2), std::string("\xff\xff\0\0\xff\x7f", 6));
    EXPECT_EQ(viewOf(file, "attributeView0", "componentType"), "5123");
    EXPECT_EQ(viewOf(file, "attributeView0", "decodeScale"), "[65535,65535,65535]");
    EXPECT_EQ(viewOf(file, "attributeView0", "decodeOffset"), "[-32767.5,-32767.5,-32767.5]");
}

TEST(MeshToContainer, TheRealBoundsStandInTheMeshEntry) {
    Export e("CMP1");
    const auto mesh = std::make_shared<DefaultMesh>();
    mesh->addAttribute("position", 3, std::vector<float>{3, 4, 5, 5, 8, 9});
    mesh->setIndices(std::vector<std::uint16_t>{0});
    e.add(mesh);
    EXPECT_EQ(e.file().at("meshes", "0", "bboxCenter"), "[4,6,7]");
    EXPECT_EQ(e.file().at("meshes", "0", "bboxSize"), "[2,4,4]");
}

TEST(MeshToContainer, AnAttributeThatThePresetDoesNotKnowIsReportedAndLeftOut) {
    Export e;
    const auto mesh = triangle();
    mesh->addAttribute("weight", 1, std::vector<float>{1, 2, 3});
    CapturedStreams streams;
    e.add(mesh);
    EXPECT_EQ(streams.out(),
              "Cannot create SRC attribute view: attribute precision not known for attribute \"weight\"\n");
    EXPECT_EQ(streams.err(), "");
    EXPECT_EQ(e.file().at("meshes", "0", "attributes"), R"({"position":"attributeView0"})");
}

TEST(MeshToContainer, FourComponentsAreReportedAndLeftOut) {
    Export e;
    const auto mesh = triangle();
    mesh->addAttribute("color", 4, std::vector<float>(12));
    CapturedStreams streams;
    e.add(mesh);
    EXPECT_EQ(streams.out(), "Invalid component count 4 for color\n");
    EXPECT_EQ(e.file().at("meshes", "0", "attributes"), R"({"position":"attributeView0"})");
}

TEST(MeshToContainer, NarrowComponentsAreReportedWithNameAndTypeAndLeftOut) {
    Export e;
    const auto mesh = triangle();
    mesh->addAttribute("color", 3, std::vector<std::uint8_t>(9));
    CapturedStreams streams;
    e.add(mesh);
    EXPECT_EQ(streams.out(),
              "Invalid component type 5121 for color: only components of 4 bytes can be written\n");
    EXPECT_EQ(e.file().at("meshes", "0", "attributes"), R"({"position":"attributeView0"})");
}

TEST(MeshToContainer, FourByteIntegersPassBitForBit) {
    Export e;
    const auto mesh = triangle();
    mesh->addAttribute("id", 1, std::vector<std::uint32_t>{1, 0x01020304, 0xffffffff});
    e.add(mesh);
    const SrcText file = e.file();
    EXPECT_EQ(viewOf(file, "attributeView1", "componentType"), "5126");
    EXPECT_EQ(file.data.substr(6 + 36), std::string("\1\0\0\0\4\3\2\1\xff\xff\xff\xff", 12));
}

TEST(MeshToContainer, WithoutPositionsReturnsNothingButKeepsTheViews) {
    Export e;
    const auto mesh = std::make_shared<DefaultMesh>();
    mesh->addAttribute("normal", 3, std::vector<float>(9));
    mesh->setIndices(std::vector<std::uint16_t>{0, 1, 2});
    CapturedStreams streams;
    EXPECT_EQ(e.add(mesh), "");
    EXPECT_EQ(streams.err(), "No attribute buffer with default positions name \"position\" found in mesh\n");
    const SrcText file = e.file();
    EXPECT_EQ(file.at("meshes"), "{}");
    EXPECT_NE(viewOf(file, "attributeView0", "count"), "");
    EXPECT_NE(file.at("accessors", "indexViews", "indexView0"), "");
}

TEST(MeshToContainer, WithoutIndicesIsRefusedByNumberAndAddsNothing) {
    Export e;
    const auto mesh = std::make_shared<DefaultMesh>();
    mesh->addAttribute("position", 3, std::vector<float>(9));
    CapturedStreams streams;
    EXPECT_EQ(e.add(mesh, 17), "");
    EXPECT_EQ(streams.err(), "Mesh 17 has no index buffer and is skipped; give it one index per vertex.\n");
    EXPECT_EQ(e.file().data, "");
}

TEST(MeshToContainer, AMissingAttributeRefersToAnEarlierMeshsView) {
    Export e;
    const auto first = triangle();
    first->addAttribute("texcoord", 2, std::vector<float>(6));
    e.add(first, 0);
    e.add(triangle(), 1);
    EXPECT_EQ(e.file().at("meshes", "1", "attributes"),
              R"({"position":"attributeView2","texcoord":"attributeView1"})");
}

TEST(MeshToContainer, IsCalledByItsNumberInDecimal) {
    Export e;
    EXPECT_EQ(e.add(triangle(), 10), "10");
}

TEST(MeshToContainer, IsCalledTrianglesWhateverItIs) {
    Export e;
    const auto mesh = triangle();
    mesh->setPrimitiveType(kel::mesh::LINES);
    e.add(mesh);
    EXPECT_EQ(e.file().at("meshes", "0", "primitive"), "4");
}

TEST(MeshToContainer, MetaDataTextsAreReadAsJson) {
    Export e;
    const auto meta = std::make_shared<Texts>(Texts{{"array", "[1, 2]"},
                                                    {"first", "  1 2"},
                                                    {"number", "42"},
                                                    {"numOriginalVertices", "8"},
                                                    {"partial", "[1, 2"},
                                                    {"plain", "hello"},
                                                    {"string", "\"x\""}});
    e.add(triangle(), 0, meta);
    EXPECT_EQ(e.file().at("meshes", "0", "meta"),
              R"({"array":[1,2],"first":1,"numOriginalTriangles":1,"numOriginalVertices":3,"number":42,)"
              R"("partial":[1,2],"plain":null,"string":"x","surfaceArea":0.5})");
}

TEST(MeshToContainer, TheCallersMetaDataGainsTheStatistics) {
    Export e;
    const auto meta = std::make_shared<Texts>();
    e.add(triangle(), 0, meta);
    EXPECT_EQ(
        *meta,
        (Texts{{"numOriginalTriangles", "1"}, {"numOriginalVertices", "3"}, {"surfaceArea", "0.500000"}}));
}

TEST(MeshToContainer, AnInfiniteMetaDataNumberIsPicojsonsOverflowError) {
    Export e;
    EXPECT_THROW(e.add(triangle(), 0, std::make_shared<Texts>(Texts{{"big", "1e999"}})), std::overflow_error);
}

TEST(MeshToContainer, InterleavedAttributesArePacked) {
    const auto data = std::make_shared<kel::mesh::detail::VectorBufferData>();
    data->resize(2 * 20);
    auto view = [&](std::size_t components, std::size_t offset, const char* name) {
        return std::make_shared<kel::mesh::detail::AttributeBufferDataView>(kel::mesh::FLOAT, components, 20,
                                                                            offset, data, name);
    };
    const auto positions = view(3, 0, "position"), texcoords = view(2, 12, "texcoord");
    const float values[10] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    std::memcpy(data->getData(), values, sizeof values);
    const auto mesh = std::make_shared<DefaultMesh>();
    mesh->addAttribute(positions);
    mesh->addAttribute(texcoords);
    mesh->setIndices(std::vector<std::uint16_t>{0});
    Export e;
    e.add(mesh);
    const float packed[10] = {1, 2, 3, 6, 7, 8, 4, 5, 9, 10};
    EXPECT_EQ(e.file().data.substr(2), std::string(reinterpret_cast<const char*>(packed), sizeof packed));
}

TEST(MeshToContainer, AsksAForeignMeshInTheStatedOrder) {
    const auto mesh = std::make_shared<kel::tests::ForeignMesh>();
    mesh->type = kel::mesh::POINTS;
    mesh->indices = std::make_shared<kel::tests::ForeignIndices>(2, std::vector<std::size_t>{1}, mesh->log);
    mesh->attributes = {{"position", foreignFloats("position", 3, {1, 2, 3, 4, 5, 6}, mesh->log)}};
    Export e;
    e.add(mesh);
    const kel::tests::CallLog expected = {"mesh.getIndexBuffer",
                                          "indices.getElementCount",
                                          "indices.getElementSizeInBytes",
                                          "indices.getIndex(0)",
                                          "mesh.getNumAttributeBuffers",
                                          "mesh.getAttributeBuffer(0)",
                                          "position.getComponentCountPerElement",
                                          "position.getAttributeName",
                                          "position.getElementCount",
                                          "position.getElementSizeInBytes",
                                          "position.getElement(0)",
                                          "position.getElement(1)",
                                          "mesh.getAttributeBuffer(position)"};
    ASSERT_GE(mesh->log->size(), expected.size());
    EXPECT_EQ(kel::tests::CallLog(mesh->log->begin(),
                                  mesh->log->begin() + static_cast<std::ptrdiff_t>(expected.size())),
              expected);
}

RC_GTEST_PROP(MeshToContainer, GivesTheSameBytesForOursAndForForeignBuffers, ()) {
    auto values = *rc::gen::container<std::vector<float>>(
        rc::gen::map(rc::gen::inRange(-2000, 2001), [](int i) { return static_cast<float>(i) / 1000.0f; }));
    values.resize(values.size() / 3 * 3);
    const auto indices = std::vector<std::uint32_t>(values.size() / 3, 0);
    const auto ours = std::make_shared<DefaultMesh>();
    ours->addAttribute("position", 3, values);
    ours->addAttribute("color", 3, values);
    ours->setIndices(indices);
    const auto foreign = std::make_shared<kel::tests::ForeignMesh>();
    foreign->primitives = indices.size() / 3;
    foreign->indices = std::make_shared<kel::tests::ForeignIndices>(
        4, std::vector<std::size_t>(indices.begin(), indices.end()));
    foreign->attributes = {{"position", foreignFloats("position", 3, values)},
                           {"color", foreignFloats("color", 3, values)}};
    for (const char* preset : {"default", "CMP1"}) {
        Export a(preset), b(preset);
        a.add(ours);
        b.add(foreign);
        RC_ASSERT(a.file().header == b.file().header);
        RC_ASSERT(a.file().data == b.file().data);
    }
}

// ---- createAttributeView --------------------------------------------------------------------------------

struct View {
    std::string err;
    SrcText file;
};

/// Two floats stored with `bits` against a box of side `size` around 0.
View viewWith(std::uint32_t bits, const glm::vec3& size, unsigned int components = 1) {
    Export e;
    e.config.precision["position"] = bits;
    const float values[6] = {0, 0, 0, 0, 0, 0};
    const auto* data = reinterpret_cast<const unsigned char*>(values);
    CapturedStreams streams;
    const glm::vec3 center(0, 0, 0);
    if (components == 1) {
        createAttributeView<1>("position", e.attributeIds, data, 2, center, size, e.container, e.config);
    } else if (components == 2) {
        createAttributeView<2>("position", e.attributeIds, data, 2, center, size, e.container, e.config);
    } else {
        createAttributeView<3>("position", e.attributeIds, data, 2, center, size, e.container, e.config);
    }
    return {streams.err(), e.file()};
}

std::string adaptiveMessage(int bits) {
    return "Writing attribute \"position\" with adaptive precision of " + std::to_string(bits) + " bytes.\n";
}

TEST(AdaptivePrecision, FollowsTheExtent) {
    const float infinity = std::numeric_limits<float>::infinity();
    const std::pair<float, int> cases[] = {{0.25f, 32}, {0.5f, 32},   {0.51f, 8},     {1.0f, 8},
                                           {256.0f, 8}, {257.0f, 16}, {65536.0f, 16}, {65600.0f, 32},
                                           {0.0f, 8},   {-5.0f, 8},   {infinity, 8}};
    for (const auto& [extent, bits] : cases) {
        if (std::isinf(extent)) continue; // its decode offset is no number: see below
        EXPECT_EQ(viewWith(0, glm::vec3(extent)).err, adaptiveMessage(bits)) << extent;
    }
}

TEST(AdaptivePrecision, LooksAtTheComponentsThatThereAre) {
    EXPECT_EQ(viewWith(0, glm::vec3(1, 300, 70000), 1).err, adaptiveMessage(8));
    EXPECT_EQ(viewWith(0, glm::vec3(1, 300, 70000), 2).err, adaptiveMessage(16));
    EXPECT_EQ(viewWith(0, glm::vec3(1, 300, 70000), 3).err, adaptiveMessage(32));
}

TEST(AdaptivePrecision, OfThirtyTwoGoesThroughTheQuantizer) {
    const View view = viewWith(0, glm::vec3(0.5f));
    EXPECT_EQ(view.file.at("accessors", "attributeViews", "attributeView0"),
              R"({"bufferView":"bufferView0","byteOffset":0,"byteStride":3,"componentType":5125,"count":2,)"
              R"("decodeOffset":[-524288000],"decodeScale":[2097152000],"type":"SCALAR"})");
}

TEST(ConfiguredPrecision, AboveThirtyTwoLeavesAViewOfNoBytes) {
    const View view = viewWith(40, glm::vec3(1));
    EXPECT_NE(view.err.find("Invalid quantization precision given (40 bits)."), std::string::npos);
    EXPECT_EQ(view.file.at("bufferViews", "bufferView0", "byteLength"), "0");
    EXPECT_EQ(view.file.at("accessors", "attributeViews", "attributeView0", "byteStride"), "0");
}

} // namespace
