#include "GltfText.h"
#include "ImporterTest.h"

#include <draco/compression/expert_encode.h>
#include <draco/mesh/triangle_soup_mesh_builder.h>
#include <meshoptimizer.h>

namespace kel::importer::test {

using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::FloatNear;
using testing::HasSubstr;

const std::vector<float> SQUARE = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0};
const std::vector<std::uint16_t> SQUARE_INDICES = {0, 1, 2, 0, 2, 3};

// ---- meshoptimizer ----------------------------------------------------------------------------------------

class MeshoptViews : public ImporterTest {
protected:
    GltfText gltf;

    MeshoptViews() { gltf.more = R"(,"extensionsRequired":["EXT_meshopt_compression"])"; }

    /// A compressed view, whose own buffer 1 has no bytes.
    void addView(const std::string& packed, std::size_t count, std::size_t stride, const std::string& mode,
                 const std::string& more = "") {
        gltf.views.push_back(R"({"buffer":1,"byteLength":)" + std::to_string(count * stride) +
                             R"(,"extensions":{"EXT_meshopt_compression":{"buffer":0,"byteOffset":)" +
                             std::to_string(gltf.bytes.size()) + R"(,"byteLength":)" +
                             std::to_string(packed.size()) + R"(,"byteStride":)" + std::to_string(stride) +
                             R"(,"count":)" + std::to_string(count) + R"(,"mode":")" + mode + "\"" + more +
                             "}}}");
        gltf.bytes += packed;
    }
    template<typename T>
    void addVertices(const std::vector<T>& values, std::size_t count, const std::string& more = "") {
        const std::size_t stride = values.size() * sizeof(T) / count;
        std::string packed(meshopt_encodeVertexBufferBound(count, stride), '\0');
        packed.resize(meshopt_encodeVertexBuffer(reinterpret_cast<unsigned char*>(packed.data()),
                                                 packed.size(), values.data(), count, stride));
        addView(packed, count, stride, "ATTRIBUTES", more);
    }
    void addTriangles(const std::vector<std::uint16_t>& indices) {
        std::string packed(meshopt_encodeIndexBufferBound(indices.size(), 4), '\0');
        packed.resize(meshopt_encodeIndexBuffer(reinterpret_cast<unsigned char*>(packed.data()),
                                                packed.size(), indices.data(), indices.size()));
        addView(packed, indices.size(), 2, "TRIANGLES");
    }
    void addAccessor(int type, const std::string& shape, std::size_t count, const std::string& more = "") {
        gltf.accessors.push_back(R"({"bufferView":)" + std::to_string(gltf.accessors.size()) +
                                 R"(,"componentType":)" + std::to_string(type) + R"(,"type":")" + shape +
                                 R"(","count":)" + std::to_string(count) + more + "}");
    }
    /// A square of compressed positions and indices.
    void addSquare(const std::string& moreAttributes = "") {
        addVertices(SQUARE, 4);
        addAccessor(5126, "VEC3", 4);
        addTriangles(SQUARE_INDICES);
        addAccessor(5123, "SCALAR", 6);
        gltf.addMesh("\"POSITION\":0" + moreAttributes, ",\"indices\":1");
        gltf.nodes.push_back(R"({"mesh":0})");
    }
    std::string json() const {
        std::string text = gltf.json();
        const auto end = text.find("\"}]", text.find("\"buffers\":")) + 2;
        return text.insert(
            end, R"(,{"byteLength":1000,"extensions":{"EXT_meshopt_compression":{"fallback":true}}})");
    }
    ImportResult imported() const { return import("packed.gltf", json()); }
};

TEST_F(MeshoptViews, VerticesAndTriangles) {
    addSquare();
    const auto mesh = imported().input.meshes.at(0);
    // The codec may turn a triangle, but neither flips it nor changes their order.
    const auto corners = cornersOf(*mesh, "position");
    ASSERT_EQ(corners.size(), 6u);
    for (std::size_t t = 0; t < 2; ++t) {
        std::vector<std::vector<float>> expected;
        for (std::size_t c = 0; c < 3; ++c) {
            const std::size_t v = SQUARE_INDICES[3 * t + c];
            expected.push_back({SQUARE[3 * v], SQUARE[3 * v + 1], SQUARE[3 * v + 2]});
        }
        EXPECT_THAT(std::vector(corners.begin() + static_cast<std::ptrdiff_t>(3 * t),
                                corners.begin() + static_cast<std::ptrdiff_t>(3 * t + 3)),
                    testing::UnorderedElementsAreArray(expected));
    }
}

