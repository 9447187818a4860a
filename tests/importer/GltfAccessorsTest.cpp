#include "GltfText.h"
#include "ImporterTest.h"

namespace kel::importer::test {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;

class GltfAccessors : public ImporterTest {
protected:
    /// One triangle with an attribute "_VALUE" of three elements.
    template<typename T>
    std::vector<float> valuesOf(const std::vector<T>& values, int componentType, const std::string& type,
                                std::size_t components, bool normalized) const {
        GltfText gltf = oneTriangle();
        gltf.add(values, componentType, type, components);
        if (normalized) gltf.accessors[1].insert(1, R"("normalized":true,)");
        return valuesIn(gltf);
    }
    std::vector<float> valuesIn(GltfText gltf) const {
        gltf.meshes[0] = R"({"primitives":[{"attributes":{"POSITION":0,"_VALUE":1}}]})";
        return numbersOf(*import("values.gltf", gltf.json()).input.meshes.at(0), "_VALUE");
    }
    /// One triangle whose accessor 0 a test has put together.
    std::vector<float> positionsIn(const GltfText& gltf) const {
        return numbersOf(*import("positions.gltf", gltf.json()).input.meshes.at(0), "position");
    }
};

const std::vector<float> TRIANGLE = {0, 0, 0, 1, 0, 0, 0, 1, 0};

TEST_F(GltfAccessors, WholeNumbersOfAllTypesAreTakenAsTheyAre) {
    EXPECT_THAT(valuesOf<std::int8_t>({-128, 0, 127}, 5120, "SCALAR", 1, false), ElementsAre(-128, 0, 127));
    EXPECT_THAT(valuesOf<std::uint8_t>({0, 7, 255}, 5121, "SCALAR", 1, false), ElementsAre(0, 7, 255));
    EXPECT_THAT(valuesOf<std::int16_t>({-32768, 1, 32767}, 5122, "SCALAR", 1, false),
                ElementsAre(-32768, 1, 32767));
    EXPECT_THAT(valuesOf<std::uint16_t>({0, 9, 65535}, 5123, "SCALAR", 1, false), ElementsAre(0, 9, 65535));
    EXPECT_THAT(valuesOf<std::uint32_t>({0, 3, 16777216}, 5125, "SCALAR", 1, false),
                ElementsAre(0, 3, 16777216));
    EXPECT_THAT(valuesOf<float>({-0.5f, 0.25f, 1e30f}, 5126, "SCALAR", 1, false),
                ElementsAre(-0.5f, 0.25f, 1e30f));
}

TEST_F(GltfAccessors, NormalizedNumbersReachFrom0Or1) {
    // The two smallest codes of a signed type both mean -1.
    EXPECT_THAT(valuesOf<std::int8_t>({-128, -127, 127}, 5120, "SCALAR", 1, true), ElementsAre(-1, -1, 1));
    EXPECT_THAT(valuesOf<std::uint8_t>({0, 51, 255}, 5121, "SCALAR", 1, true), ElementsAre(0, 0.2f, 1));
    EXPECT_THAT(valuesOf<std::int16_t>({-32768, 0, 32767}, 5122, "SCALAR", 1, true), ElementsAre(-1, 0, 1));
    EXPECT_THAT(valuesOf<std::uint16_t>({0, 13107, 65535}, 5123, "SCALAR", 1, true), ElementsAre(0, 0.2f, 1));
}

TEST_F(GltfAccessors, AnOwnAttributeKeepsItsNameAndWidth) {
    EXPECT_THAT(valuesOf<float>({1, 2, 3, 4, 5, 6}, 5126, "VEC2", 2, false), ElementsAre(1, 2, 3, 4, 5, 6));
    EXPECT_THAT(valuesOf<std::uint8_t>({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}, 5121, "VEC4", 4, false),
                ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12));
}

TEST_F(GltfAccessors, NumbersThatAFloatCannotCountAreTold) {
    GltfText gltf = oneTriangle();
    gltf.add(std::vector<std::uint32_t>{1, 16777217, 3}, 5125, "SCALAR", 1);
    gltf.meshes[0] = R"({"primitives":[{"attributes":{"POSITION":0,"_ID":1}}]})";
    EXPECT_THAT(import("ids.gltf", gltf.json()).report.notes,
                testing::Contains(HasSubstr("1 numbers of the attribute _ID")));
}

