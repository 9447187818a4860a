#include "Files.h"

#include <kel/mesh/Transforms.h>
#include <kel/src/SrcReader.h>
#include <kel/src/encoding/Quantization.h>

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <cmath>
#include <limits>

namespace {

using namespace kel::src;
using namespace reader_fixture;

/// A file with one attribute view and no mesh.
std::string viewFile(const std::string& view, const std::string& data) {
    const std::string size = std::to_string(data.size());
    return assemble(R"({"accessors":{"attributeViews":{"a":)" + view +
                        R"(},"indexViews":{}},"bufferChunks":{"c":{"byteLength":)" + size +
                        R"(,"byteOffset":0}},"bufferViews":{"b":{"byteLength":)" + size +
                        R"(,"chunks":["c"]}},"meshes":{}})",
                    data);
}

std::string view(int type, const char* shape, int stride, int count, const std::string& decode = {}) {
    return R"({"bufferView":"b","byteOffset":0,"byteStride":)" + std::to_string(stride) +
           R"(,"componentType":)" + std::to_string(type) + R"(,"count":)" + std::to_string(count) + decode +
           R"(,"type":")" + shape + "\"}";
}

std::vector<float> decodeOnly(const std::string& text) {
    const SrcFile file = read(text);
    return decodeAttribute(file, file.attributeViews()[0]);
}

TEST(DecodeAttribute, EveryComponentTypeWithoutDecodeVectors) {
    const std::string bytes("\xff\x01\x80\x00\xfe\xff\xff\xff", 8);
    EXPECT_EQ(decodeOnly(viewFile(view(5120, "SCALAR", 1, 3), bytes)), (std::vector<float>{-1, 1, -128}));
    EXPECT_EQ(decodeOnly(viewFile(view(5121, "SCALAR", 1, 3), bytes)), (std::vector<float>{255, 1, 128}));
    EXPECT_EQ(decodeOnly(viewFile(view(5122, "VEC2", 4, 2), bytes)), (std::vector<float>{511, 128, -2, -1}));
    EXPECT_EQ(decodeOnly(viewFile(view(5123, "VEC2", 4, 2), bytes)),
              (std::vector<float>{511, 128, 65534, 65535}));
    EXPECT_EQ(decodeOnly(viewFile(view(5124, "SCALAR", 4, 2), bytes)), (std::vector<float>{8389119, -2}));
    EXPECT_EQ(decodeOnly(viewFile(view(5125, "SCALAR", 4, 2), bytes)),
              (std::vector<float>{8389119, 4294967294.0f}));
    EXPECT_EQ(decodeOnly(viewFile(view(5121, "VEC4", 0, 2), bytes)),
              (std::vector<float>{255, 1, 128, 0, 254, 255, 255, 255}));
}

TEST(DecodeAttribute, AddsTheOffsetAndDividesByTheScale) {
    const std::string decode = R"(,"decodeOffset":[-127.5,0,10],"decodeScale":[255,2,0.5])";
    EXPECT_EQ(decodeOnly(viewFile(view(5121, "VEC3", 4, 2, decode),
                                  std::string("\x00\x01\x02\xee\xff\xff\xff\xee", 8))),
              (std::vector<float>{-0.5f, 0.5f, 24, 0.5f, 127.5f, 530}));
}

TEST(DecodeAttribute, ALongRunEqualsItsElementsOneByOne) {
    // Long runs are decoded four elements at a time; what is left over, one by one.
    EXPECT_TRUE(rc::check("groups and leftovers agree", [] {
        const auto components = *rc::gen::inRange<std::size_t>(1, 5);
        const auto count = *rc::gen::inRange<std::size_t>(0, 40);
        const auto codes = *rc::gen::container<std::vector<std::uint16_t>>(
            count * components, rc::gen::arbitrary<std::uint16_t>());
        static const char* const SHAPES[] = {"SCALAR", "VEC2", "VEC3", "VEC4"};
        std::string offsets = "[", scales = "[";
        for (std::size_t c = 0; c < components; ++c) {
            offsets += (c ? "," : "") + std::to_string(3.25 + static_cast<double>(c));
            scales += (c ? "," : "") + std::to_string(0.75 + static_cast<double>(c));
        }
        const std::string data(reinterpret_cast<const char*>(codes.data()), codes.size() * 2);
        const auto values = decodeOnly(viewFile(
            view(5123, SHAPES[components - 1], static_cast<int>(2 * components), static_cast<int>(count),
                 ",\"decodeOffset\":" + offsets + "],\"decodeScale\":" + scales + "]"),
            data));
        RC_ASSERT(values.size() == codes.size());
        for (std::size_t i = 0; i < values.size(); ++i) {
            const auto c = static_cast<double>(i % components);
            RC_ASSERT(values[i] == static_cast<float>((codes[i] + (3.25 + c)) / (0.75 + c)));
        }
    }));
}