TEST_F(MeshoptViews, AnIndexSequence) {
    addVertices(SQUARE, 4);
    addAccessor(5126, "VEC3", 4);
    const std::vector<std::uint32_t> strip = {0, 1, 2, 3, 0};
    std::string packed(meshopt_encodeIndexSequenceBound(strip.size(), 4), '\0');
    packed.resize(meshopt_encodeIndexSequence(reinterpret_cast<unsigned char*>(packed.data()), packed.size(),
                                              strip.data(), strip.size()));
    addView(packed, strip.size(), 4, "INDICES");
    addAccessor(5125, "SCALAR", strip.size());
    gltf.addMesh("\"POSITION\":0", ",\"indices\":1,\"mode\":3");
    gltf.nodes.push_back(R"({"mesh":0})");
    const auto result = imported();
    EXPECT_EQ(result.report.lines, 4u);
    EXPECT_THAT(indicesOf(*result.input.meshes.at(0)), ElementsAre(0, 1, 1, 2, 2, 3, 3, 0));
}

TEST_F(MeshoptViews, OctahedralNormals) {
    addSquare(",\"NORMAL\":2");
    const std::vector<float> given = {0, 0, 1, 0, 1, 0, 0, 0, 0, 0, -1, 0, 0.6f, 0, 0.8f, 0};
    std::vector<std::int8_t> encoded(16);
    meshopt_encodeFilterOct(encoded.data(), 4, 4, 8, given.data());
    addVertices(encoded, 4, R"(,"filter":"OCTAHEDRAL")");
    gltf.views.back().insert(1, R"("byteStride":4,)");
    addAccessor(5120, "VEC3", 4, R"(,"normalized":true)");
    const auto normals = numbersOf(*imported().input.meshes.at(0), "normal");
    ASSERT_EQ(normals.size(), 12u);
    for (std::size_t v = 0; v < 4; ++v) {
        for (std::size_t axis = 0; axis < 3; ++axis)
            EXPECT_NEAR(normals[3 * v + axis], given[4 * v + axis], 0.01) << v;
    }
}

TEST_F(MeshoptViews, ExponentialFloats) {
    const std::vector<float> given = {0, 0, 0, 100.25f, 0, 0, 0, -3.5f, 0};
    std::vector<std::uint32_t> encoded(9);
    meshopt_encodeFilterExp(encoded.data(), 3, 12, 24, given.data());
    addVertices(encoded, 3, R"(,"filter":"EXPONENTIAL")");
    addAccessor(5126, "VEC3", 3);
    gltf.addMesh("\"POSITION\":0");
    gltf.nodes.push_back(R"({"mesh":0})");
    const auto positions = numbersOf(*imported().input.meshes.at(0), "position");
    ASSERT_EQ(positions.size(), 9u);
    for (std::size_t i = 0; i < 9; ++i)
        EXPECT_NEAR(positions[i], given[i], 1e-4) << i;
}

TEST_F(MeshoptViews, QuaternionsTurnInstances) {
    // A quarter turn about z, as the one instance of a node.
    addSquare();
    const std::vector<float> turn = {0, 0, 0.70710678f, 0.70710678f};
    std::vector<std::int16_t> encoded(4);
    meshopt_encodeFilterQuat(encoded.data(), 1, 8, 16, turn.data());
    addVertices(encoded, 1, R"(,"filter":"QUATERNION")");
    addAccessor(5122, "VEC4", 1, R"(,"normalized":true)");
    gltf.nodes[0] = R"({"mesh":0,"extensions":{"EXT_mesh_gpu_instancing":{"attributes":{"ROTATION":2}}}})";
    const auto positions = numbersOf(*imported().input.meshes.at(0), "position");
    const std::vector<float> turned = {0, 0, 0, 0, 1, 0, -1, 1, 0, -1, 0, 0};
    ASSERT_EQ(positions.size(), turned.size());
    for (std::size_t i = 0; i < turned.size(); ++i)
        EXPECT_NEAR(positions[i], turned[i], 1e-3) << i;
}