TEST_F(GltfAccessors, ElementsMayStandApart) {
    // Positions and a byte attribute side by side, 16 bytes a vertex.
    std::string bytes;
    for (std::size_t v = 0; v < 3; ++v) {
        bytes += bytesOf(std::vector<float>(TRIANGLE.begin() + static_cast<std::ptrdiff_t>(3 * v),
                                            TRIANGLE.begin() + static_cast<std::ptrdiff_t>(3 * v + 3)));
        bytes += std::string(1, static_cast<char>(10 * v)) + "..,";
    }
    GltfText gltf;
    gltf.bytes = bytes;
    gltf.views = {R"({"buffer":0,"byteLength":48,"byteStride":16})"};
    gltf.accessors = {R"({"bufferView":0,"componentType":5126,"type":"VEC3","count":3})",
                      R"({"bufferView":0,"byteOffset":12,"componentType":5121,"type":"SCALAR","count":3})"};
    gltf.addMesh(R"("POSITION":0,"_VALUE":1)");
    gltf.nodes = {R"({"mesh":0})"};
    const auto mesh = import("interleaved.gltf", gltf.json()).input.meshes.at(0);
    EXPECT_THAT(numbersOf(*mesh, "position"), ElementsAreArray(TRIANGLE));
    EXPECT_THAT(numbersOf(*mesh, "_VALUE"), ElementsAre(0, 10, 20));
}

TEST_F(GltfAccessors, TheLastElementMayEndWithTheView) {
    GltfText gltf = oneTriangle();
    gltf.views[0] = R"({"buffer":0,"byteLength":36,"byteStride":12})";
    EXPECT_THAT(positionsIn(gltf), ElementsAreArray(TRIANGLE));
    gltf.views[0] = R"({"buffer":0,"byteLength":35,"byteStride":12})";
    EXPECT_EQ(errorOf([&] { import("short.gltf", gltf.json()); }).code(), ImportCode::IMPOSSIBLE_COUNT);
}

TEST_F(GltfAccessors, FloatsNeedNotBeAligned) {
    GltfText gltf = oneTriangle();
    gltf.bytes = "?" + gltf.bytes;
    gltf.views[0] = R"({"buffer":0,"byteOffset":1,"byteLength":36})";
    EXPECT_THAT(positionsIn(gltf), ElementsAreArray(TRIANGLE));
}

TEST_F(GltfAccessors, SparseValuesReplaceThoseOfTheView) {
    GltfText gltf = oneTriangle();
    gltf.add(std::vector<std::uint8_t>{2}, 5121, "SCALAR", 1);
    gltf.addVec3({0, 2, 0});
    gltf.accessors[0] = R"({"bufferView":0,"componentType":5126,"type":"VEC3","count":3,"sparse":{"count":1,)"
                        R"("indices":{"bufferView":1,"componentType":5121},"values":{"bufferView":2}}})";
    EXPECT_THAT(positionsIn(gltf), ElementsAre(0, 0, 0, 1, 0, 0, 0, 2, 0));
}

TEST_F(GltfAccessors, SparseValuesOfNormalizedNumbersAreNormalized) {
    GltfText gltf = oneTriangle();
    gltf.add(std::vector<std::uint8_t>{255, 0, 51}, 5121, "SCALAR", 1);
    gltf.add(std::vector<std::uint16_t>{1}, 5123, "SCALAR", 1);
    gltf.add(std::vector<std::uint8_t>{102}, 5121, "SCALAR", 1);
    gltf.accessors[1] = R"({"bufferView":1,"componentType":5121,"normalized":true,"type":"SCALAR","count":3,)"
                        R"("sparse":{"count":1,"indices":{"bufferView":2,"componentType":5123},)"
                        R"("values":{"bufferView":3}}})";
    EXPECT_THAT(valuesIn(gltf), ElementsAre(1, 0.4f, 0.2f));
}

TEST_F(GltfAccessors, WithoutAViewElementsAreZero) {
    GltfText gltf = oneTriangle();
    gltf.add(std::vector<std::uint16_t>{1, 2}, 5123, "SCALAR", 1);
    gltf.addVec3({1, 0, 0, 0, 1, 0});
    gltf.accessors[0] = R"({"componentType":5126,"type":"VEC3","count":3,"sparse":{"count":2,)"
                        R"("indices":{"bufferView":1,"componentType":5123},"values":{"bufferView":2}}})";
    EXPECT_THAT(positionsIn(gltf), ElementsAreArray(TRIANGLE));
    gltf = oneTriangle();
    gltf.accessors.emplace_back(R"({"componentType":5126,"type":"SCALAR","count":3})");
    EXPECT_THAT(valuesIn(gltf), ElementsAre(0, 0, 0));
}