TEST(DecodeAttribute, FloatsPassBitForBit) {
    const float special[] = {std::numeric_limits<float>::quiet_NaN(), -0.0f,
                             std::numeric_limits<float>::infinity(), 1e-45f};
    const std::string data(reinterpret_cast<const char*>(special), sizeof special);
    const auto values =
        decodeOnly(viewFile(view(5126, "SCALAR", 4, 4, R"(,"decodeOffset":[0],"decodeScale":[1])"), data));
    EXPECT_EQ(std::memcmp(values.data(), special, sizeof special), 0);
}

TEST(DecodeAttribute, CodesAbove16BitsComeFromSlotsOf3Bytes) {
    const float source[] = {-0.5f, 0.25f, 0.5f, -0.25f, 0.0f, 0.125f};
    const float min[] = {-0.5f, -0.5f, -0.5f}, extent[] = {1, 1, 1};
    for (const std::size_t bits : {17u, 20u, 24u}) {
        std::vector<unsigned char> codes;
        detail::ShapeResourceContainer::SRCDataType type{};
        std::size_t stride = 0;
        double offset[3], scale[3];
        detail::quantizeToNBits(source, 2, 3, min, extent, bits, false, codes, type, stride, offset, scale);
        ASSERT_EQ(stride, 9u);
        const std::string decode = ",\"decodeOffset\":[" + std::to_string(offset[0]) + "," +
                                   std::to_string(offset[1]) + "," + std::to_string(offset[2]) +
                                   "],\"decodeScale\":[" + std::to_string(scale[0]) + "," +
                                   std::to_string(scale[1]) + "," + std::to_string(scale[2]) + "]";
        const std::string text =
            viewFile(view(5125, "VEC3", 9, 2, decode), std::string(codes.begin(), codes.end()));
        const SrcFile file = read(text);
        EXPECT_EQ(file.attributeViews()[0].componentBytes, 3);
        const auto values = decodeAttribute(file, file.attributeViews()[0]);
        for (std::size_t i = 0; i < 6; ++i)
            EXPECT_NEAR(values[i], source[i], 2.0 / scale[0]) << bits << " bits";
    }
}

TEST(DecodeAttribute, FourBytesOrMorePerComponentAreNoSlots) {
    const std::string data(16, '\1');
    const std::string text = viewFile(view(5125, "VEC2", 8, 2), data);
    EXPECT_EQ(read(text).attributeViews()[0].componentBytes, 4);
}

TEST(DecodeMesh, TakesACombinedAttributeApart) {
    auto input = fixture::inputOf({octahedron()});
    const std::string text = write(input, Mode::POSITIONS_AND_NORMALS);
    const SrcFile file = read(text);
    ASSERT_EQ(file.attributes(file.meshes()[0]).size(), 1u);
    const DecodedMesh mesh = decodeMesh(file, file.meshes()[0]);
    ASSERT_NE(mesh.find("position"), nullptr);
    ASSERT_NE(mesh.find("normal"), nullptr);
    const std::vector<float> positions = fixture::floatsOf(*input.meshes[0], "position");
    for (std::size_t i = 0; i < positions.size(); ++i)
        EXPECT_NEAR(mesh.find("position")->values[i], positions[i], 1.01 / 65535);
    // The six axes are exact in the octahedral form.
    EXPECT_EQ(mesh.find("normal")->values, fixture::floatsOf(*input.meshes[0], "normal"));
}

TEST(DecodeMesh, UndoesTheFitThatTheMetadataRecord) {
    auto input = fixture::inputOf({octahedron()});
    (*input.metaData[input.meshes[0]])["fit"] =
        R"({"position":{"offset":[10,20,30],"scale":[2,4,8]},"normal":{"offset":[0,0],"scale":[1,1]},"other":5})";
    const std::string text = write(input, Mode::DEFAULT);
    const SrcFile file = read(text);
    const std::vector<SrcFit> fits = fitOf(file.meshes()[0]);
    ASSERT_EQ(fits.size(), 2u); // the one of the normals is for two components and does not apply
    const std::vector<float> stored = fixture::floatsOf(*input.meshes[0], "position");
    const DecodedMesh fitted = decodeMesh(file, file.meshes()[0]);
    for (std::size_t i = 0; i < stored.size(); ++i) {
        const float scale[] = {2, 4, 8}, offset[] = {10, 20, 30};
        EXPECT_EQ(fitted.find("position")->values[i], stored[i] * scale[i % 3] + offset[i % 3]);
    }
    EXPECT_EQ(fitted.find("normal")->values, fixture::floatsOf(*input.meshes[0], "normal"));
    DecodeOptions asStored;
    asStored.applyFit = false;
    EXPECT_EQ(decodeMesh(file, file.meshes()[0], asStored).find("position")->values, stored);
}