TEST_F(MeshoptViews, DamagedBytesAreRefused) {
    addSquare();
    gltf.bytes[0] = 'x';
    const auto error = errorOf([&] { imported(); });
    EXPECT_EQ(error.code(), ImportCode::INVALID_MODEL);
    EXPECT_THAT(error.place(), "bufferViews[0]");
}

TEST_F(MeshoptViews, ANewerVersionOfTheCodecIsNamed) {
    addSquare();
    gltf.bytes[0] = '\xA1';
    const auto error = errorOf([&] { imported(); });
    EXPECT_EQ(error.code(), ImportCode::UNSUPPORTED_FEATURE);
    EXPECT_THAT(error.what(), HasSubstr("version 1"));
}

TEST_F(MeshoptViews, ACountThatTheBytesCannotHold) {
    addSquare();
    const std::string stated = R"("count":4)";
    std::string text = json();
    text.replace(text.find(stated), stated.size(), R"("count":400000000)");
    EXPECT_EQ(errorOf([&] { import("packed.gltf", text); }).code(), ImportCode::IMPOSSIBLE_COUNT);
}

TEST_F(MeshoptViews, AnUnknownModeIsNamed) {
    addSquare();
    std::string text = json();
    text.replace(text.find("TRIANGLES"), 9, "CLUSTERS");
    const auto error = errorOf([&] { import("packed.gltf", text); });
    EXPECT_EQ(error.code(), ImportCode::UNSUPPORTED_FEATURE);
    EXPECT_THAT(error.what(), HasSubstr("\"CLUSTERS\""));
}

// ---- Draco ------------------------------------------------------------------------------------------------

class Draco : public ImporterTest {
protected:
    struct Encoded {
        std::string bytes;
        std::vector<std::uint32_t> identifiers;
    };
    /// A square with positions, a generic attribute of one byte, and normals, in an order of its own.
    static Encoded encoded(bool quantized) {
        draco::TriangleSoupMeshBuilder builder;
        builder.Start(2);
        const int wear = builder.AddAttribute(draco::GeometryAttribute::GENERIC, 1, draco::DT_UINT8);
        const int normal = builder.AddAttribute(draco::GeometryAttribute::NORMAL, 3, draco::DT_FLOAT32);
        const int position = builder.AddAttribute(draco::GeometryAttribute::POSITION, 3, draco::DT_FLOAT32);
        const float up[3] = {0, 0, 1};
        for (int t = 0; t < 2; ++t) {
            const float* p[3];
            std::uint8_t w[3];
            for (int c = 0; c < 3; ++c) {
                const std::size_t v = SQUARE_INDICES[static_cast<std::size_t>(3 * t + c)];
                p[c] = &SQUARE[3 * v];
                w[c] = static_cast<std::uint8_t>(10 * v);
            }
            const draco::FaceIndex face(static_cast<std::uint32_t>(t));
            builder.SetAttributeValuesForFace(position, face, p[0], p[1], p[2]);
            builder.SetAttributeValuesForFace(normal, face, up, up, up);
            builder.SetAttributeValuesForFace(wear, face, &w[0], &w[1], &w[2]);
        }
        const auto mesh = builder.Finalize();
        draco::ExpertEncoder encoder(*mesh);
        if (quantized) encoder.SetAttributeQuantization(position, 12);
        draco::EncoderBuffer buffer;
        EXPECT_TRUE(encoder.EncodeToBuffer(&buffer).ok());
        Encoded result{std::string(buffer.data(), buffer.size()), {}};
        for (const int attribute : {position, normal, wear})
            result.identifiers.push_back(mesh->attribute(attribute)->unique_id());
        return result;
    }
    static GltfText document(const Encoded& data) {
        GltfText gltf;
        gltf.bytes = data.bytes;
        gltf.views = {R"({"buffer":0,"byteLength":)" + std::to_string(data.bytes.size()) + "}"};
        gltf.accessors = {R"({"componentType":5126,"type":"VEC3","count":4})",
                          R"({"componentType":5126,"type":"VEC3","count":4})",
                          R"({"componentType":5121,"type":"SCALAR","count":4})",
                          R"({"componentType":5123,"type":"SCALAR","count":6})"};
        const auto& id = data.identifiers;
        gltf.addMesh(
            R"("POSITION":0,"NORMAL":1,"_WEAR":2)",
            R"(,"indices":3,"extensions":{"KHR_draco_mesh_compression":{"bufferView":0,"attributes":{)"
            R"("_WEAR":)" +
                std::to_string(id[2]) + R"(,"NORMAL":)" + std::to_string(id[1]) + R"(,"POSITION":)" +
                std::to_string(id[0]) + "}}}");
        gltf.nodes = {R"({"mesh":0})"};
        gltf.more = R"(,"extensionsRequired":["KHR_draco_mesh_compression"])";
        return gltf;
    }
};