TEST_F(GltfAccessors, IndicesMayBeSparse) {
    GltfText gltf = oneTriangle();
    gltf.addIndices({0, 1, 1});
    gltf.addIndices({2});
    gltf.add(std::vector<std::uint16_t>{2}, 5123, "SCALAR", 1);
    gltf.accessors[1] =
        R"({"bufferView":1,"componentType":5123,"type":"SCALAR","count":3,"sparse":{"count":1,)"
        R"("indices":{"bufferView":2,"componentType":5123},"values":{"bufferView":3}}})";
    gltf.meshes[0] = R"({"primitives":[{"attributes":{"POSITION":0},"indices":1}]})";
    EXPECT_THAT(indicesOf(*import("sparse.gltf", gltf.json()).input.meshes.at(0)), ElementsAre(0, 1, 2));
}

TEST_F(GltfAccessors, ASparseIndexOutOfRange) {
    GltfText gltf = oneTriangle();
    gltf.add(std::vector<std::uint8_t>{3}, 5121, "SCALAR", 1);
    gltf.addVec3({0, 2, 0});
    gltf.accessors[0] = R"({"bufferView":0,"componentType":5126,"type":"VEC3","count":3,"sparse":{"count":1,)"
                        R"("indices":{"bufferView":1,"componentType":5121},"values":{"bufferView":2}}})";
    const auto error = errorOf([&] { positionsIn(gltf); });
    EXPECT_EQ(error.code(), ImportCode::INDEX_OUT_OF_RANGE);
    EXPECT_EQ(error.place(), "accessors[0]");
}

TEST_F(GltfAccessors, ZerosThatTheFileDoesNotJustify) {
    GltfText gltf = oneTriangle();
    gltf.accessors[0] =
        R"({"componentType":5126,"type":"VEC3","count":100000})"; // the file has some 500 bytes
    const auto error = errorOf([&] { positionsIn(gltf); });
    EXPECT_EQ(error.code(), ImportCode::IMPOSSIBLE_COUNT);
    EXPECT_THAT(error.what(), HasSubstr("without a buffer view"));
}

TEST_F(GltfAccessors, PositionsOfShorts) {
    GltfText gltf;
    gltf.add(std::vector<std::int16_t>{-3, 0, 0, 99, 5, 0, 0, 99, -3, 7, 0, 99}, 5122, "VEC4", 4);
    gltf.accessors[0] = R"({"bufferView":0,"componentType":5122,"type":"VEC3","count":3})";
    gltf.views[0].insert(1, R"("byteStride":8,)");
    gltf.addMesh("\"POSITION\":0");
    gltf.nodes = {R"({"mesh":0,"scale":[0.5,0.5,0.5]})"};
    EXPECT_THAT(positionsIn(gltf), ElementsAre(-1.5f, 0, 0, 2.5f, 0, 0, -1.5f, 3.5f, 0));
}

TEST_F(GltfAccessors, NormalizedPositionsAreRoundedOnce) {
    // 1 / 65535 is no float, and 65535 times the float nearest to it is not 1.
    GltfText gltf;
    gltf.add(std::vector<std::uint16_t>{0, 0, 0, 1, 0, 0, 0, 65535, 0}, 5123, "VEC3", 3);
    gltf.accessors[0].insert(1, R"("normalized":true,)");
    gltf.addMesh("\"POSITION\":0");
    gltf.nodes = {R"({"mesh":0,"scale":[65535,65535,65535]})"};
    EXPECT_THAT(positionsIn(gltf), ElementsAre(0, 0, 0, 1, 0, 0, 0, 65535, 0));
}

