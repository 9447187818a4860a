#include "ImporterTest.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <optional>

namespace kel::importer::test {

/// A model of Debian's assimp-testmodels. Where a triangle count is given it is known from outside: the same
/// model comes in several formats, is a solid that one can count, or is told in the notes that come with it.
struct Model {
    const char* path;
    long triangles;                      ///< drawn; -1 where only the import counts
    std::optional<ImportCode> code = {}; ///< of the error, where one is due
};

constexpr long SPIDER = 1368;
constexpr long WUSON = 3732;

const Model MODELS[] = {
    {"3D/box.uc", 12},
    {"3DS/cubes_with_alpha.3DS", 60},
    {"3DS/fels.3ds", 768},
    {"3DS/testFormatDetection", SPIDER},
    {"3MF/box.3mf", 12},
    {"AC/Wuson.ac", WUSON},
    {"AC/nosurfaces.ac", -1, ImportCode::NO_MESH},
    {"AMF/test1.amf", 4},
    {"ASE/ThreeCubesGreen.ASE", 36},
    {"B3D/WusonBlitz.b3d", WUSON},
    {"BLEND/4Cubes4Mats_248.blend", 48},
    {"BLEND/MirroredCube_252.blend", 36},
    {"BVH/01_01.bvh", -1},
    {"COB/spider_4_3.cob", SPIDER},
    {"CSM/ThomasFechten.csm", -1},
    {"Collada/cube_UTF16LE.dae", 12},
    {"Collada/duck.dae", 4212},
    {"Collada/human.zae", -1},
    {"DXF/wuson.dxf", WUSON},
    {"FBX/box.fbx", 12},
    {"FBX/spider.fbx", SPIDER},
    {"HMP/formatDetection", 2048},
    {"IQM/mrfixit.iqm", -1},
    {"LWO/LWO2/box_2uv_1unused.lwo", 12},
    {"LWO/LWOB/ConcavePolygon.lwo", -1, ImportCode::INVALID_MODEL},
    {"LWS/move_x.lws", 12},
    {"MD2/sydney.md2", -1},
    {"MD5/SimpleCube.md5mesh", 12},
    {"MDC/spider.mdc", SPIDER},
    {"MDL/MDL3 (3DGS A4)/minigun.MDL", -1},
    {"MS3D/Wuson.ms3d", WUSON},
    {"NFF/NFF/dodecahedron.nff", 36},
    {"OBJ/WusonOBJ.obj", WUSON},
    {"OBJ/box.obj", 12},
    {"OBJ/spider.obj", SPIDER},
    {"OFF/Cube.off", 12},
    {"OFF/Wuson.off", WUSON},
    {"OFF/invalid.off", -1, ImportCode::TRUNCATED},
    {"Ogre/TheThing/Mesh.mesh.xml", -1},
    {"OpenGEX/camera.ogex", 12},
    {"PLY/Wuson.ply", WUSON},
    {"PLY/cube.ply", 12},
    {"PLY/pond.0.ply", -1, ImportCode::IMPOSSIBLE_COUNT},
    {"Q3D/WusonOrange.q3o", WUSON},
    {"RAW/WithColor.raw", 4},
    {"RAW/Wuson.raw", WUSON},
    {"SIB/heffalump.sib", -1},
    {"SMD/WusonSMD.smd", WUSON},
    {"STL/Spider_ascii.stl", SPIDER},
    {"STL/Spider_binary.stl", SPIDER},
    {"STL/Wuson.stl", WUSON},
    {"X/Testwuson.X", WUSON},
    {"X3D/HelloX3dTrademark.x3d", -1},
    {"XGL/Wuson.zgl", WUSON},
    {"glTF/BoxTextured-glTF-Embedded/BoxTextured.gltf", 12},
    {"glTF/CesiumMilkTruck/CesiumMilkTruck.gltf", 3624},
    {"glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb", 121496},
    {"glTF2/BoxWithInfinites-glTF-Binary/BoxWithInfinites.glb", -1, ImportCode::NON_FINITE_POSITIONS},
    {"glTF2/BoxTextured-glTF-Binary/BoxTextured.glb", 12},
    {"glTF2/IndexOutOfRange/AllIndicesOutOfRange.gltf", -1, ImportCode::INDEX_OUT_OF_RANGE},
    {"glTF2/IndexOutOfRange/IndexOutOfRange.gltf", -1, ImportCode::INDEX_OUT_OF_RANGE},
    {"glTF2/MissingBin/BoxTextured.gltf", -1, ImportCode::MISSING_FILE},
    {"glTF2/RecursiveNodes/RecursiveNodes.gltf", -1, ImportCode::INVALID_MODEL},
    {"glTF2/TestNoRootNode/SceneWithoutNodes.gltf", -1, ImportCode::NO_MESH},
    {"invalid/OutOfMemory.off", -1, ImportCode::IMPOSSIBLE_COUNT},
    {"invalid/empty.ply", -1, ImportCode::EMPTY_FILE},
    {"invalid/malformed.obj", -1, ImportCode::INDEX_OUT_OF_RANGE},
};

class TestModels : public testing::TestWithParam<Model> {};

/// What every writer relies on.
void expectSound(const ImportResult& result) {
    for (const auto& mesh : result.input.meshes) {
        const auto positions = mesh->getAttributeBuffer("position");
        ASSERT_TRUE(positions);
        ASSERT_TRUE(positions->isVec3f());
        const std::size_t vertices = positions->getElementCount();
        ASSERT_GT(vertices, 0u);
        for (const float number : numbersOf(*mesh, "position"))
            ASSERT_TRUE(std::isfinite(number));
        for (std::size_t a = 0; a < mesh->getNumAttributeBuffers(); ++a) {
            ASSERT_EQ(mesh->getAttributeBuffer(a)->getElementCount(), vertices);
        }
        const auto indices = indicesOf(*mesh);
        ASSERT_FALSE(indices.empty());
        ASSERT_LT(*std::max_element(indices.begin(), indices.end()), vertices);
        ASSERT_EQ(mesh->getIndexBuffer()->getElementSizeInBytes(), vertices <= 65535 ? 2u : 4u);
        const std::vector<float> normals = numbersOf(*mesh, "normal");
        if (mesh->getPrimitiveType() == kel::mesh::TRIANGLES) {
            ASSERT_EQ(normals.size(), 3 * vertices);
        }
        for (std::size_t n = 0; n + 2 < normals.size(); n += 3) {
            ASSERT_NEAR(std::hypot(normals[n], normals[n + 1], normals[n + 2]), 1.0, 1e-4);
        }
        ASSERT_EQ(result.input.metaData.count(mesh), 1u);
    }
}

TEST_P(TestModels, ImportOrAreRefusedWithAReason) {
    const std::filesystem::path path = std::filesystem::path("/usr/share/assimp/models") / GetParam().path;
    ASSERT_TRUE(std::filesystem::exists(path)) << "install assimp-testmodels";
    if (GetParam().code) {
        const auto error = errorOf([&] { importModel(path); });
        EXPECT_EQ(error.code(), *GetParam().code) << error.what();
        return;
    }
    const auto result = importModel(path);
    if (GetParam().triangles >= 0) {
        EXPECT_EQ(result.report.triangles, static_cast<std::size_t>(GetParam().triangles));
    }
    expectSound(result);
}

std::string nameOf(const testing::TestParamInfo<Model>& info) {
    std::string name = info.param.path;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return !std::isalnum(static_cast<unsigned char>(c)); }, '_');
    return name;
}
INSTANTIATE_TEST_SUITE_P(Spread, TestModels, testing::ValuesIn(MODELS), nameOf);

TEST(OneModel, IsTheSameInEveryFormat) {
    // Extents of the spider, which its formats hold in different scales.
    const auto proportions = [](const char* path) {
        const auto result = importModel(std::filesystem::path("/usr/share/assimp/models") / path);
        float low[3] = {1e30f, 1e30f, 1e30f};
        float high[3] = {-1e30f, -1e30f, -1e30f};
        for (const auto& mesh : result.input.meshes) {
            const auto numbers = numbersOf(*mesh, "position");
            for (std::size_t i = 0; i < numbers.size(); ++i) {
                low[i % 3] = std::min(low[i % 3], numbers[i]);
                high[i % 3] = std::max(high[i % 3], numbers[i]);
            }
        }
        std::vector<float> extents = {high[0] - low[0], high[1] - low[1], high[2] - low[2]};
        std::sort(extents.begin(), extents.end());
        return std::vector<float>{extents[0] / extents[2], extents[1] / extents[2]};
    };
    const auto obj = proportions("OBJ/spider.obj");
    const auto fbx = proportions("FBX/spider.fbx");
    EXPECT_NEAR(obj[0], fbx[0], 1e-4);
    EXPECT_NEAR(obj[1], fbx[1], 1e-4);
}

} // namespace kel::importer::test