TEST_F(Draco, AttributesAreFoundByTheirIdentifiers) {
    const auto result = import("draco.gltf", document(encoded(false)).json());
    const auto& mesh = *result.input.meshes.at(0);
    EXPECT_EQ(result.report.triangles, 2u);
    EXPECT_THAT(cornersOf(mesh, "normal"), Each(ElementsAre(0, 0, 1)));
    // Vertex v of the square has the wear 10 v, wherever the codec put it.
    const auto positions = numbersOf(mesh, "position");
    const auto wear = numbersOf(mesh, "_WEAR");
    ASSERT_EQ(wear.size(), 4u);
    for (std::size_t i = 0; i < 4; ++i) {
        const auto v = static_cast<std::size_t>(wear[i]) / 10;
        EXPECT_THAT(std::vector(&positions[3 * i], &positions[3 * i] + 3),
                    ElementsAreArray(&SQUARE[3 * v], 3));
    }
}

TEST_F(Draco, QuantizedPositionsAreFloatsAgain) {
    const auto mesh = import("draco.gltf", document(encoded(true)).json()).input.meshes.at(0);
    const auto positions = numbersOf(*mesh, "position");
    const auto wear = numbersOf(*mesh, "_WEAR");
    ASSERT_EQ(wear.size(), 4u);
    for (std::size_t i = 0; i < 12; ++i)
        EXPECT_NEAR(positions[i], SQUARE[3 * (static_cast<std::size_t>(wear[i / 3]) / 10) + i % 3], 1e-3);
}

TEST_F(Draco, IsDecodedInAProcessOfItsOwn) {
    useHostileHelper();
    const std::string json = document(encoded(false)).json();
    EXPECT_EQ(errorOf([&] { import("segfaults.gltf", json); }).code(), ImportCode::READER_FAILED);
    EXPECT_EQ(import("segfaults2.gltf", oneTriangle().json()).report.triangles, 1u) << "without Draco's form";
    ::unsetenv(detail::HELPER_VARIABLE);
}

TEST_F(Draco, DamagedDataAreRefused) {
    Encoded data = encoded(false);
    data.bytes.resize(data.bytes.size() / 2);
    const auto error = errorOf([&] { import("draco.gltf", document(data).json()); });
    EXPECT_EQ(error.code(), ImportCode::INVALID_MODEL);
    EXPECT_THAT(error.place(), HasSubstr("meshes[0].primitives[0]"));
}

TEST_F(Draco, AnIdentifierThatTheDataDoNotHave) {
    Encoded data = encoded(false);
    data.identifiers[2] = 77;
    const auto error = errorOf([&] { import("draco.gltf", document(data).json()); });
    EXPECT_EQ(error.code(), ImportCode::INVALID_MODEL);
    EXPECT_THAT(error.what(), HasSubstr("no attribute 77"));
}

} // namespace kel::importer::test