TEST(DecodeMesh, LeavesOutAttributesThatBelongToAnEarlierMesh) {
    const std::string text =
        write(fixture::inputOf({fixture::unitSquare(), fixture::tetrahedron()}), Mode::DEFAULT);
    const SrcFile file = read(text);
    ASSERT_EQ(file.attributes(file.meshes()[1]).size(),
              3u); // the writer names the square's normals and texcoords
    const DecodedMesh mesh = decodeMesh(file, file.meshes()[1]);
    ASSERT_EQ(mesh.attributes.size(), 1u);
    EXPECT_EQ(mesh.attributes[0].name, "position");
    DecodeOptions all;
    all.ownAttributesOnly = false;
    EXPECT_EQ(decodeMesh(file, file.meshes()[1], all).attributes.size(), 3u);
}

TEST(DecodeMesh, RefusesToTakeMoreThanItsLimit) {
    const std::string text = triangleFile();
    const SrcFile file = read(text);
    DecodeOptions small;
    small.memoryBytes = 100;
    try {
        decodeMesh(file, file.meshes()[0], small);
        FAIL();
    } catch (const SrcError& error) {
        EXPECT_EQ(error.code(), SrcCode::LIMIT_EXCEEDED);
    }
}

TEST(Decode, AgreesWithAnIndependentReadingOfEveryMode) {
    const auto input =
        fixture::inputOf({fixture::sphere(12, 7), fixture::unitSquare(), fixture::tetrahedron()});
    for (const Mode mode : ALL_MODES) {
        const std::string text = write(input, mode);
        const SrcFile file = read(text);
        const IndependentReading other(text);
        for (const SrcMesh& mesh : file.meshes()) {
            const std::string id(mesh.id);
            EXPECT_EQ(decodeIndices(file, file.indexViews()[mesh.indexView]), other.indices(id));
            for (const SrcAttribute& attribute : file.attributes(mesh)) {
                const auto expected = other.attribute(id, std::string(attribute.name));
                const auto values = decodeAttribute(file, file.attributeViews()[attribute.view]);
                std::size_t i = 0;
                for (const auto& element : expected.decoded)
                    for (const double component : element)
                        EXPECT_EQ(values.at(i++), static_cast<float>(component)) << attribute.name;
                EXPECT_EQ(i, values.size());
            }
        }
    }
}

TEST(JsonMembers, TakesAnObjectApart) {
    const auto members = jsonMembers(R"( { "a" : [1, {"b":"},"}] , "\u0063\n" : "x\"y" ,"d":-1.5e3} )");
    ASSERT_EQ(members.size(), 3u);
    EXPECT_EQ(members[0].key + "=" + std::string(members[0].json), "a=[1, {\"b\":\"},\"}]");
    EXPECT_EQ(members[1].key + "=" + std::string(members[1].json), "c\n=\"x\\\"y\"");
    EXPECT_EQ(members[2].json, "-1.5e3");
    EXPECT_TRUE(jsonMembers("{}").empty());
    EXPECT_TRUE(jsonMembers("[1]").empty());
    EXPECT_TRUE(jsonMembers("").empty());
}

TEST(JsonMembers, TheLastOfEqualKeysCounts) {
    const auto members = jsonMembers(R"({"b":1,"a":2,"b":3})");
    ASSERT_EQ(members.size(), 2u);
    EXPECT_EQ(members[1].key, "b");
    EXPECT_EQ(members[1].json, "3");
}

TEST(JsonNumbers, TakesAListOrOneNumber) {
    std::vector<double> numbers;
    EXPECT_TRUE(jsonNumbers("[1, -2.5 ,3e2]", numbers));
    EXPECT_EQ(numbers, (std::vector<double>{1, -2.5, 300}));
    EXPECT_TRUE(jsonNumbers("0.5", numbers));
    EXPECT_EQ(numbers, (std::vector<double>{0.5}));
    EXPECT_TRUE(jsonNumbers("[]", numbers));
    EXPECT_FALSE(jsonNumbers("[1,\"2\"]", numbers));
    EXPECT_FALSE(jsonNumbers("{}", numbers));
    EXPECT_FALSE(jsonNumbers("null", numbers));
}

TEST(JsonString, MeansWhatItSays) {
    std::string text;
    EXPECT_TRUE(jsonString(R"("a\/\u00e9\ud83d\ude00\ud800x")", text));
    EXPECT_EQ(text, "a/\xc3\xa9\xf0\x9f\x98\x80\xef\xbf\xbdx");
    EXPECT_FALSE(jsonString("1", text));
}

} // namespace
