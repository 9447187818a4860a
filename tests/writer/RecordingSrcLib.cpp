// Another SRC builder library behind the same interface: it writes no SRC file but notes what is asked of it.
#include "RecordingSrcLib.h"

#include <src/SrcWriter.h>
#include <src/Technique.h>
#include <src/builder/MaterialBuilder.h>
#include <src/builder/MeshBuilder.h>
#include <src/builder/SrcBuilder.h>
#include <src/builder/TechniqueBuilder.h>

#include <new>
#include <ostream>
#include <sstream>
#include <stdexcept>

namespace {

int arrays = 0;
int failAt = -1;

class Array {
public:
    explicit Array(void* bytes) : bytes(bytes) { ++arrays; }
    ~Array() {
        ::operator delete[](bytes);
        --arrays;
    }
    Array(const Array&) = delete;
    Array& operator=(const Array&) = delete;

private:
    void* bytes;
};

std::string hex(const void* data, std::size_t size) {
    constexpr char DIGITS[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        const unsigned byte = static_cast<const unsigned char*>(data)[i];
        text += DIGITS[byte >> 4];
        text += DIGITS[byte & 15];
    }
    return text;
}

std::size_t sizeOf(src::ComponentType type) {
    return type <= src::UNSIGNED_BYTE ? 1 : type <= src::UNSIGNED_SHORT ? 2 : 4;
}

std::string list(const std::vector<double>& values) {
    std::ostringstream text;
    text.precision(17);
    text << '[';
    for (std::size_t i = 0; i < values.size(); ++i)
        text << (i == 0 ? "" : " ") << values[i];
    text << ']';
    return text.str();
}

std::string list(const std::shared_ptr<std::vector<double>>& values) {
    return values ? list(*values) : "none";
}

template<typename View>
std::string nameOf(const std::shared_ptr<View>& view) {
    return view ? view->name : "none";
}

void note(const std::string& call) {
    const auto& calls = kel::tests::recordedCalls();
    calls->push_back(call);
    if (failAt >= 0 && static_cast<int>(calls->size()) == failAt + 1)
        throw std::runtime_error("asked to fail at " + call);
}

} // namespace

namespace kel::tests {

const std::shared_ptr<std::vector<std::string>>& recordedCalls() {
    static const auto calls = std::make_shared<std::vector<std::string>>();
    return calls;
}
int recordedArrays() {
    return arrays;
}
void failAtRecordedCall(int number) {
    failAt = number;
}

} // namespace kel::tests

