#include "Buffers.h"

#include <kel/mesh/AttributeNames.h>
#include <kel/mesh/DefaultIndexBuffer.h>
#include <kel/mesh/detail/AttributeBufferDataView.h>
#include <kel/src/PackedAccess.h>

#include <picojson.h>

#include <algorithm>
#include <charconv>
#include <cstdint>

namespace kel::prepare::detail {

AssembledMesh::~AssembledMesh() = default;

AttributePtr AssembledMesh::getAttributeBuffer(const std::string& name) const {
    const auto found = std::find_if(attributes.begin(), attributes.end(), [&](const AttributePtr& buffer) {
        return buffer && buffer->getAttributeName() == name;
    });
    return found == attributes.end() ? nullptr : *found;
}

std::vector<AttributePtr> attributesOf(const kel::mesh::Mesh& mesh) {
    std::vector<AttributePtr> attributes(mesh.getNumAttributeBuffers());
    for (std::size_t i = 0; i < attributes.size(); ++i)
        attributes[i] = mesh.getAttributeBuffer(i);
    return attributes;
}

AttributePtr makeAttribute(kel::mesh::ComponentType type, std::size_t components, Bytes bytes,
                           std::string name) {
    const std::size_t stride = kel::mesh::getComponentSizeInBytes(type) * components;
    return std::make_shared<kel::mesh::detail::AttributeBufferDataView>(
        type, components, stride, 0, std::make_shared<kel::mesh::detail::VectorBufferData>(std::move(bytes)),
        std::move(name));
}

std::shared_ptr<kel::mesh::IndexBuffer> makeIndices(std::vector<std::uint8_t> indices) {
    return std::make_shared<kel::mesh::DefaultIndexBuffer<std::uint8_t>>(std::move(indices));
}
std::shared_ptr<kel::mesh::IndexBuffer> makeIndices(std::vector<std::uint16_t> indices) {
    return std::make_shared<kel::mesh::DefaultIndexBuffer<std::uint16_t>>(std::move(indices));
}
std::shared_ptr<kel::mesh::IndexBuffer> makeIndices(std::vector<std::uint32_t> indices) {
    return std::make_shared<kel::mesh::DefaultIndexBuffer<std::uint32_t>>(std::move(indices));
}

std::size_t vertexCountOf(const kel::mesh::Mesh& mesh, const std::vector<AttributePtr>& attributes) {
    if (const auto positions = mesh.getAttributeBuffer(kel::mesh::DEFAULT_POSITIONS_NAME)) {
        return positions->getElementCount();
    }
    std::size_t count = 0;
    for (const AttributePtr& buffer : attributes) {
        if (buffer) count = std::max(count, buffer->getElementCount());
    }
    return count;
}

std::vector<std::size_t> indicesOf(const kel::mesh::IndexBuffer& indices) {
    const std::size_t count = indices.getElementCount();
    if (const auto* packed = kel::src::detail::packedIndices<std::uint32_t>(indices)) {
        return std::vector<std::size_t>(packed, packed + count);
    }
    if (const auto* packed = kel::src::detail::packedIndices<std::uint16_t>(indices)) {
        return std::vector<std::size_t>(packed, packed + count);
    }
    std::vector<std::size_t> copy(count);
    for (std::size_t i = 0; i < count; ++i)
        copy[i] = indices.getIndex(i);
    return copy;
}

namespace {

/// A size that the compiler knows turns the copy into plain moves.
template<std::size_t SIZE>
void gather(const kel::src::detail::ElementSpan& span, const std::vector<std::uint32_t>& vertices,
            unsigned char* target) {
    for (const std::uint32_t vertex : vertices) {
        std::memcpy(target, span.first + vertex * span.stride, SIZE);
        target += SIZE;
    }
}

} // namespace

AttributePtr gatherElements(const kel::mesh::AttributeBuffer& buffer,
                            const std::vector<std::uint32_t>& vertices) {
    const std::size_t size = buffer.getElementSizeInBytes();
    Bytes bytes(vertices.size() * size);
    const kel::src::detail::ElementSpan span =
        kel::src::detail::elementsInMemory(buffer, buffer.getElementCount());
    if (span && size == 12) {
        gather<12>(span, vertices, bytes.data());
    } else if (span && size == 8) {
        gather<8>(span, vertices, bytes.data());
    } else {
        unsigned char* target = bytes.data();
        for (const std::uint32_t vertex : vertices) {
            if (span) {
                std::memcpy(target, span.first + vertex * span.stride, size);
            } else {
                buffer.getElement(vertex, target);
            }
            target += size;
        }
    }
    return makeAttribute(buffer.getComponentType(), buffer.getComponentCountPerElement(), std::move(bytes),
                         buffer.getAttributeName());
}

PackedFloats::PackedFloats(const kel::mesh::AttributeBuffer& buffer) {
    const std::size_t count = buffer.getElementCount();
    const std::size_t elementSize = buffer.getElementSizeInBytes();
    valueCount = count * (elementSize / sizeof(float));
    if (valueCount == 0) return;
    const kel::src::detail::ElementSpan span = kel::src::detail::elementsInMemory(buffer, count);
    if (span.isPacked(elementSize) && reinterpret_cast<std::uintptr_t>(span.first) % alignof(float) == 0) {
        values = reinterpret_cast<const float*>(span.first);
        return;
    }
    copy.resize(valueCount);
    kel::src::detail::copyElements(buffer, count, elementSize, reinterpret_cast<unsigned char*>(copy.data()));
    values = copy.data();
}

std::string numberText(double value) {
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, value, std::chars_format::general, 4);
    return std::string(text, end.ptr);
}