TEST_F(GltfAccessors, NormalsOfBytes) {
    GltfText gltf = oneTriangle();
    gltf.add(std::vector<std::int8_t>{0, 0, 127, 0, 0, 0, -127, 0, 0, 0, 127, 0}, 5120, "VEC4", 4);
    gltf.accessors[1] = R"({"bufferView":1,"componentType":5120,"normalized":true,"type":"VEC3","count":3})";
    gltf.views[1].insert(1, R"("byteStride":4,)");
    gltf.meshes[0] = R"({"primitives":[{"attributes":{"POSITION":0,"NORMAL":1}}]})";
    const auto mesh = import("normals.gltf", gltf.json()).input.meshes.at(0);
    EXPECT_THAT(cornersOf(*mesh, "normal"),
                ElementsAre(ElementsAre(0, 0, 1), ElementsAre(0, 0, -1), ElementsAre(0, 0, 1)));
}

TEST_F(GltfAccessors, TextureCoordinatesHaveTheirOriginAtTheBottom) {
    GltfText gltf = oneTriangle();
    gltf.add(std::vector<std::uint8_t>{0, 0, 255, 0, 0, 255}, 5121, "VEC2", 2);
    gltf.accessors[1].insert(1, R"("normalized":true,)");
    gltf.meshes[0] = R"({"primitives":[{"attributes":{"POSITION":0,"TEXCOORD_0":1}}]})";
    const auto mesh = import("uv.gltf", gltf.json()).input.meshes.at(0);
    EXPECT_THAT(numbersOf(*mesh, "texcoord"), ElementsAre(0, 1, 1, 1, 0, 0));
}

TEST_F(GltfAccessors, TextureCoordinatesOfWholeNumbersMeanWhatTheirTexturesSay) {
    GltfText gltf = oneTriangle();
    gltf.add(std::vector<std::uint16_t>{0, 0, 65535, 0, 0, 13107}, 5123, "VEC2", 2);
    gltf.accessors[1].insert(1, R"("normalized":true,)");
    gltf.meshes[0] = R"({"primitives":[{"attributes":{"POSITION":0,"TEXCOORD_0":1},"material":0}]})";
    const std::string use =
        R"({"index":0,"extensions":{"KHR_texture_transform":{"offset":[0.5,0],"scale":[4,5]}}})";
    const auto texcoords = [&](const std::string& others) {
        gltf.more = R"(,"textures":[{}],"materials":[{"pbrMetallicRoughness":{"baseColorTexture":)" + use +
                    "}" + others + "}]";
        return numbersOf(*import("uv.gltf", gltf.json()).input.meshes.at(0), "texcoord");
    };
    EXPECT_THAT(texcoords(R"(,"normalTexture":)" + use), ElementsAre(0.5f, 1, 4.5f, 1, 0.5f, 0));
    // Where textures do not agree there is no one meaning.
    EXPECT_THAT(texcoords(R"(,"normalTexture":{"index":0})"), ElementsAre(0, 1, 1, 1, 0, 0.8f));
}

TEST_F(GltfAccessors, TextureCoordinatesOfFloatsStay) {
    GltfText gltf = oneTriangle();
    gltf.addVec2({0, 0, 1, 0, 0, 1});
    gltf.meshes[0] = R"({"primitives":[{"attributes":{"POSITION":0,"TEXCOORD_0":1},"material":0}]})";
    gltf.more = R"(,"textures":[{}],"materials":[{"pbrMetallicRoughness":{"baseColorTexture":{"index":0,)"
                R"("extensions":{"KHR_texture_transform":{"scale":[4,5]}}}}}])";
    EXPECT_THAT(numbersOf(*import("uv.gltf", gltf.json()).input.meshes.at(0), "texcoord"),
                ElementsAre(0, 1, 1, 1, 0, 0));
}

TEST_F(GltfAccessors, ColoursLoseTheirAlphaAndSaySo) {
    GltfText gltf = oneTriangle();
    gltf.add(std::vector<std::uint8_t>{255, 0, 0, 255, 0, 255, 0, 255, 0, 0, 255, 128}, 5121, "VEC4", 4);
    gltf.accessors[1].insert(1, R"("normalized":true,)");
    gltf.meshes[0] = R"({"primitives":[{"attributes":{"POSITION":0,"COLOR_0":1}}]})";
    const auto result = import("colours.gltf", gltf.json());
    EXPECT_THAT(numbersOf(*result.input.meshes.at(0), "color"), ElementsAre(1, 0, 0, 0, 1, 0, 0, 0, 1));
    EXPECT_EQ(droppedOf(result, "alpha channels"), 1u);
}

} // namespace kel::importer::test
