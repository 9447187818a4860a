// A model on its way from one process to another.

#include "HandMadeModel.h"

#include <isolation/Archive.h>
#include <isolation/Fields.h>
#include <isolation/MemoryFile.h>
#include <isolation/Transfer.h>

#include <fcntl.h>
#include <sys/mman.h>

#include <functional>
#include <limits>
#include <random>

namespace kel::importer::test {

using namespace detail;
using testing::ElementsAre;

constexpr std::uint64_t ANY_SIZE = std::numeric_limits<std::uint64_t>::max();

/// A triangle, with every field of everything set to what it is not by default.
class FullModel : public HandMadeModel {
public:
    FullModel() {
        format = "made up";
        unit = 0.25;
        upAxis = "-Z";
        metaData = {{"sceneExtras", "{\"a\":1}"}};
        dropped = {{"wheels", 4, "of cars"}};
        notes = {"it is late"};
        mayCrash = true;
        addTriangle();
        addMaterial();
        ModelNode& root = HandMadeModel::addNode(glm::dvec3(1, 2, 3));
        root.name = "root";
        root.extras = "[true]";
        ModelNode& node = HandMadeModel::addNode(0, glm::dvec3(4, 5, 6));
        node.name = std::string("n\0\xFF", 3);
        node.parent = 0;
        node.meshesInScene = true;
        node.instances = {glm::dmat4(2.0), glm::dmat4(3.0)};
        node.isOwn = true;
    }

private:
    void addTriangle() {
        ModelPart triangle;
        triangle.type = kel::mesh::TRIANGLES;
        triangle.indices = {2, 0, 1};
        triangle.attributes = {{"position", 3, {}, {0, 0, 0, 0.1, 0, 0, 0, 1e300, 0}},
                               {"normal", 3, {0, 0, 1, 0, 0, 1, 0, 0, 1}, {}},
                               {"_HEAT", 1, {7, 8, 9}, {}}};
        triangle.isIndexed = true;
        triangle.hasMadeNormals = true;
        triangle.material = 0;
        ModelPart line;
        line.type = kel::mesh::LINES;
        line.indices = {0, 1};
        line.attributes = {{"position", 3, {0, 0, 0, 1, 1, 1}, {}}};
        std::vector<ModelPart> parts;
        parts.push_back(std::move(triangle));
        parts.push_back(std::move(line));
        ListedModel::addMesh({"bolt", "mesh 0 \"bolt\"", {{"meshExtras", "3"}}}, std::move(parts));
    }
    void addMaterial() {
        ModelMaterial& material = materials.emplace_back();
        material.name = "steel";
        material.identifier = 17;
        material.metallicRoughness.emplace();
        material.metallicRoughness->baseColor = {0.1f, 0.2f, 0.3f, 0.4f};
        material.metallicRoughness->metallic = 0.5f;
        material.metallicRoughness->roughness = 0.6f;
        material.metallicRoughness->blends = true;
        material.metallicRoughness->unlit = true;
        material.diffuse = {1, 2, 3};
        material.ambient = {4, 5, 6};
        material.specular = {7, 8, 9};
        material.emissive = {10, 11, 12};
        material.specularStrength = 13.0f;
        material.phongExponent = 14.0f;
        material.glossiness = 15.0f;
        material.opacity = 16.0f;
        material.twoSided = true;
        material.metaData = {{"materialExtras", "null"}};
    }
};

FileDescriptor written(Model& model) {
    MemoryFile file;
    writeModel(model, file);
    return file.seal();
}

std::unique_ptr<Model> sent(Model& model) {
    return readModel(SealedMemory(written(model), ANY_SIZE).bytes());
}

TEST(Transfer, KeepsEveryFieldOfAModel) {
    FullModel original;
    const auto model = sent(original);
    EXPECT_EQ(model->format, "made up");
    EXPECT_EQ(model->unit, 0.25);
    EXPECT_EQ(model->upAxis, "-Z");
    EXPECT_EQ(model->metaData, (kel::scene::MetaData{{"sceneExtras", "{\"a\":1}"}}));
    ASSERT_EQ(model->dropped.size(), 1u);
    EXPECT_EQ(model->dropped[0].kind, "wheels");
    EXPECT_EQ(model->dropped[0].count, 4u);
    EXPECT_EQ(model->dropped[0].detail, "of cars");
    EXPECT_THAT(model->notes, ElementsAre("it is late"));
    EXPECT_TRUE(model->mayCrash);
}

TEST(Transfer, KeepsEveryFieldOfANode) {
    FullModel original;
    const auto model = sent(original);
    ASSERT_EQ(model->nodes.size(), 2u);
    EXPECT_EQ(model->nodes[0].name, "root");
    EXPECT_EQ(model->nodes[0].extras, "[true]");
    EXPECT_EQ(model->nodes[0].transform[3], glm::dvec4(1, 2, 3, 1));
    EXPECT_FALSE(model->nodes[0].parent || model->nodes[0].meshesInScene || model->nodes[0].isOwn);
    EXPECT_EQ(model->nodes[1].name, std::string("n\0\xFF", 3));
    EXPECT_EQ(model->nodes[1].parent, 0u);
    EXPECT_THAT(model->nodes[1].meshes, ElementsAre(0u));
    EXPECT_TRUE(model->nodes[1].meshesInScene && model->nodes[1].isOwn);
    EXPECT_THAT(model->nodes[1].instances, ElementsAre(glm::dmat4(2.0), glm::dmat4(3.0)));
}

TEST(Transfer, KeepsEveryFieldOfAMesh) {
    FullModel original;
    const auto model = sent(original);
    ASSERT_EQ(model->meshes.size(), 1u);
    EXPECT_EQ(model->meshes[0].name, "bolt");
    EXPECT_EQ(model->meshes[0].place, "mesh 0 \"bolt\"");
    EXPECT_EQ(model->meshes[0].metaData, (kel::scene::MetaData{{"meshExtras", "3"}}));
    const ModelBox box = model->boxOf(0);
    EXPECT_TRUE(box.hasDoubles);
    EXPECT_EQ(box.high.y, 1e300);
    const std::vector<ModelPart> parts = model->takeMesh(0);
    ASSERT_EQ(parts.size(), 2u);
    EXPECT_EQ(parts[0].type, kel::mesh::TRIANGLES);
    EXPECT_THAT(parts[0].indices, ElementsAre(2u, 0u, 1u));
    EXPECT_TRUE(parts[0].isIndexed && parts[0].hasMadeNormals);
    EXPECT_EQ(parts[0].material, 0u);
    ASSERT_EQ(parts[0].attributes.size(), 3u);
    EXPECT_EQ(parts[0].attributes[0].doubles[3], 0.1);
    EXPECT_EQ(parts[0].attributes[1].name, "normal");
    EXPECT_EQ(parts[0].attributes[2].width, 1u);
    EXPECT_THAT(parts[0].attributes[2].values, ElementsAre(7.0f, 8.0f, 9.0f));
    EXPECT_EQ(parts[1].type, kel::mesh::LINES);
    EXPECT_FALSE(parts[1].material || parts[1].isIndexed || parts[1].hasMadeNormals);
}

TEST(Transfer, KeepsEveryFieldOfAMaterial) {
    FullModel original;
    const auto model = sent(original);
    ASSERT_EQ(model->materials.size(), 1u);
    const ModelMaterial& material = model->materials[0];
    EXPECT_EQ(material.name, "steel");
    EXPECT_EQ(material.identifier, 17u);
    ASSERT_TRUE(material.metallicRoughness);
    EXPECT_EQ(material.metallicRoughness->baseColor, glm::vec4(0.1f, 0.2f, 0.3f, 0.4f));
    EXPECT_EQ(material.metallicRoughness->metallic, 0.5f);
    EXPECT_EQ(material.metallicRoughness->roughness, 0.6f);
    EXPECT_TRUE(material.metallicRoughness->blends && material.metallicRoughness->unlit);
    EXPECT_EQ(material.diffuse, glm::vec3(1, 2, 3));
    EXPECT_EQ(material.ambient, glm::vec3(4, 5, 6));
    EXPECT_EQ(material.specular, glm::vec3(7, 8, 9));
    EXPECT_EQ(material.emissive, glm::vec3(10, 11, 12));
    EXPECT_EQ(material.specularStrength, 13.0f);
    EXPECT_EQ(material.phongExponent, 14.0f);
    EXPECT_EQ(material.glossiness, 15.0f);
    EXPECT_EQ(material.opacity, 16.0f);
    EXPECT_TRUE(material.twoSided);
    EXPECT_EQ(material.metaData, (kel::scene::MetaData{{"materialExtras", "null"}}));
}

TEST(Transfer, KeepsARequest) {
    const std::string text =
        packed(ReadRequest{ReaderKind::GLTF, "a.b", "/d/a.b", "d/a.b", "b", true, BadGeometry::DROP,
                           Origin{Origin::GIVEN, {1, 2, 3}}, "roof", 6, 5});
    ReadRequest request;
    ArchiveReader reader(text);
    reader(request);
    reader.finish();
    EXPECT_EQ(request.reader, ReaderKind::GLTF);
    EXPECT_EQ(request.name + request.disk + request.path + request.guess, "a.b/d/a.bd/a.bb");
    EXPECT_TRUE(request.isInMemory);
    EXPECT_EQ(request.onBadGeometry, BadGeometry::DROP);
    EXPECT_EQ(request.origin.choice, Origin::GIVEN);
    EXPECT_THAT(request.origin.at, ElementsAre(1, 2, 3));
    EXPECT_EQ(request.scene, "roof");
    EXPECT_EQ(request.maxCopiedBytes, 6u);
    EXPECT_EQ(request.memory, 5u);
}

TEST(Transfer, AMeshThatNoNodeUsesStaysBehind) {
    FullModel original;
    original.nodes[1].meshes.clear();
    const auto model = sent(original);
    EXPECT_EQ(model->meshes.size(), 1u);
    EXPECT_TRUE(model->takeMesh(0).empty());
}

// ---- What is not believed -------------------------------------------------------------------------------

/// What a model must not be, in a single place each.
struct Fault {
    const char* name;
    std::function<void(FullModel&)> make;
};
void PrintTo(const Fault& fault, std::ostream* out) {
    *out << fault.name;
}

Fault inPart(const char* name, std::function<void(ModelPart&)> make) {
    return {name, [make = std::move(make)](FullModel& model) {
                std::vector<ModelPart> parts = model.takeMesh(0);
                make(parts[0]);
                model.nodes[1].meshes = {model.ListedModel::addMesh({"", "", {}}, std::move(parts))};
            }};
}

class BrokenModel : public testing::TestWithParam<Fault> {};
TEST_P(BrokenModel, IsRefused) {
    FullModel model;
    GetParam().make(model);
    const FileDescriptor file = written(model);
    const SealedMemory memory(file, ANY_SIZE);
    EXPECT_THROW(readModel(memory.bytes()), BrokenArchive);
}
INSTANTIATE_TEST_SUITE_P(
    Faults, BrokenModel,
    testing::Values(inPart("index", [](ModelPart& p) { p.indices[1] = 3; }),
                    inPart("half a triangle", [](ModelPart& p) { p.indices.pop_back(); }),
                    inPart("type", [](ModelPart& p) { p.type = kel::mesh::TRIANGLE_STRIP; }),
                    inPart("no attribute", [](ModelPart& p) { p.attributes.clear(); }),
                    inPart("no width", [](ModelPart& p) { p.attributes[0].width = 0; }),
                    inPart("wide normals", [](ModelPart& p) { p.attributes[1].width = 9; }),
                    inPart("short attribute", [](ModelPart& p) { p.attributes[2].values.pop_back(); }),
                    inPart("two kinds of numbers", [](ModelPart& p) { p.attributes[0].values.resize(9); }),
                    inPart("doubles",
                           [](ModelPart& p) {
                               p.attributes[2].values.clear(), p.attributes[2].doubles = {1, 2, 3};
                           }),
                    inPart("no position", [](ModelPart& p) { p.attributes[0].name = "place"; }),
                    inPart("normals at the end",
                           [](ModelPart& p) { std::swap(p.attributes[1], p.attributes[2]); }),
                    inPart("one name twice", [](ModelPart& p) { p.attributes.push_back(p.attributes[2]); }),
                    inPart("material", [](ModelPart& p) { p.material = 1; }),
                    Fault{"mesh", [](FullModel& m) { m.nodes[0].meshes = {1}; }},
                    Fault{"parent", [](FullModel& m) { m.nodes[1].parent = 1; }},
                    Fault{"extras", [](FullModel& m) { m.nodes[0].extras = "{"; }},
                    Fault{"metadata of meshes", [](FullModel& m) { m.meshes[0].metaData["a"] = "1,"; }},
                    Fault{"metadata of materials", [](FullModel& m) { m.materials[0].metaData["a"] = ""; }},
                    Fault{"metadata", [](FullModel& m) { m.metaData["a"] = "a"; }},
                    Fault{"unit", [](FullModel& m) { m.unit = std::numeric_limits<double>::infinity(); }},
                    Fault{"axis", [](FullModel& m) { m.upAxis = "W"; }},
                    Fault{"depth", [](FullModel& m) {
                              for (std::size_t n = 1; n < 20000; ++n)
                                  m.nodes.emplace_back().parent = m.nodes.size() - 2;
                          }}));

TEST(Transfer, BytesThatEndAnywhereAreRefused) {
    FullModel model;
    const FileDescriptor file = written(model);
    const SealedMemory memory(file, ANY_SIZE);
    // Aligned as a map is, and with an end that a sanitizer watches.
    for (std::size_t size = 0; size < memory.bytes().size(); ++size) {
        const std::vector<char> cut(memory.bytes().begin(),
                                    memory.bytes().begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_THROW(readModel({cut.data(), cut.size()}), BrokenArchive) << size;
    }
}

TEST(Transfer, BytesWithFaultsAreRefusedOrRead) {
    FullModel model;
    const FileDescriptor file = written(model);
    const SealedMemory memory(file, ANY_SIZE);
    std::mt19937 random(10);
    std::size_t refused = 0;
    for (int round = 0; round < 3000; ++round) {
        std::vector<char> bytes(memory.bytes().begin(), memory.bytes().end());
        for (int i = 0; i <= round % 3; ++i)
            bytes[random() % bytes.size()] = static_cast<char>(random());
        try {
            const auto read = readModel({bytes.data(), bytes.size()});
            for (std::size_t mesh = 0; mesh < read->meshes.size(); ++mesh)
                read->boxOf(mesh);
        } catch (const BrokenArchive&) {
            ++refused;
        }
    }
    EXPECT_GT(refused, 500u);
}

// ---- Memory ---------------------------------------------------------------------------------------------

FileDescriptor memoryFile(int seals) {
    FileDescriptor file(::memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    EXPECT_EQ(::write(file.get(), "content", 7), 7);
    EXPECT_EQ(::fcntl(file.get(), F_ADD_SEALS, seals), 0);
    return file;
}

TEST(SealedMemory, HasWhatWasWritten) {
    MemoryFile file;
    const std::string large(200000, 'x');
    file.write("a", 1);
    file.write(large.data(), large.size());
    file.write("b", 1);
    const FileDescriptor sealed = file.seal();
    EXPECT_EQ(SealedMemory(sealed, ANY_SIZE).bytes(), "a" + large + "b");
    EXPECT_LT(::write(sealed.get(), "c", 1), 0);
}

TEST(SealedMemory, IsRefusedWhenItCanStillChange) {
    const int whole = F_SEAL_WRITE | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;
    EXPECT_EQ(SealedMemory(memoryFile(whole), ANY_SIZE).bytes(), "content");
    for (const int missing : {F_SEAL_WRITE, F_SEAL_SHRINK, F_SEAL_GROW, F_SEAL_SEAL})
        EXPECT_THROW(SealedMemory(memoryFile(whole & ~missing), ANY_SIZE), std::runtime_error) << missing;
    const FileDescriptor disk(::open("/proc/self/exe", O_RDONLY | O_CLOEXEC));
    EXPECT_THROW(SealedMemory(disk, ANY_SIZE), std::runtime_error);
}

TEST(SealedMemory, IsRefusedAboveItsLimit) {
    EXPECT_THROW(SealedMemory(memoryFile(F_SEAL_WRITE | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL), 6),
                 std::runtime_error);
}

} // namespace kel::importer::test