namespace src {

struct BufferView {
    std::string name;
};
struct AttributeView {
    std::string name;
};
struct IndexView {
    std::string name;
};
struct Material {
    std::string name;
};
struct Mesh {
    std::string name;
};
struct Src {
    std::vector<std::unique_ptr<Array>> arrays;
    int views = 0;
};

namespace builder {

SrcBuilder::SrcBuilder() : document(std::make_shared<Src>()) {}
SrcBuilder::~SrcBuilder() = default;

std::shared_ptr<SrcBuilder> SrcBuilder::create() {
    note("SrcBuilder::create");
    return std::shared_ptr<SrcBuilder>(new SrcBuilder);
}

std::shared_ptr<BufferView> SrcBuilder::addBufferView(void* data, unsigned long byteLength) {
    document->arrays.push_back(std::make_unique<Array>(data));
    auto view = std::make_shared<BufferView>(BufferView{"bufferView" + std::to_string(document->views++)});
    note("addBufferView(" + hex(data, byteLength) + ") = " + view->name);
    return view;
}

std::shared_ptr<AttributeView>
SrcBuilder::addAttributeView(std::shared_ptr<BufferView> bufferView, unsigned long byteOffset,
                             unsigned long byteStride, ComponentType type, unsigned long componentCount,
                             unsigned long elementCount, std::shared_ptr<std::vector<double>> decodeOffset,
                             std::shared_ptr<std::vector<double>> decodeScale) {
    auto view = std::make_shared<AttributeView>(AttributeView{"view" + std::to_string(document->views++)});
    note("addAttributeView(" + nameOf(bufferView) + ", " + std::to_string(byteOffset) + ", " +
         std::to_string(byteStride) + ", " + std::to_string(type) + ", " + std::to_string(componentCount) +
         ", " + std::to_string(elementCount) + ", " + list(decodeOffset) + ", " + list(decodeScale) +
         ") = " + view->name);
    return view;
}

std::shared_ptr<AttributeView> SrcBuilder::addDefaultAttributeView(
    void* data, ComponentType type, unsigned long componentCount, unsigned long elementCount,
    std::shared_ptr<std::vector<double>> decodeOffset, std::shared_ptr<std::vector<double>> decodeScale) {
    document->arrays.push_back(std::make_unique<Array>(data));
    auto view = std::make_shared<AttributeView>(AttributeView{"view" + std::to_string(document->views++)});
    note("addDefaultAttributeView(" + hex(data, sizeOf(type) * componentCount * elementCount) + ", " +
         std::to_string(type) + ", " + std::to_string(componentCount) + ", " + std::to_string(elementCount) +
         ", " + list(decodeOffset) + ", " + list(decodeScale) + ") = " + view->name);
    return view;
}

std::shared_ptr<IndexView> SrcBuilder::addDefaultIndexView(void* data, ComponentType type,
                                                           unsigned long count) {
    document->arrays.push_back(std::make_unique<Array>(data));
    auto view = std::make_shared<IndexView>(IndexView{"view" + std::to_string(document->views++)});
    note("addDefaultIndexView(" + hex(data, sizeOf(type) * count) + ", " + std::to_string(type) + ", " +
         std::to_string(count) + ") = " + view->name);
    return view;
}

void SrcBuilder::addTechnique(std::shared_ptr<Technique> technique) {
    note("addTechnique(" + technique->getId() + ")");
}
void SrcBuilder::addMaterial(std::shared_ptr<Material> material) {
    note("addMaterial(" + nameOf(material) + ")");
}
void SrcBuilder::addMesh(std::shared_ptr<Mesh> mesh) {
    note("addMesh(" + nameOf(mesh) + ")");
}
std::shared_ptr<Src> SrcBuilder::build() {
    note("SrcBuilder::build");
    return document;
}

MeshBuilder::MeshBuilder(std::shared_ptr<Mesh> mesh) : mesh(std::move(mesh)) {}
MeshBuilder::~MeshBuilder() = default;

std::shared_ptr<MeshBuilder> MeshBuilder::create(const std::string& name,
                                                 std::shared_ptr<IndexView> indexView,
                                                 PrimitiveType primitiveType) {
    note("MeshBuilder::create(" + name + ", " + nameOf(indexView) + ", " + std::to_string(primitiveType) +
         ")");
    return std::shared_ptr<MeshBuilder>(new MeshBuilder(std::make_shared<Mesh>(Mesh{name})));
}
void MeshBuilder::addAttribute(const std::string& name, std::shared_ptr<AttributeView> view) {
    note("addAttribute(" + name + ", " + nameOf(view) + ")");
}
void MeshBuilder::setBoundingBoxMinMax(std::vector<double> min, std::vector<double> max) {
    note("setBoundingBoxMinMax(" + list(min) + ", " + list(max) + ")");
}
void MeshBuilder::setMaterial(std::shared_ptr<Material> material) {
    note("setMaterial(" + nameOf(material) + ")");
}
void MeshBuilder::setMetaJsonString(const std::string& text) {
    note("setMetaJsonString(" + text + ")");
}
std::shared_ptr<Mesh> MeshBuilder::build() {
    note("MeshBuilder::build");
    return mesh;
}

MaterialBuilder::MaterialBuilder(std::shared_ptr<Material> material) : material(std::move(material)) {}
MaterialBuilder::~MaterialBuilder() = default;

std::shared_ptr<MaterialBuilder> MaterialBuilder::create(const std::string& name,
                                                         std::shared_ptr<Technique> technique) {
    note("MaterialBuilder::create(" + name + ", " + technique->getId() + ")");
    return std::shared_ptr<MaterialBuilder>(new MaterialBuilder(std::make_shared<Material>(Material{name})));
}
void MaterialBuilder::addParameterValue(std::string name, const std::vector<double>& value) {
    note("addParameterValue(" + name + ", " + list(value) + ")");
}
std::shared_ptr<Material> MaterialBuilder::build() {
    note("MaterialBuilder::build");
    return material;
}

std::shared_ptr<Technique> TechniqueBuilder::createStandardTechnique() {
    note("TechniqueBuilder::createStandardTechnique");
    return std::make_shared<Technique>("technique", Technique::Parameters{{"ambientIntensity", {0.2}},
                                                                          {"diffuseColor", {0.8, 0.8, 0.8}},
                                                                          {"reflectivity", {0.0}},
                                                                          {"specularColor", {0.0, 0.0, 0.0}},
                                                                          {"transparency", {0.0}}});
}

} // namespace builder

std::shared_ptr<SrcWriter> SrcWriter::create() {
    note("SrcWriter::create");
    return std::make_shared<SrcWriter>();
}

void SrcWriter::write(std::shared_ptr<Src>, std::ostream& out) {
    note("SrcWriter::write");
    out << "written by the recording library\n";
}

} // namespace src