std::string placeOf(const kel::src::SrcWriterInput& input, std::size_t mesh) {
    const std::string name = nameOf(input, input.meshes[mesh]);
    return "Mesh " + std::to_string(mesh) + (name.empty() ? "" : " (\"" + name + "\")");
}

std::string nameOf(const kel::src::SrcWriterInput& input, const kel::mesh::MeshPtr& mesh) {
    const auto entry = input.metaData.find(mesh);
    if (entry == input.metaData.end() || !entry->second) return {};
    const auto name = entry->second->find("name");
    if (name == entry->second->end()) return {};
    const std::string& text = name->second;
    if (!text.empty() && text.front() == '"') { // a string cannot nest, so the parser cannot run deep
        picojson::value value;
        if (picojson::parse(value, text).empty() && value.is<std::string>()) return value.get<std::string>();
    }
    return text;
}

kel::src::MetaDataPtr ownMetaData(const kel::src::MetaDataPtr& metaData) {
    using Map = kel::src::MetaDataPtr::element_type;
    return metaData ? std::make_shared<Map>(*metaData) : std::make_shared<Map>();
}

std::map<kel::mesh::MeshPtr, kel::src::MetaDataPtr> copyMetaData(const kel::src::SrcWriterInput& input) {
    std::map<kel::mesh::MeshPtr, kel::src::MetaDataPtr> copies;
    for (const auto& [mesh, metaData] : input.metaData)
        copies.emplace_hint(copies.end(), mesh, metaData ? ownMetaData(metaData) : nullptr);
    return copies;
}

kel::src::MetaDataPtr moveMeshEntries(kel::src::SrcWriterInput& input, const kel::mesh::MeshPtr& from,
                                      const kel::mesh::MeshPtr& to) {
    if (auto material = input.meshMaterials.extract(from)) {
        material.key() = to;
        input.meshMaterials.insert(std::move(material));
    }
    kel::src::MetaDataPtr& metaData = input.metaData[to];
    if (const auto entry = input.metaData.extract(from)) metaData = entry.mapped();
    if (!metaData) metaData = ownMetaData(nullptr);
    return metaData;
}

} // namespace kel::prepare::detail
