#include <src/builder/SrcBuilder.h>

#include "Document_p.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

namespace src::builder {

namespace {

std::uint64_t sizeInBytes(ComponentType type) {
    switch (type) {
    case BYTE:
    case UNSIGNED_BYTE:
        return 1;
    case SHORT:
    case UNSIGNED_SHORT:
        return 2;
    case INT:
    case UNSIGNED_INT:
    case FLOAT:
        return 4;
    }
    throw std::invalid_argument("A view cannot have the component type " +
                                std::to_string(static_cast<std::uint32_t>(type)) +
                                ": types are 5120 to 5126.");
}

std::uint64_t elementSize(ComponentType type, std::uint64_t components) {
    if (components < 1 || components > MAX_COMPONENTS) {
        throw std::invalid_argument("An attribute element cannot have " + std::to_string(components) +
                                    " components: split the attribute into elements of 1 to 4.");
    }
    return sizeInBytes(type) * components;
}

std::uint64_t bytesOf(std::uint64_t count, std::uint64_t elementBytes) {
    std::uint64_t bytes = 0;
    if (__builtin_mul_overflow(count, elementBytes, &bytes)) {
        throw std::length_error("An array of " + std::to_string(count) + " elements of " +
                                std::to_string(elementBytes) + " bytes cannot exist.");
    }
    return bytes;
}

void checkInside(const BufferView& view, std::uint64_t offset, std::uint64_t stride, std::uint64_t count,
                 std::uint64_t elementBytes) {
    if (count == 0) return;
    std::uint64_t last = 0, end = 0;
    if (__builtin_mul_overflow(count - 1, stride, &last) || __builtin_add_overflow(last, offset, &end) ||
        __builtin_add_overflow(end, elementBytes, &end) || end > view.byteLength) {
        throw std::invalid_argument(std::to_string(count) + " elements of " + std::to_string(elementBytes) +
                                    " bytes, " + std::to_string(stride) + " bytes apart from byte " +
                                    std::to_string(offset) + " on, do not lie inside a buffer view of " +
                                    std::to_string(view.byteLength) + " bytes.");
    }
}

void copyDecode(const std::vector<double>* values, std::uint64_t components, double neutral, double* out) {
    if (values && values->size() != components) {
        throw std::invalid_argument("A decode vector of an attribute with " + std::to_string(components) +
                                    " components cannot have " + std::to_string(values->size()) +
                                    " entries: give one per component.");
    }
    for (std::uint64_t c = 0; c < components; ++c)
        out[c] = values ? (*values)[c] : neutral;
}

std::shared_ptr<BufferView> appendBufferView(Src& document, OwnedArray array, std::uint64_t byteLength) {
    if (!array && byteLength != 0) {
        throw std::invalid_argument("A null array cannot hold " + std::to_string(byteLength) + " bytes.");
    }
    auto view = std::make_shared<BufferView>(BufferView{document.bufferViews.size(), byteLength});
    document.bufferViews.push_back(view);
    try {
        document.chunks.push_back({std::move(array), byteLength});
    } catch (...) {
        document.bufferViews.pop_back();
        throw;
    }
    return view;
}

std::shared_ptr<AttributeView> makeAttributeView(std::uint64_t byteOffset, std::uint64_t byteStride,
                                                 ComponentType type, std::uint64_t components,
                                                 std::uint64_t count, const std::vector<double>* decodeOffset,
                                                 const std::vector<double>* decodeScale) {
    auto view = std::make_shared<AttributeView>();
    view->byteOffset = byteOffset;
    view->byteStride = byteStride;
    view->count = count;
    view->type = type;
    view->components = static_cast<unsigned int>(components);
    copyDecode(decodeOffset, components, 0.0, view->decodeOffset);
    copyDecode(decodeScale, components, 1.0, view->decodeScale);
    return view;
}

template<typename View>
void append(std::vector<std::shared_ptr<View>>& views, const std::shared_ptr<View>& view,
            const BufferView& bufferView) {
    view->number = views.size();
    view->bufferView = bufferView.number;
    views.push_back(view);
}

} // namespace

SrcBuilder::SrcBuilder() : document(std::make_shared<Src>()) {}
SrcBuilder::~SrcBuilder() = default;

std::shared_ptr<SrcBuilder> SrcBuilder::create() {
    return std::shared_ptr<SrcBuilder>(new SrcBuilder);
}

std::shared_ptr<BufferView> SrcBuilder::addBufferView(void* data, unsigned long byteLength) {
    return appendBufferView(*document, takeArray(data), byteLength);
}

std::shared_ptr<AttributeView>
SrcBuilder::addAttributeView(std::shared_ptr<BufferView> bufferView, unsigned long byteOffset,
                             unsigned long byteStride, ComponentType type, unsigned long componentCount,
                             unsigned long elementCount, std::shared_ptr<std::vector<double>> decodeOffset,
                             std::shared_ptr<std::vector<double>> decodeScale) {
    if (!bufferView || !Src::holds(document->bufferViews, bufferView)) {
        throw std::invalid_argument("An attribute view needs a buffer view of the same builder.");
    }
    checkInside(*bufferView, byteOffset, byteStride, elementCount, elementSize(type, componentCount));
    const auto view = makeAttributeView(byteOffset, byteStride, type, componentCount, elementCount,
                                        decodeOffset.get(), decodeScale.get());
    append(document->attributeViews, view, *bufferView);
    return view;
}

std::shared_ptr<AttributeView> SrcBuilder::addDefaultAttributeView(
    void* data, ComponentType type, unsigned long componentCount, unsigned long elementCount,
    std::shared_ptr<std::vector<double>> decodeOffset, std::shared_ptr<std::vector<double>> decodeScale) {
    OwnedArray array = takeArray(data);
    const std::uint64_t stride = elementSize(type, componentCount);
    const std::uint64_t byteLength = bytesOf(elementCount, stride);
    const auto view = makeAttributeView(0, stride, type, componentCount, elementCount, decodeOffset.get(),
                                        decodeScale.get());
    const auto bufferView = appendBufferView(*document, std::move(array), byteLength);
    append(document->attributeViews, view, *bufferView);
    return view;
}

std::shared_ptr<IndexView> SrcBuilder::addDefaultIndexView(void* data, ComponentType type,
                                                           unsigned long count) {
    OwnedArray array = takeArray(data);
    const std::uint64_t byteLength = bytesOf(count, sizeInBytes(type));
    auto view = std::make_shared<IndexView>();
    view->count = count;
    view->type = type;
    const auto bufferView = appendBufferView(*document, std::move(array), byteLength);
    append(document->indexViews, view, *bufferView);
    return view;
}

void SrcBuilder::addTechnique(std::shared_ptr<Technique> technique) {
    if (!technique) return;
    auto& techniques = document->techniques;
    // A document has a handful at most, and one ID stands for one technique.
    const bool known = std::any_of(techniques.begin(), techniques.end(),
                                   [&](const auto& other) { return other->getId() == technique->getId(); });
    if (!known) techniques.push_back(std::move(technique));
}

void SrcBuilder::addMaterial(std::shared_ptr<Material> material) {
    if (!material) return;
    addTechnique(material->technique);
    auto& materials = document->materials;
    if (!document->materialPlaces.try_emplace(material.get(), materials.size()).second) return;
    materials.push_back(std::move(material));
}

void SrcBuilder::addMesh(std::shared_ptr<Mesh> mesh) {
    if (!mesh || document->knownMeshes.count(mesh.get()) != 0) return;
    for (const auto& [name, view] : mesh->attributes) {
        if (!Src::holds(document->attributeViews, view)) {
            throw std::invalid_argument("Mesh \"" + mesh->name + "\": the view of attribute \"" + name +
                                        "\" belongs to another builder.");
        }
    }
    if (mesh->indices && !Src::holds(document->indexViews, mesh->indices)) {
        throw std::invalid_argument("Mesh \"" + mesh->name +
                                    "\": its index view belongs to another builder.");
    }
    addMaterial(mesh->material);
    const Mesh* key = mesh.get();
    const std::size_t material =
        mesh->material ? document->materialPlaces.at(mesh->material.get()) : MeshEntry::NO_MATERIAL;
    document->meshes.push_back({std::move(mesh), material});
    document->knownMeshes.insert(key);
}

std::shared_ptr<Src> SrcBuilder::build() {
    return std::exchange(document, std::make_shared<Src>());
}

} // namespace src::builder
