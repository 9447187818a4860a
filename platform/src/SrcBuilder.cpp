#include <src/builder/SrcBuilder.h>

#include "Document_p.h"
#include "HeaderNumbers_p.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

namespace src::builder {

namespace format = kel::src::format;

namespace {

std::uint64_t sizeInBytes(ComponentType type) {
    const auto* row = format::componentType(type);
    if (!row) {
        throw std::invalid_argument("A view cannot have the component type " +
                                    std::to_string(static_cast<std::uint32_t>(type)) +
                                    ": types are 5120 to 5126.");
    }
    return row->bytes;
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

void checkDecode(const std::vector<double>* values, std::uint64_t components) {
    if (values && values->size() != components) {
        throw std::invalid_argument("A decode vector of an attribute with " + std::to_string(components) +
                                    " components cannot have " + std::to_string(values->size()) +
                                    " entries: give one per component.");
    }
}

AttributeEntry describe(std::uint64_t byteOffset, std::uint64_t byteStride, ComponentType type,
                        std::uint64_t components, std::uint64_t count,
                        const std::vector<double>* decodeOffset, const std::vector<double>* decodeScale) {
    checkDecode(decodeOffset, components);
    checkDecode(decodeScale, components);
    AttributeEntry entry{};
    entry.byteOffset = byteOffset;
    entry.byteStride = byteStride;
    entry.count = count;
    entry.type = type;
    entry.components = static_cast<std::uint16_t>(components);
    entry.hasDecode = decodeOffset || decodeScale;
    for (std::uint64_t c = 0; c < components; ++c) {
        entry.decodeOffset[c] = decodeOffset ? (*decodeOffset)[c] : 0.0;
        entry.decodeScale[c] = decodeScale ? (*decodeScale)[c] : 1.0;
    }
    return entry;
}

/// Returns the number of the new buffer view.
std::size_t appendBufferView(Src& document, OwnedArray array, std::uint64_t byteLength) {
    if (!array && byteLength != 0) {
        throw std::invalid_argument("A null array cannot hold " + std::to_string(byteLength) + " bytes.");
    }
    const std::uint64_t offset =
        document.chunks.empty() ? 0 : document.chunks.back().byteOffset + document.chunks.back().byteLength;
    document.chunks.push_back({std::move(array), byteLength, offset});
    return document.chunks.size() - 1;
}

std::shared_ptr<AttributeView> append(Src& document, AttributeEntry entry, std::size_t bufferView) {
    auto view = std::make_shared<AttributeView>();
    view->document = document.id;
    view->number = document.attributeViews.size();
    entry.bufferView = bufferView;
    document.attributeViews.push_back(entry);
    return view;
}

/// Where the first number stands that no file can hold, or nothing.
std::string faultOf(const Src& document, const Mesh& mesh) {
    for (const auto& [name, view] : mesh.attributes) {
        const AttributeEntry& entry = document.attributeViews[view->number];
        std::string fault = src::faultOf(format::key::DECODE_OFFSET, entry.decodeOffset, entry.components);
        if (fault.empty())
            fault = src::faultOf(format::key::DECODE_SCALE, entry.decodeScale, entry.components);
        if (!fault.empty()) return "Mesh \"" + mesh.name + "\", attribute \"" + name + "\": " + fault;
    }
    std::string fault = src::faultOf(format::key::BBOX_CENTER, mesh.bboxCenter, 3);
    if (fault.empty()) fault = src::faultOf(format::key::BBOX_SIZE, mesh.bboxSize, 3);
    return fault.empty() ? fault : "Mesh \"" + mesh.name + "\", bounds of its positions: " + fault;
}

void appendHead(std::string& text, const Mesh& mesh) {
    kel::src::text::StringSink sink(text);
    HeaderEmitter<kel::src::text::StringSink> emit(sink);
    HeaderEntries::meshHead(
        text, mesh.attributes,
        [&](std::string&, const auto& view) { emit.id(format::id_prefix::ATTRIBUTE_VIEW, view->number); },
        mesh.hasBounds ? mesh.bboxCenter : nullptr, mesh.hasBounds ? mesh.bboxSize : nullptr,
        [&](std::string& id) {
            if (mesh.indices) {
                emit.id(format::id_prefix::INDEX_VIEW, mesh.indices->number);
            } else {
                id += "\"\"";
            }
        });
}

void appendTail(std::string& text, const Mesh& mesh) {
    kel::src::text::StringSink sink(text);
    HeaderEmitter<kel::src::text::StringSink>(sink).meshTail(
        !mesh.meta.empty(), [&] { text += mesh.meta; }, mesh.primitive);
}

} // namespace

SrcBuilder::SrcBuilder() : document(std::make_shared<Src>()) {}
SrcBuilder::~SrcBuilder() = default;

std::shared_ptr<SrcBuilder> SrcBuilder::create() {
    return std::shared_ptr<SrcBuilder>(new SrcBuilder);
}

std::shared_ptr<BufferView> SrcBuilder::addBufferView(void* data, unsigned long byteLength) {
    OwnedArray array = takeArray(data);
    auto view = std::make_shared<BufferView>();
    view->document = document->id;
    view->number = appendBufferView(*document, std::move(array), byteLength);
    view->byteLength = byteLength;
    return view;
}

std::shared_ptr<AttributeView>
SrcBuilder::addAttributeView(std::shared_ptr<BufferView> bufferView, unsigned long byteOffset,
                             unsigned long byteStride, ComponentType type, unsigned long componentCount,
                             unsigned long elementCount, std::shared_ptr<std::vector<double>> decodeOffset,
                             std::shared_ptr<std::vector<double>> decodeScale) {
    if (!bufferView || !document->holds(*bufferView)) {
        throw std::invalid_argument("An attribute view needs a buffer view of the same builder.");
    }
    checkInside(*bufferView, byteOffset, byteStride, elementCount, elementSize(type, componentCount));
    return append(*document,
                  describe(byteOffset, byteStride, type, componentCount, elementCount, decodeOffset.get(),
                           decodeScale.get()),
                  bufferView->number);
}

std::shared_ptr<AttributeView> SrcBuilder::addDefaultAttributeView(
    void* data, ComponentType type, unsigned long componentCount, unsigned long elementCount,
    std::shared_ptr<std::vector<double>> decodeOffset, std::shared_ptr<std::vector<double>> decodeScale) {
    OwnedArray array = takeArray(data);
    const std::uint64_t stride = elementSize(type, componentCount);
    const std::uint64_t byteLength = bytesOf(elementCount, stride);
    const AttributeEntry entry =
        describe(0, stride, type, componentCount, elementCount, decodeOffset.get(), decodeScale.get());
    return append(*document, entry, appendBufferView(*document, std::move(array), byteLength));
}

std::shared_ptr<IndexView> SrcBuilder::addDefaultIndexView(void* data, ComponentType type,
                                                           unsigned long count) {
    OwnedArray array = takeArray(data);
    const std::uint64_t byteLength = bytesOf(count, sizeInBytes(type));
    auto view = std::make_shared<IndexView>();
    view->document = document->id;
    view->number = document->indexViews.size();
    document->indexViews.push_back({appendBufferView(*document, std::move(array), byteLength), count, type});
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
    materials.push_back({std::move(material), NO_MESH});
}

void SrcBuilder::addMesh(std::shared_ptr<Mesh> mesh) {
    if (!mesh || mesh->document == document->id) return;
    for (const auto& [name, view] : mesh->attributes) {
        if (!document->holds(*view)) {
            throw std::invalid_argument("Mesh \"" + mesh->name + "\": the view of attribute \"" + name +
                                        "\" belongs to another builder.");
        }
    }
    if (mesh->indices && !document->holds(*mesh->indices)) {
        throw std::invalid_argument("Mesh \"" + mesh->name +
                                    "\": its index view belongs to another builder.");
    }

    MeshEntry entry;
    entry.name = mesh->name;
    entry.material = NO_MATERIAL;
    if (mesh->material) {
        addMaterial(mesh->material);
        entry.material = document->materialPlaces.at(mesh->material.get());
        auto& firstUse = document->materials[entry.material].firstUse;
        if (firstUse == NO_MESH) firstUse = document->meshes.size();
    }
    // A fault is the document's, told when it is written; the text is then of no use.
    std::string fault = faultOf(*document, *mesh);
    if (fault.empty()) {
        std::string& text = document->meshTexts.end();
        const std::size_t begin = text.size();
        appendHead(text, *mesh);
        entry.head = document->meshTexts.since(begin);
        appendTail(text, *mesh);
        entry.tail = document->meshTexts.since(begin + entry.head.size);
    } else if (document->fault.empty()) {
        document->fault = std::move(fault);
    }
    document->meshes.push_back(std::move(entry));
    mesh->document = document->id;
}

std::shared_ptr<Src> SrcBuilder::build() {
    return std::exchange(document, std::make_shared<Src>());
}

} // namespace src::builder
