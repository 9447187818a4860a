// What the writer asks of its input and of the builder library, in which order and with which arguments.
// Linked against the recording library instead of the real one.
#include "RecordingSrcLib.h"

#include "support/ForeignMesh.h"
#include "support/Kernels.h"
#include "support/LogCapture.h"

#include <kel/material/MaterialClassic.h>
#include <kel/mesh/DefaultMesh.h>
#include <kel/src/SrcLibWriterImpl.h>
#include <kel/src/SrcWriter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <functional>
#include <sstream>
#include <stdexcept>

namespace {

using namespace kel::tests;
using kel::material::MaterialClassic;
using kel::src::SrcWriter;
using kel::src::SrcWriterInput;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr SrcWriter::Compression MODES[] = {SrcWriter::UNCOMPRESSED, SrcWriter::POSITION_COMPRESSED,
                                            SrcWriter::POSITION_NORMAL_COMPRESSED};

std::string write(const SrcWriterInput& input, SrcWriter::Compression mode = SrcWriter::UNCOMPRESSED) {
    recordedCalls()->clear();
    std::ostringstream out;
    SrcWriter::write(input, out, mode);
    return out.str();
}

bool isInputCall(const std::string& call) {
    const auto begins = [&](const char* prefix) { return call.rfind(prefix, 0) == 0; };
    return begins("mesh.") || begins("indices.") || begins("position.") || begins("normal.") || begins("uv.");
}

/// The calls into the builder library alone.
CallLog builderCalls() {
    CallLog calls = *recordedCalls();
    calls.erase(std::remove_if(calls.begin(), calls.end(), isInputCall), calls.end());
    return calls;
}

/// The calls that begin like this.
CallLog callsOf(const std::string& prefix) {
    CallLog calls;
    for (const std::string& call : *recordedCalls()) {
        if (call.rfind(prefix, 0) == 0) calls.push_back(call);
    }
    return calls;
}

// Four vertices: the box is (1, 0, 0) to (3, 4, 0.5), the last vertex its middle.
const std::vector<float> POSITIONS = {1, 0, 0, 3, 0, 0, 1, 4, 0.5f, 2, 2, 0.25f};
const std::vector<float> NORMALS = {0, 0, 1, 1, 0, 0, 0, 1, 0, -1, 0, 0};
const std::vector<float> UVS = {0, 0.25f, 1, 0, 0.5f, 1, 1, 1};

const std::string POSITIONS_HEX = "0000803f0000000000000000"
                                  "000040400000000000000000"
                                  "0000803f000080400000003f"
                                  "00000040000000400000803e";
const std::string NORMALS_HEX = "00000000000000000000803f"
                                "0000803f0000000000000000"
                                "000000000000803f00000000"
                                "000080bf0000000000000000";
const std::string UVS_HEX = "000000000000803e0000803f000000000000003f0000803f0000803f0000803f";

/// A mesh that notes every call in the same list as the builder library.
std::shared_ptr<ForeignMesh> foreignMesh(const std::vector<std::string>& attributes) {
    auto mesh = std::make_shared<ForeignMesh>();
    mesh->log = recordedCalls();
    mesh->primitives = 1;
    mesh->indices = std::make_shared<ForeignIndices>(4, std::vector<std::size_t>{0, 1, 70000}, mesh->log);
    for (const std::string& name : attributes) {
        const bool isUv = name == "uv";
        const auto& values = isUv ? UVS : name == "normal" ? NORMALS : POSITIONS;
        mesh->attributes.emplace_back(name, foreignFloats(name, isUv ? 2 : 3, values, mesh->log));
    }
    return mesh;
}

std::shared_ptr<kel::mesh::DefaultMesh> ownMesh(const std::vector<std::string>& attributes) {
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
    mesh->setIndices(std::vector<std::uint32_t>{0, 1, 70000});
    for (const std::string& name : attributes) {
        const bool isUv = name == "uv";
        mesh->addAttribute(name, isUv ? 2 : 3, isUv ? UVS : name == "normal" ? NORMALS : POSITIONS);
    }
    return mesh;
}

SrcWriterInput inputOf(const kel::mesh::MeshPtr& mesh) {
    SrcWriterInput input;
    input.meshes = {mesh};
    return input;
}

CallLog joined(std::initializer_list<CallLog> parts) {
    CallLog all;
    for (const CallLog& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

CallLog elementReads(const std::string& name, std::size_t count) {
    CallLog calls;
    for (std::size_t i = 0; i < count; ++i)
        calls.push_back(name + ".getElement(" + std::to_string(i) + ")");
    return calls;
}

CallLog copyAsStored(const std::string& name, std::size_t count, const std::string& added) {
    return joined({{name + ".getElementCount", name + ".getElementSizeInBytes"},
                   elementReads(name, count),
                   {name + ".getComponentType", name + ".getComponentCountPerElement", added,
                    name + ".getAttributeName"}});
}

CallLog vec3fTest(const std::string& name) {
    return {name + ".getComponentType", name + ".getComponentCountPerElement"};
}

CallLog bounds(const std::string& name, std::size_t count) {
    return joined({{name + ".getElementCount"}, elementReads(name, count)});
}

CallLog transform(const std::string& name, std::size_t count) {
    return joined({{name + ".getElementCount", name + ".getElementSizeInBytes"}, elementReads(name, count)});
}

// 70000 wraps to 4464 = 0x1170.
const CallLog BEFORE_ENCODER = {"SrcBuilder::create",
                                "TechniqueBuilder::createStandardTechnique",
                                "addTechnique(technique)",
                                "mesh.getIndexBuffer",
                                "indices.getElementCount",
                                "indices.getIndex(0)",
                                "indices.getIndex(1)",
                                "indices.getIndex(2)",
                                "addDefaultIndexView(000001007011, 5123, 3) = view0",
                                "mesh.getPrimitiveType",
                                "MeshBuilder::create(mesh0, view0, 4)"};
const CallLog AFTER_ENCODER = {"MeshBuilder::build", "addMesh(mesh0)", "SrcBuilder::build",
                               "SrcWriter::create", "SrcWriter::write"};
const std::string BOX = "setBoundingBoxMinMax([1 0 0], [3 4 0.5])";

TEST(WriterCalls, UncompressedInFullOrder) {
    EXPECT_EQ(write(inputOf(foreignMesh({"uv", "position"}))), "written by the recording library\n");
    EXPECT_EQ(
        *recordedCalls(),
        joined(
            {BEFORE_ENCODER,
             {"mesh.getNumAttributeBuffers", "mesh.getAttributeBuffer(0)"},
             copyAsStored("uv", 4,
                          "addDefaultAttributeView(" + UVS_HEX + ", 5126, 2, 4, none, none) = view1"),
             {"addAttribute(uv, view1)", "mesh.getAttributeBuffer(1)"},
             copyAsStored("position", 4,
                          "addDefaultAttributeView(" + POSITIONS_HEX + ", 5126, 3, 4, none, none) = view2"),
             {"addAttribute(position, view2)", "mesh.getAttributeBuffer(position)"},
             vec3fTest("position"),
             bounds("position", 4),
             {BOX},
             AFTER_ENCODER}));
}

TEST(WriterCalls, PositionCompressedInFullOrder) {
    write(inputOf(foreignMesh({"uv", "position"})), SrcWriter::POSITION_COMPRESSED);
    EXPECT_EQ(
        *recordedCalls(),
        joined({BEFORE_ENCODER,
                {"mesh.getAttributeBuffer(position)"},
                vec3fTest("position"),
                {"mesh.getNumAttributeBuffers", "mesh.getAttributeBuffer(0)", "uv.getAttributeName"},
                copyAsStored("uv", 4,
                             "addDefaultAttributeView(" + UVS_HEX + ", 5126, 2, 4, none, none) = view1"),
                {"addAttribute(uv, view1)", "mesh.getAttributeBuffer(1)", "position.getAttributeName"},
                vec3fTest("position"),
                {"position.getElementCount"},
                bounds("position", 4),
                {BOX, "position.getElementCount"},
                transform("position", 4),
                {// codes 0, 65535 and, in the middle, 32767
                 "addDefaultAttributeView(000000000000ffff000000000000ffffffffff7fff7fff7f, 5123, 3, 4, "
                 "[32767.5 0 0], [32767.5 16383.75 131070]) = view2",
                 "addAttribute(position, view2)"},
                AFTER_ENCODER}));
}

TEST(WriterCalls, PositionAndNormalCompressedInFullOrder) {
    write(inputOf(foreignMesh({"uv", "position", "normal"})), SrcWriter::POSITION_NORMAL_COMPRESSED);
    EXPECT_EQ(*recordedCalls(),
              joined({BEFORE_ENCODER,
                      {"mesh.getAttributeBuffer(normal)"},
                      vec3fTest("normal"),
                      {"mesh.getAttributeBuffer(position)", "mesh.getAttributeBuffer(normal)"},
                      {"position.getElementCount"},
                      bounds("position", 4),
                      {"position.getElementCount"},
                      transform("position", 4),
                      transform("normal", 4),
                      {// each vertex: three codes, then the octahedral bytes of +z, +x, +y and -x
                       "addBufferView(0000000000007f7f"
                       "ffff00000000fe7f"
                       "0000ffffffff7ffe"
                       "ff7fff7fff7f007f"
                       ") = bufferView1",
                       "addAttributeView(bufferView1, 0, 8, 5123, 4, 4, [32767.5 0 0 0], [32767.5 16383.75 "
                       "131070 1]) = view2",
                       "addAttribute(pos3us_nor2ub_oct, view2)", BOX},
                      AFTER_ENCODER}));
}

TEST(WriterCalls, OwnBuffersLeadToTheSameBuilderCalls) {
    for (const auto mode : MODES) {
        write(inputOf(foreignMesh({"normal", "uv", "position"})), mode);
        const CallLog foreign = builderCalls();
        write(inputOf(ownMesh({"normal", "uv", "position"})), mode);
        EXPECT_EQ(builderCalls(), foreign) << "mode " << mode;
    }
}

RC_GTEST_PROP(WriterCalls, OwnBuffersLeadToTheSameBuilderCallsWhateverTheyHold, ()) {
    const auto vertices = *rc::gen::inRange<std::size_t>(0, 40);
    const auto floats = rc::gen::container<std::vector<float>>(3 * vertices, anyFloat());
    const auto positions = *floats;
    const auto normals = *floats;
    const auto indices = *rc::gen::container<std::vector<std::uint32_t>>(rc::gen::arbitrary<std::uint32_t>());
    const auto mode =
        *rc::gen::elementOf(std::vector<SrcWriter::Compression>(std::begin(MODES), std::end(MODES)));

    auto own = std::make_shared<kel::mesh::DefaultMesh>();
    own->setIndices(indices);
    own->addAttribute("position", 3, positions);
    own->addAttribute("normal", 3, normals);
    auto foreign = std::make_shared<ForeignMesh>();
    foreign->log = recordedCalls();
    foreign->indices = std::make_shared<ForeignIndices>(
        4, std::vector<std::size_t>(indices.begin(), indices.end()), foreign->log);
    foreign->attributes.emplace_back("position", foreignFloats("position", 3, positions, foreign->log));
    foreign->attributes.emplace_back("normal", foreignFloats("normal", 3, normals, foreign->log));

    const LogCapture quiet;
    write(inputOf(foreign), mode);
    const CallLog expected = builderCalls();
    write(inputOf(own), mode);
    RC_ASSERT(builderCalls() == expected);
}

TEST(WriterCalls, IndicesOfEveryWidthAreNarrowed) {
    auto mesh = ownMesh({"position"});
    mesh->setIndices(std::vector<std::uint8_t>{0, 1, 255});
    write(inputOf(mesh));
    EXPECT_THAT(*recordedCalls(), Contains("addDefaultIndexView(00000100ff00, 5123, 3) = view0"));
    mesh->setIndices(std::vector<std::uint16_t>{0, 1, 65535});
    write(inputOf(mesh));
    EXPECT_THAT(*recordedCalls(), Contains("addDefaultIndexView(00000100ffff, 5123, 3) = view0"));
}

TEST(WriterCalls, AMeshWithoutIndicesGetsNoIndexView) {
    const auto mesh = foreignMesh({"position"});
    mesh->indices = nullptr;
    write(inputOf(mesh));
    EXPECT_THAT(callsOf("addDefaultIndexView"), IsEmpty());
    EXPECT_THAT(*recordedCalls(), Contains("MeshBuilder::create(mesh0, none, 4)"));
}

TEST(WriterCalls, PrimitiveTypesOneToSixPassAndOthersAreZero) {
    for (const auto& [given, expected] : std::vector<std::pair<unsigned, unsigned>>{
             {0, 0}, {1, 1}, {2, 2}, {3, 3}, {4, 4}, {5, 5}, {6, 6}, {7, 0}, {4000000000u, 0}}) {
        const auto mesh = foreignMesh({});
        mesh->type = static_cast<kel::mesh::PrimitiveType>(given);
        write(inputOf(mesh));
        EXPECT_THAT(*recordedCalls(),
                    Contains("MeshBuilder::create(mesh0, view0, " + std::to_string(expected) + ")"));
    }
}

TEST(WriterCalls, UncompressedWithoutPositionsSetsNoBounds) {
    write(inputOf(foreignMesh({"uv"})));
    EXPECT_THAT(*recordedCalls(), Contains("addAttribute(uv, view1)"));
    EXPECT_THAT(callsOf("setBoundingBoxMinMax"), IsEmpty());
}

TEST(WriterCalls, UncompressedWithShortPositionsSetsNoBounds) {
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
    mesh->addAttribute("position", 3, std::vector<std::uint16_t>{1, 2, 3});
    write(inputOf(mesh));
    EXPECT_THAT(*recordedCalls(),
                Contains("addDefaultAttributeView(010002000300, 5123, 3, 1, none, none) = view0"));
    EXPECT_THAT(callsOf("setBoundingBoxMinMax"), IsEmpty());
}

TEST(WriterCalls, UncompressedHandsOnTheBoundsOfEmptyPositions) {
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
    mesh->addAttribute("position", 3, std::vector<float>{});
    write(inputOf(mesh));
    EXPECT_THAT(callsOf("setBoundingBoxMinMax"),
                ElementsAre("setBoundingBoxMinMax([3.4028234663852886e+38 3.4028234663852886e+38 "
                            "3.4028234663852886e+38], [-3.4028234663852886e+38 -3.4028234663852886e+38 "
                            "-3.4028234663852886e+38])"));
}

TEST(WriterCalls, PositionCompressedFlatBoxHasAFiniteScale) {
    // Diagonal 5, so the flat side is 5e-8 in single precision. It vanishes beside z = 1: min and max are
    // both 1, no code is between them, and 0 / 0 gives 65535. The scale is the float next to 65535 / 5e-8.
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
    mesh->addAttribute("position", 3, std::vector<float>{0, 0, 1, 3, 4, 1});
    write(inputOf(mesh), SrcWriter::POSITION_COMPRESSED);
    EXPECT_THAT(
        callsOf("addDefaultAttributeView"),
        ElementsAre("addDefaultAttributeView(00000000ffffffffffffffff, 5123, 3, 2, [0 0 1310699945984], "
                    "[21845 16383.75 1310699945984]) = view0"));
    EXPECT_THAT(callsOf("setBoundingBoxMinMax"), ElementsAre("setBoundingBoxMinMax([0 0 1], [3 4 1])"));
}

TEST(WriterCalls, PositionCompressedNaNIsTheLargestCode) {
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    mesh->addAttribute("position", 3, std::vector<float>{nan, 0, 0, 0, 0, 0, 2, 2, 2});
    write(inputOf(mesh), SrcWriter::POSITION_COMPRESSED);
    EXPECT_THAT(callsOf("addDefaultAttributeView"),
                ElementsAre(StartsWith("addDefaultAttributeView(ffff00000000"
                                       "000000000000"
                                       "ffffffffffff,")));
}

TEST(WriterCalls, PositionCompressedWithoutFittingPositionsStartsOverForEver) {
    struct Reentered {};
    class Endless : public ForeignMesh {
    public:
        using ForeignMesh::getAttributeBuffer;
        mutable std::size_t lookups = 0;
        std::shared_ptr<kel::mesh::AttributeBuffer>
        getAttributeBuffer(const std::string& name) const override {
            EXPECT_EQ(name, "position");
            // Many enough to run out of any stack, were each a call inside the one before.
            if (++lookups == 1000000) throw Reentered();
            return attributes.empty() ? nullptr : attributes.front().second;
        }
    };
    for (const bool hasPositions : {false, true}) {
        const auto mesh = std::make_shared<Endless>();
        if (hasPositions) mesh->attributes.emplace_back("position", foreignFloats("position", 2, {0, 0}));
        EXPECT_THROW(write(inputOf(mesh), SrcWriter::POSITION_COMPRESSED), Reentered);
        EXPECT_EQ(mesh->lookups, 1000000u);
        EXPECT_EQ(callsOf("MeshBuilder::create").size(), 1u);
        EXPECT_EQ(recordedCalls()->back(), "MeshBuilder::create(mesh0, none, 4)");
    }
}

TEST(WriterCalls, WithoutNormalsBothCompressedModesAreTheSame) {
    write(inputOf(foreignMesh({"position", "uv"})), SrcWriter::POSITION_COMPRESSED);
    const CallLog expected = builderCalls();
    write(inputOf(foreignMesh({"position", "uv"})), SrcWriter::POSITION_NORMAL_COMPRESSED);
    EXPECT_EQ(builderCalls(), expected);
}

TEST(WriterCalls, NormalsThatAreNotThreeFloatsCountAsNone) {
    auto mesh = ownMesh({"position"});
    mesh->addAttribute("normal", 2, std::vector<float>(8));
    write(inputOf(mesh), SrcWriter::POSITION_NORMAL_COMPRESSED);
    EXPECT_THAT(callsOf("addAttribute("),
                ElementsAre("addAttribute(position, view1)", "addAttribute(normal, view2)"));
}

TEST(WriterCalls, PositionNormalCompressedRefusesNormalsWithoutPositions) {
    for (const bool hasPositions : {false, true}) {
        auto mesh = ownMesh({"normal"});
        if (hasPositions) mesh->addAttribute("position", 2, std::vector<float>(8));
        EXPECT_THROW(write(inputOf(mesh), SrcWriter::POSITION_NORMAL_COMPRESSED), std::invalid_argument);
    }
}

TEST(WriterCalls, PositionNormalCompressedDoesNotAskForeignPositionsForTheirType) {
    // Two floats per element: the third is read as zero.
    const auto mesh = foreignMesh({"normal"});
    mesh->attributes.emplace_back("position",
                                  foreignFloats("position", 2, {1, 0, 3, 0, 1, 4, 2, 2}, mesh->log));
    write(inputOf(mesh), SrcWriter::POSITION_NORMAL_COMPRESSED);
    EXPECT_THAT(*recordedCalls(), Not(Contains("position.getComponentType")));
    EXPECT_THAT(*recordedCalls(), Not(Contains("position.getComponentCountPerElement")));
    EXPECT_THAT(callsOf("setBoundingBoxMinMax"), ElementsAre(StartsWith("setBoundingBoxMinMax([1 0 ")));
    EXPECT_EQ(callsOf("addBufferView").size(), 1u);
}

TEST(WriterCalls, FewerOrMoreNormalsThanPositionsAreReadOnceEach) {
    const std::vector<float> twoNormals(NORMALS.begin(), NORMALS.begin() + 6);
    std::vector<float> fiveNormals = NORMALS;
    fiveNormals.insert(fiveNormals.end(), {0, 0, 1});
    const std::string fewer = "addBufferView(0000000000007f7f"
                              "ffff00000000fe7f"
                              "0000ffffffff0000"
                              "ff7fff7fff7f0000"
                              ") = bufferView1";
    const std::string more = "addBufferView(0000000000007f7f"
                             "ffff00000000fe7f"
                             "0000ffffffff7ffe"
                             "ff7fff7fff7f007f"
                             ") = bufferView1";
    for (const auto& [normals, expected] : {std::pair(twoNormals, fewer), std::pair(fiveNormals, more)}) {
        auto own = ownMesh({"position"});
        own->addAttribute("normal", 3, normals);
        write(inputOf(own), SrcWriter::POSITION_NORMAL_COMPRESSED);
        EXPECT_THAT(callsOf("addBufferView"), ElementsAre(expected));

        const auto foreign = foreignMesh({"position"});
        foreign->attributes.emplace_back("normal", foreignFloats("normal", 3, normals, foreign->log));
        write(inputOf(foreign), SrcWriter::POSITION_NORMAL_COMPRESSED);
        EXPECT_THAT(callsOf("addBufferView"), ElementsAre(expected));
        EXPECT_EQ(callsOf("normal.getElement("), elementReads("normal", normals.size() / 3));
    }
}

TEST(WriterCalls, PositionNormalCompressedTakesEmptyPositions) {
    auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
    mesh->addAttribute("position", 3, std::vector<float>{});
    mesh->addAttribute("normal", 3, std::vector<float>{});
    write(inputOf(mesh), SrcWriter::POSITION_NORMAL_COMPRESSED);
    EXPECT_THAT(callsOf("addBufferView"), ElementsAre("addBufferView() = bufferView0"));
}

TEST(WriterCalls, ComponentTypesPassAndUnknownOnesAreBytes) {
    using kel::src::detail::meshComponentTypeToSrcComponentType;
    for (unsigned type = 5120; type <= 5126; ++type)
        EXPECT_EQ(meshComponentTypeToSrcComponentType(static_cast<kel::mesh::ComponentType>(type)), type);
    for (const unsigned type : {0u, 5119u, 5127u, 4000000000u})
        EXPECT_EQ(meshComponentTypeToSrcComponentType(static_cast<kel::mesh::ComponentType>(type)), 5120u);
}

TEST(WriterCalls, ABufferWhoseElementsFallShortOfItsDescriptionIsFilledUp) {
    // The builder reads count x components x component size from the array, whatever the buffer says of its
    // element size. The fourth to sixth byte would lie outside.
    class Short : public ForeignAttribute {
    public:
        using ForeignAttribute::ForeignAttribute;
        std::size_t getComponentCountPerElement() const override { return 6; }
    };
    const auto mesh = foreignMesh({});
    mesh->attributes.emplace_back(
        "uv", std::make_shared<Short>(kel::mesh::BYTE, 3, std::vector<unsigned char>{1, 2, 3}, "uv"));
    write(inputOf(mesh));
    EXPECT_THAT(*recordedCalls(),
                Contains("addDefaultAttributeView(010203000000, 5120, 6, 1, none, none) = view1"));
}

// ---- Metadata ----

TEST(WriterCalls, MetadataIsOneTextWithTheStatisticsOfTheMesh) {
    auto mesh = ownMesh({"position"});
    mesh->setIndices(std::vector<std::uint16_t>{0, 1, 2});
    SrcWriterInput input = inputOf(mesh);
    input.metaData[mesh] = std::make_shared<std::map<std::string, std::string>>();
    (*input.metaData[mesh])["zone"] = "\"roof\"";
    const LogCapture log;
    write(input);
    // Corners (1,0,0), (3,0,0), (1,4,0.5): half of 2 times the square root of 16.25.
    EXPECT_THAT(callsOf("setMetaJsonString"),
                ElementsAre("setMetaJsonString({\"numOriginalTriangles\" : 1,\"numOriginalVertices\" : 4,"
                            "\"surfaceArea\" : 4.031129,\"zone\" : \"roof\"})"));
    EXPECT_EQ(input.metaData[mesh]->at("numOriginalVertices"), "4");
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(WriterCalls, MetadataComesAfterTheMaterialAndBeforeTheMesh) {
    const auto mesh = ownMesh({"position"});
    const auto material = std::make_shared<MaterialClassic>(7);
    SrcWriterInput input = inputOf(mesh);
    input.materials = {material};
    input.meshMaterials[mesh] = material;
    input.metaData[mesh] = std::make_shared<std::map<std::string, std::string>>();
    mesh->setIndices(std::vector<std::uint16_t>{});
    write(input);
    const CallLog calls = builderCalls();
    const auto at = [&](const char* prefix) {
        return std::find_if(calls.begin(), calls.end(),
                            [&](const auto& call) { return call.rfind(prefix, 0) == 0; });
    };
    EXPECT_LT(at("setBoundingBoxMinMax"), at("setMaterial(mat7)"));
    EXPECT_LT(at("setMaterial(mat7)"), at("setMetaJsonString"));
    EXPECT_LT(at("setMetaJsonString"), at("MeshBuilder::build"));
}

TEST(WriterCalls, MissingMetadataIsLoggedOncePerMesh) {
    const auto first = ownMesh({"position"}), second = ownMesh({"position"});
    SrcWriterInput input;
    input.meshes = {first, second};
    input.metaData[second] = nullptr; // as good as missing
    const LogCapture log;
    write(input);
    EXPECT_THAT(callsOf("setMetaJsonString"), IsEmpty());
    EXPECT_EQ(callsOf("addMesh").size(), 2u);
    ASSERT_EQ(log.records().size(), 2u);
    const LogRecord& record = log.records()[0];
    EXPECT_EQ(record.message, "Missing meta data");
    EXPECT_EQ(record.severity, 4);
    EXPECT_EQ(record.file, "kel/src/SrcLibWriterImpl");
    EXPECT_GT(record.line, 0);
    EXPECT_EQ(
        record.function,
        "void kel::src::detail::writeMeshSrcTemplate(const std::vector<std::shared_ptr<kel::mesh::Mesh> >&, "
        "const std::map<std::shared_ptr<kel::mesh::Mesh>, "
        "std::shared_ptr<std::map<std::basic_string<char>, std::basic_string<char> > > >&, "
        "const std::set<std::shared_ptr<kel::material::Material> >&, "
        "const std::map<std::shared_ptr<kel::mesh::Mesh>, std::shared_ptr<kel::material::Material> >&, "
        "std::ostream&, MeshCreateFunction) [with MeshCreateFunction = void (*)("
        "const std::shared_ptr<kel::mesh::Mesh>&, std::shared_ptr<src::builder::MeshBuilder>&, "
        "std::shared_ptr<src::builder::SrcBuilder>&); std::ostream = std::basic_ostream<char>]");
}

TEST(WriterCalls, JsonValueStringCopiesKeysAndValuesAsTheyAre) {
    using kel::src::detail::createJsonValueString;
    EXPECT_EQ(createJsonValueString({{"b", "2"}, {"a", "x"}}), "{\"a\" : x,\"b\" : 2}");
    EXPECT_EQ(createJsonValueString({}), "{}");
    EXPECT_EQ(createJsonValueString({{"a\"b", "\"c"}}), "{\"a\"b\" : \"c}");
}

// ---- Materials ----

CallLog materialCalls(const std::set<std::shared_ptr<kel::material::Material>>& materials) {
    SrcWriterInput input;
    input.materials = materials;
    write(input);
    CallLog calls = builderCalls();
    EXPECT_EQ(CallLog(calls.begin(), calls.begin() + 3),
              CallLog(BEFORE_ENCODER.begin(), BEFORE_ENCODER.begin() + 3));
    EXPECT_EQ(CallLog(calls.end() - 3, calls.end()), CallLog(AFTER_ENCODER.end() - 3, AFTER_ENCODER.end()));
    return {calls.begin() + 3, calls.end() - 3};
}

TEST(WriterCalls, AMaterialSetsTheTechniquesParametersInTheirOrder) {
    const auto material = std::make_shared<MaterialClassic>(7);
    material->setAmbient(0.5f);
    material->setDiffuse({0.8f, 0.2f, 0.25f});
    material->setSpecular({1, 0, 0.5f});
    material->setTransparency(0.75f);
    // The recording library's technique knows no shininess and no emission, and one parameter that no classic
    // material has.
    EXPECT_THAT(
        materialCalls({material}),
        ElementsAre("MaterialBuilder::create(mat7, technique)", "addParameterValue(ambientIntensity, [0.5])",
                    "addParameterValue(diffuseColor, [0.80000001192092896 0.20000000298023224 0.25])",
                    "addParameterValue(specularColor, [1 0 0.5])", "addParameterValue(transparency, [0.75])",
                    "MaterialBuilder::build", "addMaterial(mat7)"));
}

TEST(WriterCalls, AnAttributeThatTheMaterialLacksIsNotSet) {
    const auto material = std::make_shared<MaterialClassic>(4294967295u);
    material->removeAttribute("specular");
    const CallLog calls = materialCalls({material});
    EXPECT_EQ(calls.front(), "MaterialBuilder::create(mat4294967295, technique)");
    EXPECT_THAT(calls, Not(Contains(StartsWith("addParameterValue(specularColor"))));
    EXPECT_THAT(calls, Contains(StartsWith("addParameterValue(diffuseColor")));
}

class PlainMaterial : public kel::material::Material {
public:
    PlainMaterial() : Material(3) {}
    const std::shared_ptr<kel::material::MaterialDescription>& getDescription() const override {
        return description;
    }
    kel::material::AttributeValues getAttribute(const std::string&) const override { return {}; }

private:
    std::shared_ptr<kel::material::MaterialDescription> description;
};

TEST(WriterCalls, EmptyAndOtherMaterialsAreAddedAsEmptyOnes) {
    EXPECT_THAT(materialCalls({nullptr}), ElementsAre("addMaterial(none)"));
    EXPECT_THAT(materialCalls({std::make_shared<PlainMaterial>()}), ElementsAre("addMaterial(none)"));
}

TEST(WriterCalls, MaterialsOfOneIdentifierAreBothAdded) {
    materialCalls({std::make_shared<MaterialClassic>(3), std::make_shared<MaterialClassic>(3)});
    EXPECT_THAT(callsOf("addMaterial"), ElementsAre("addMaterial(mat3)", "addMaterial(mat3)"));
}

TEST(WriterCalls, AMeshOnlyGetsAMaterialOfTheSet) {
    const auto with = ownMesh({"position"}), without = ownMesh({"position"}),
               stranger = ownMesh({"position"});
    const auto material = std::make_shared<MaterialClassic>(1), other = std::make_shared<MaterialClassic>(2);
    SrcWriterInput input;
    input.meshes = {with, without, stranger};
    input.materials = {material};
    input.meshMaterials[with] = material;
    input.meshMaterials[stranger] = other;
    const LogCapture quiet;
    write(input);
    EXPECT_THAT(callsOf("setMaterial"), ElementsAre("setMaterial(mat1)"));
    EXPECT_THAT(callsOf("addMaterial"), ElementsAre("addMaterial(mat1)"));
}

TEST(WriterCalls, AMeshWithAnEmptyMaterialOfTheSetGetsIt) {
    const auto mesh = ownMesh({"position"});
    SrcWriterInput input = inputOf(mesh);
    input.materials = {nullptr};
    input.meshMaterials[mesh] = nullptr;
    write(input);
    EXPECT_THAT(callsOf("setMaterial"), ElementsAre("setMaterial(none)"));
}

TEST(WriterCalls, ConcatenateDropsWhatTheSecondMapDoesNotKnow) {
    const std::map<int, std::string> first = {{1, "a"}, {2, "b"}, {3, "a"}};
    const std::map<std::string, double> second = {{"a", 0.5}, {"c", 1.5}};
    EXPECT_EQ(kel::src::detail::concatenate(first, second), (std::map<int, double>{{1, 0.5}, {3, 0.5}}));
}

TEST(WriterCalls, TheContainerPresetIsNotRead) {
    SrcWriterInput input = inputOf(ownMesh({"position"}));
    write(input);
    const CallLog expected = builderCalls();
    input.useCompressedPreset = true;
    write(input);
    EXPECT_EQ(builderCalls(), expected);
}

// ---- Failures ----

TEST(WriterCalls, AFailureOfAnyBuilderCallPassesAndNoArrayIsLost) {
    const auto mesh = foreignMesh({"uv", "position", "normal"});
    const auto material = std::make_shared<MaterialClassic>(1);
    SrcWriterInput input = inputOf(mesh);
    input.materials = {material};
    input.meshMaterials[mesh] = material;
    input.metaData[mesh] = std::make_shared<std::map<std::string, std::string>>();
    mesh->indices = std::make_shared<ForeignIndices>(4, std::vector<std::size_t>{0, 1, 2}, mesh->log);
    for (const auto mode : MODES) {
        write(input, mode);
        const CallLog all = *recordedCalls();
        EXPECT_EQ(recordedArrays(), 0);
        for (std::size_t i = 0; i < all.size(); ++i) {
            if (isInputCall(all[i])) continue;
            failAtRecordedCall(static_cast<int>(i));
            EXPECT_THROW(write(input, mode), std::runtime_error) << all[i];
            EXPECT_EQ(recordedArrays(), 0) << all[i];
        }
        failAtRecordedCall(-1);
    }
}

TEST(WriterCalls, AFailureOfTheInputPassesAndNothingIsWritten) {
    struct Broken {};
    class BreaksAtTwo : public ForeignAttribute {
    public:
        using ForeignAttribute::ForeignAttribute;
        void getElement(std::size_t index, void* destination) const override {
            if (index == 2) throw Broken();
            ForeignAttribute::getElement(index, destination);
        }
    };
    for (const char* broken : {"position", "normal"}) {
        for (const auto mode : MODES) {
            const auto mesh = foreignMesh({"position", "normal"});
            for (auto& [name, buffer] : mesh->attributes) {
                if (name == broken) {
                    buffer = std::make_shared<BreaksAtTwo>(kel::mesh::FLOAT, 3,
                                                           std::vector<unsigned char>(48), name);
                }
            }
            std::ostringstream out;
            EXPECT_THROW(SrcWriter::write(inputOf(mesh), out, mode), Broken);
            EXPECT_EQ(out.str(), "");
            EXPECT_EQ(recordedArrays(), 0);
        }
    }
}

} // namespace
