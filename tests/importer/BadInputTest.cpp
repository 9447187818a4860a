#include "GltfText.h"
#include "ImporterTest.h"

#include <sys/stat.h>

#include <cmath>
#include <limits>

namespace kel::importer::test {

using testing::HasSubstr;
using testing::SizeIs;

class BadInput : public ImporterTest {
protected:
    ImportError errorFor(const std::string& name, const std::string& content,
                         const ImportOptions& options = {}) const {
        auto error = errorOf([&] { import(name, content, options); });
        // Every error names the file and says what to do.
        EXPECT_THAT(error.what(), HasSubstr(name));
        EXPECT_THAT(error.file(), HasSubstr(name));
        EXPECT_NE(error.remedy(), "");
        EXPECT_THAT(error.what(), HasSubstr(error.remedy()));
        EXPECT_THAT(error.what(), HasSubstr(error.place()));
        return error;
    }
    static ImportOptions dropping() {
        ImportOptions options;
        options.onBadGeometry = BadGeometry::DROP;
        return options;
    }
};

const std::string TRIANGLE_OBJ = "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n";
const std::string PLY_HEADER =
    "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
    "property float z\nelement face 1\nproperty list uchar int vertex_indices\nend_header\n";

TEST_F(BadInput, TheMessageIsOneSentence) {
    const ImportError error(ImportCode::NO_MESH, "a.obj", "it is odd", "line 3", "mend it");
    EXPECT_STREQ(error.what(), "a.obj: it is odd (line 3); mend it");
    EXPECT_STREQ(ImportError(ImportCode::NO_MESH, "a.obj", "it is odd", "", "mend it").what(),
                 "a.obj: it is odd; mend it");
}

TEST(ImportCodes, HaveStableTexts) {
    std::vector<std::string> texts;
    for (const ImportCodeInfo& row : IMPORT_CODES) {
        EXPECT_EQ(infoOf(row.code).text, row.text) << "the table is in the order of the enum";
        EXPECT_FALSE(row.meaning.empty() || row.remedy.empty()) << row.text;
        texts.emplace_back(row.text);
    }
    EXPECT_THAT(texts, testing::ElementsAre(
                           "file-not-found", "not-a-file", "file-unreadable", "empty-file", "wrong-content",
                           "unknown-format", "truncated", "impossible-count", "invalid-json", "invalid-model",
                           "missing-file", "unsupported-feature", "unsupported-extension",
                           "index-out-of-range", "no-scene", "no-mesh", "no-extent", "non-finite-positions",
                           "non-finite-transform", "extent-overflow", "too-deep", "too-many-copies",
                           "reader-failed", "time-limit", "memory-limit", "out-of-memory", "cancelled"));
}

TEST_F(BadInput, AFileThatIsNotThere) {
    EXPECT_EQ(errorOf([&] { importModel(folder / "nothing.obj"); }).code(), ImportCode::FILE_NOT_FOUND);
}

TEST_F(BadInput, ADirectory) {
    EXPECT_EQ(errorOf([&] { importModel(folder); }).code(), ImportCode::NOT_A_FILE);
}

TEST_F(BadInput, AFileWithoutReadPermission) {
    if (geteuid() == 0) {
        // Nothing is unreadable to root, so a path through a file has to do.
        EXPECT_EQ(errorOf([&] { importModel(file("a.obj", TRIANGLE_OBJ) / "b.obj"); }).code(),
                  ImportCode::FILE_NOT_FOUND);
        return;
    }
    const auto path = file("locked.obj", TRIANGLE_OBJ);
    chmod(path.c_str(), 0);
    EXPECT_EQ(errorOf([&] { importModel(path); }).code(), ImportCode::FILE_UNREADABLE);
}

class EmptyFile : public BadInput, public testing::WithParamInterface<const char*> {};
TEST_P(EmptyFile, IsCalledEmpty) {
    EXPECT_EQ(errorFor(std::string("empty.") + GetParam(), "").code(), ImportCode::EMPTY_FILE);
}
INSTANTIATE_TEST_SUITE_P(AnyFormat, EmptyFile,
                         testing::Values("obj", "stl", "ply", "gltf", "glb", "fbx", "off"));

TEST_F(BadInput, NoBytes) {
    EXPECT_EQ(errorOf([] { importModel("", 0, "-"); }).code(), ImportCode::EMPTY_FILE);
}

TEST_F(BadInput, AGlbCutAtAnyByte) {
    const std::string whole = oneTriangle().glb();
    EXPECT_EQ(import("whole.glb", whole).report.triangles, 1u);
    for (std::size_t length = 1; length < whole.size(); ++length) {
        const auto error = errorOf([&] { importModel(whole.data(), length, "cut.glb"); });
        EXPECT_EQ(error.code(), length < 4 ? ImportCode::WRONG_CONTENT : ImportCode::TRUNCATED) << length;
    }
}

TEST_F(BadInput, AGlbWhoseChunkIsLongerThanTheFile) {
    std::string glb = oneTriangle().glb();
    const std::size_t lengthOfJson = 12;
    glb[lengthOfJson + 2] = 1; // 65,536 bytes more
    const auto error = errorFor("chunk.glb", glb);
    EXPECT_EQ(error.code(), ImportCode::TRUNCATED);
    EXPECT_EQ(error.place(), "byte 12");
}

struct Disguise {
    const char* name;
    std::string content;
    const char* looksLike;
};
class WrongContent : public BadInput, public testing::WithParamInterface<Disguise> {};
TEST_P(WrongContent, IsNamed) {
    const auto error = errorFor(GetParam().name, GetParam().content);
    EXPECT_EQ(error.code(), ImportCode::WRONG_CONTENT);
    EXPECT_THAT(error.what(), HasSubstr(GetParam().looksLike));
}
INSTANTIATE_TEST_SUITE_P(
    Disguises, WrongContent,
    testing::Values(
        Disguise{"a.obj", "\x89PNG\r\n\x1A\n....", "PNG"}, Disguise{"a.stl", "\xFF\xD8\xFF\xE0", "JPEG"},
        Disguise{"a.glb", "<!DOCTYPE html><html><body>404</body></html>", "web page"},
        Disguise{"a.obj", oneTriangle().glb(), "binary glTF"},
        Disguise{"a.gltf", oneTriangle().glb(), "binary glTF"},
        Disguise{"a.glb", oneTriangle().json(), "glTF in JSON"}, Disguise{"a.ply", TRIANGLE_OBJ, "is none"},
        Disguise{"a.stl", PLY_HEADER, "PLY"}, Disguise{"a.fbx", "ply\nformat ascii 1.0\n", "PLY"},
        Disguise{"a.dae", std::string("PK\x03\x04") + "....", "ZIP"},
        Disguise{"a.obj", "Kaydara FBX Binary  ", "binary FBX"}, Disguise{"a.3ds", TRIANGLE_OBJ, "is none"},
        Disguise{"a.obj", std::string("v 0 0\0 0\n", 9), "zero bytes"},
        Disguise{"a.stl", "version https://git-lfs.github.com/spec/v1\n", "Git LFS"}));

TEST_F(BadInput, AFileOfAnUnknownKind) {
    EXPECT_EQ(errorFor("notes.unknownkind", "Dear diary").code(), ImportCode::UNKNOWN_FORMAT);
}

class BrokenJson : public BadInput, public testing::WithParamInterface<std::string> {};
TEST_P(BrokenJson, IsNoEmptyScene) {
    EXPECT_EQ(errorFor("broken.gltf", GetParam()).code(), ImportCode::INVALID_JSON);
}
INSTANTIATE_TEST_SUITE_P(Texts, BrokenJson,
                         testing::Values("{", "{}}", R"({"asset":{"version":"2.0"},"scenes":[)",
                                         "{\"asset\":1e999}", R"({"asset":{"version":"2.0"}} and more)",
                                         R"({asset:{version:"2.0"}})"));

TEST_F(BadInput, BrokenJsonIsPlaced) {
    EXPECT_EQ(errorFor("broken.gltf", "{\n\"asset\":{\n\"version\" \"2.0\"}}").place(), "line 3");
}

TEST_F(BadInput, ASceneWithoutAMesh) {
    GltfText gltf = oneTriangle("{}");
    EXPECT_EQ(errorFor("empty.gltf", gltf.json()).code(), ImportCode::NO_MESH);
    EXPECT_EQ(errorFor("none.gltf", R"({"asset":{"version":"2.0"}})").code(), ImportCode::NO_MESH);
    EXPECT_EQ(errorFor("empty.stl", "solid nothing\nendsolid nothing\n").code(), ImportCode::NO_MESH);
}

TEST_F(BadInput, VerticesAtOnePlace) {
    EXPECT_EQ(errorFor("dot.obj", "v 1 2 3\nv 1 2 3\nv 1 2 3\nf 1 2 3\n").code(), ImportCode::NO_EXTENT);
}

TEST_F(BadInput, NothingButTrianglesWithoutArea) {
    const auto error = errorFor("needle.obj", "v 0 0 0\nv 1 1 1\nv 2 2 2\nf 1 2 3\nf 1 1 2\n");
    EXPECT_EQ(error.code(), ImportCode::NO_EXTENT);
    EXPECT_THAT(error.what(), HasSubstr("2 triangles"));
}

TEST_F(BadInput, ATriangleWithoutAreaAmongOthersIsFine) {
    EXPECT_EQ(import("mixed.obj", TRIANGLE_OBJ + "f 1 1 2\n").report.triangles, 2u);
}

TEST_F(BadInput, ALineHasAnExtentWithoutAnArea) {
    EXPECT_EQ(import("line.obj", "v 0 0 0\nv 1 0 0\nl 1 2\n").report.lines, 1u);
}

TEST_F(BadInput, PositionsThatAreNotFinite) {
    // Two triangles, two vertices at fault, the first mesh without any.
    const float nan = std::numeric_limits<float>::quiet_NaN();
    GltfText gltf = oneTriangle(R"({"mesh":0,"name":"good"})");
    const auto position = gltf.addVec3({0, 0, 0, 1, 0, 0, nan, 1, 0, 0, -INFINITY, 1, 0, 0, 5});
    const auto indices = gltf.addIndices({0, 1, 2, 1, 2, 3, 0, 1, 4});
    gltf.addMesh("\"POSITION\":" + std::to_string(position), ",\"indices\":" + std::to_string(indices),
                 R"(,"name":"bad one")");
    gltf.nodes.push_back(R"({"mesh":1})");
    gltf.roots = "0,1";
    const auto error = errorFor("nan.gltf", gltf.json());
    EXPECT_EQ(error.code(), ImportCode::NON_FINITE_POSITIONS);
    EXPECT_THAT(error.what(), HasSubstr("2 vertex positions"));
    EXPECT_THAT(error.place(), HasSubstr("bad one"));

    const auto result = import("nan.gltf", gltf.json(), dropping());
    EXPECT_EQ(result.report.triangles, 2u);
    EXPECT_EQ(droppedOf(result, "primitives with positions that are not finite"), 2u);
}

TEST_F(BadInput, AVertexOfATextFormatCountsOnce) {
    const auto error =
        errorFor("nan.obj", "v 0 0 0\nv 1 0 0\nv nan 0 0\nv 0 1 0\nv 0 0 1\nf 1 2 3\nf 1 3 4\nf 4 5 3\n");
    EXPECT_THAT(error.what(), HasSubstr("1 vertex position is"));
}

TEST_F(BadInput, ABrokenPolygonIsDroppedAsAWhole) {
    const auto result =
        import("nan.obj", "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 nan 0\nv 0 0 1\nf 1 2 3 4\nf 1 2 5\n", dropping());
    EXPECT_EQ(result.report.triangles, 1u);
    EXPECT_EQ(droppedOf(result, "primitives with positions that are not finite"), 1u);
}

TEST_F(BadInput, NothingIsLeftWhenAllIsDropped) {
    EXPECT_EQ(errorFor("nan.obj", "v nan 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n", dropping()).code(),
              ImportCode::NO_MESH);
}

TEST_F(BadInput, IndicesOfAWavefrontFile) {
    const auto error = errorFor("range.obj", TRIANGLE_OBJ + "f 1 2 4\n");
    EXPECT_EQ(error.code(), ImportCode::INDEX_OUT_OF_RANGE);
    EXPECT_EQ(error.place(), "line 5");
    EXPECT_EQ(errorFor("back.obj", TRIANGLE_OBJ + "f -1 -2 -4\n").code(), ImportCode::INDEX_OUT_OF_RANGE);
    EXPECT_EQ(errorFor("uv.obj", "vt 0 0\n" + TRIANGLE_OBJ + "f 1/1 2/1 3/2\n").code(),
              ImportCode::INDEX_OUT_OF_RANGE);
    EXPECT_EQ(errorFor("normal.obj", "vn 0 0 1\n" + TRIANGLE_OBJ + "f 1//1 2//1 3//2\n").code(),
              ImportCode::INDEX_OUT_OF_RANGE);
    EXPECT_EQ(import("good.obj", "vn 0 0 1\n" + TRIANGLE_OBJ + "f -3//-1 -2//1 \\\n-1//1\n").report.triangles,
              2u);
}

TEST_F(BadInput, IndicesOfAGltf) {
    GltfText gltf = oneTriangle();
    gltf.addIndices({0, 1, 2, 0, 1, 3});
    gltf.meshes[0] = R"({"primitives":[{"attributes":{"POSITION":0},"indices":1}]})";
    for (const bool binary : {false, true}) {
        const auto error = errorFor(binary ? "range.glb" : "range.gltf", binary ? gltf.glb() : gltf.json());
        EXPECT_EQ(error.code(), ImportCode::INDEX_OUT_OF_RANGE);
        EXPECT_THAT(error.what(), HasSubstr("index 5 is 3"));
        EXPECT_THAT(error.place(), HasSubstr("meshes[0].primitives[0]"));
    }
}

TEST_F(BadInput, IndicesOfAnOff) {
    const auto error = errorFor("range.off", "OFF\n3 2 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n3 0 1 3\n");
    EXPECT_EQ(error.code(), ImportCode::INDEX_OUT_OF_RANGE);
    EXPECT_EQ(error.place(), "line 7");
}

TEST_F(BadInput, IndicesOfAPly) {
    EXPECT_EQ(errorFor("range.ply", PLY_HEADER + "0 0 0\n1 0 0\n0 1 0\n3 0 1 3\n").code(),
              ImportCode::INDEX_OUT_OF_RANGE);
}

TEST_F(BadInput, APositionThatOverflows) {
    const auto error =
        errorFor("far.gltf", oneTriangle(R"({"mesh":0,"scale":[1e30,1,1],"children":[1]})").json());
    EXPECT_EQ(error.code(), ImportCode::INDEX_OUT_OF_RANGE) << "there is no node 1";

    GltfText gltf = oneTriangle(R"({"scale":[1e30,1,1],"children":[1]})");
    gltf.nodes.push_back(R"({"mesh":0,"scale":[1e30,1,1]})");
    EXPECT_EQ(errorFor("far.gltf", gltf.json()).code(), ImportCode::EXTENT_OVERFLOW);
}

TEST_F(BadInput, AnExtentThatOverflows) {
    EXPECT_EQ(errorFor("wide.obj", "v -3e38 0 0\nv 3e38 0 0\nv 0 1 0\nf 1 2 3\n").code(),
              ImportCode::EXTENT_OVERFLOW);
}

TEST_F(BadInput, HeadersThatPromiseTooMuch) {
    EXPECT_EQ(errorFor("big.ply",
                       "ply\nformat binary_little_endian 1.0\nelement vertex 4000000000\nproperty float x\n"
                       "property float y\nproperty float z\nend_header\n0123456789")
                  .code(),
              ImportCode::IMPOSSIBLE_COUNT);
    EXPECT_EQ(errorFor("big2.ply",
                       "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
                       "property float z\nelement face 99999999999999999999\n"
                       "property list uchar int vertex_indices\nend_header\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n")
                  .code(),
              ImportCode::IMPOSSIBLE_COUNT);
    EXPECT_EQ(errorFor("big.off", "OFF\n4000000000 1 0\n0 0 0\n").code(), ImportCode::IMPOSSIBLE_COUNT);
    EXPECT_EQ(errorFor("big.stl", std::string(80, ' ') + "\xFF\xFF\xFF\x7F" + std::string(100, '\0')).code(),
              ImportCode::IMPOSSIBLE_COUNT);
    GltfText gltf = oneTriangle();
    gltf.accessors[0] = R"({"bufferView":0,"componentType":5126,"type":"VEC3","count":4000000000})";
    EXPECT_EQ(errorFor("big.gltf", gltf.json()).code(), ImportCode::IMPOSSIBLE_COUNT);
    gltf.accessors[0] = R"({"componentType":5126,"type":"VEC3","count":4000000000})";
    EXPECT_EQ(errorFor("big2.gltf", gltf.json()).code(), ImportCode::IMPOSSIBLE_COUNT);
}

TEST_F(BadInput, ACutBinaryStl) {
    std::string stl = std::string(80, ' ') + std::string("\2\0\0\0", 4) + std::string(100, '\0');
    EXPECT_EQ(errorFor("cut.stl", stl.substr(0, 150)).code(), ImportCode::IMPOSSIBLE_COUNT);
}

TEST_F(BadInput, AGltfWithPiecesMissing) {
    GltfText gltf = oneTriangle();
    gltf.accessors[0] =
        R"({"componentType":5126,"type":"VEC3","count":3,"sparse":{"count":1,"indices":{},"values":{}}})";
    EXPECT_EQ(errorFor("sparse.gltf", gltf.json()).code(), ImportCode::INVALID_MODEL);

    gltf = oneTriangle();
    gltf.meshes[0] = R"({"primitives":[{"attributes":{},"mode":5}]})";
    EXPECT_EQ(errorFor("nothing.gltf", gltf.json()).code(), ImportCode::INVALID_MODEL);

    gltf = oneTriangle(R"({"mesh":0,"children":[0]})");
    EXPECT_EQ(errorFor("loop.gltf", gltf.json()).code(), ImportCode::INVALID_MODEL);

    std::vector<float> two = {0, 0, 0, 1, 0, 0};
    gltf = GltfText();
    gltf.addVec3(two);
    gltf.addMesh("\"POSITION\":0", ",\"mode\":5");
    gltf.nodes.push_back(R"({"mesh":0})");
    EXPECT_EQ(errorFor("strip.gltf", gltf.json()).code(), ImportCode::INVALID_MODEL);
}

TEST_F(BadInput, AFileBesideTheModelThatIsMissing) {
    std::string json = oneTriangle().json(false);
    const std::string buffer = R"("buffers":[{)";
    json.insert(json.find(buffer) + buffer.size(), R"("uri":"gone.bin",)");
    const auto error = errorFor("lonely.gltf", json);
    EXPECT_EQ(error.code(), ImportCode::MISSING_FILE);
    EXPECT_THAT(error.what(), HasSubstr("gone.bin"));
    file("gone.bin", "too short");
    EXPECT_EQ(errorFor("lonely.gltf", json).code(), ImportCode::TRUNCATED);
}

TEST_F(BadInput, NodesNestedTooDeep) {
    GltfText gltf = oneTriangle(R"({"mesh":0,"children":[1]})");
    for (int i = 2; i < 100000; ++i)
        gltf.nodes.push_back("{\"children\":[" + std::to_string(i) + "]}");
    gltf.nodes.push_back("{}");
    EXPECT_EQ(errorFor("deep.gltf", gltf.json()).code(), ImportCode::TOO_DEEP);

    std::string dae = "<?xml version=\"1.0\"?><COLLADA><library_visual_scenes><visual_scene>";
    for (int i = 0; i < 100000; ++i)
        dae += "<node>";
    EXPECT_EQ(errorFor("deep.dae", dae).code(), ImportCode::TOO_DEEP);
}

TEST_F(BadInput, AColladaIndexThatIsNoNumber) {
    const auto error =
        errorFor("odd.dae", "<?xml version=\"1.0\"?>\n<COLLADA><p>0 1 2</p>\n<p>0 x 2</p></COLLADA>");
    EXPECT_EQ(error.code(), ImportCode::INVALID_MODEL);
    EXPECT_EQ(error.place(), "line 3");
}

/// ASCII in UTF-16, with a mark.
std::string utf16(const std::string& text, bool bigEndian) {
    std::string result = bigEndian ? "\xFE\xFF" : "\xFF\xFE";
    for (const char c : text)
        result += bigEndian ? std::string{'\0', c} : std::string{c, '\0'};
    return result;
}

TEST_F(BadInput, TextInUtf16IsRead) {
    const std::string off = "OFF\n3 1 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n";
    const std::string stl =
        "solid a\nfacet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 1 0 0\nvertex 0 1 0\n"
        "endloop\nendfacet\nendsolid a\n";
    for (const bool bigEndian : {false, true}) {
        EXPECT_EQ(import("a.off", utf16(off, bigEndian)).report.triangles, 1u);
        EXPECT_EQ(import("a.obj", utf16(TRIANGLE_OBJ, bigEndian)).report.triangles, 1u);
        EXPECT_EQ(import("a.stl", utf16(stl, bigEndian)).report.triangles, 1u);
        EXPECT_EQ(import("a.gltf", utf16(oneTriangle().json(), bigEndian)).report.triangles, 1u);
    }
}

} // namespace kel::importer::test
