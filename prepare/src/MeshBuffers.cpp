#include "MeshBuffers.h"

#include <kel/mesh/AttributeNames.h>
#include <kel/mesh/detail/AttributeBufferDataView.h>

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace kel::prepare::detail {

namespace {

class AssembledMesh final : public kel::mesh::Mesh {
public:
    AssembledMesh(kel::mesh::PrimitiveType type, std::size_t primitives, IndexPtr indices,
                  std::vector<AttributePtr> attributes)
        : type(type), primitives(primitives), indices(std::move(indices)), attributes(std::move(attributes)) {
    }

    kel::mesh::PrimitiveType getPrimitiveType() const override { return type; }
    std::size_t getNumPrimitives() const override { return primitives; }
    IndexPtr getIndexBuffer() const override { return indices; }
    std::size_t getNumAttributeBuffers() const override { return attributes.size(); }
    AttributePtr getAttributeBuffer(std::size_t index) const override { return attributes.at(index); }
    AttributePtr getAttributeBuffer(const std::string& name) const override {
        for (const AttributePtr& buffer : attributes) {
            if (buffer && buffer->getAttributeName() == name) return buffer;
        }
        return nullptr;
    }

private:
    kel::mesh::PrimitiveType type;
    std::size_t primitives;
    IndexPtr indices;
    std::vector<AttributePtr> attributes;
};

} // namespace

std::vector<AttributePtr> attributesOf(const kel::mesh::MeshPtr& mesh) {
    std::vector<AttributePtr> attributes(mesh ? mesh->getNumAttributeBuffers() : 0);
    for (std::size_t i = 0; i < attributes.size(); ++i)
        attributes[i] = mesh->getAttributeBuffer(i);
    return attributes;
}

std::size_t vertexCountOf(const kel::mesh::Mesh& mesh, const std::vector<AttributePtr>& attributes) {
    if (const auto positions = mesh.getAttributeBuffer(kel::mesh::DEFAULT_POSITIONS_NAME))
        return positions->getElementCount();
    std::size_t count = 0;
    for (const AttributePtr& buffer : attributes) {
        if (buffer) count = std::max(count, buffer->getElementCount());
    }
    return count;
}

std::vector<std::uint32_t> readIndices(const kel::mesh::IndexBuffer& indices, std::size_t vertexCount,
                                       std::size_t& firstBad) {
    std::vector<std::uint32_t> values(indices.getElementCount());
    std::size_t bad = values.size();
    forEachIndex(indices, values.size(), [&](std::size_t position, std::size_t index) {
        if (index >= vertexCount) bad = std::min(bad, position);
        values[position] = static_cast<std::uint32_t>(index);
    });
    firstBad = bad;
    return values;
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

kel::mesh::MeshPtr makeMesh(kel::mesh::PrimitiveType type, std::size_t primitives, IndexPtr indices,
                            std::vector<AttributePtr> attributes) {
    return std::make_shared<AssembledMesh>(type, primitives, std::move(indices), std::move(attributes));
}

AttributePtr makeAttribute(kel::mesh::ComponentType type, std::size_t components, Bytes bytes,
                           std::string name) {
    const std::size_t stride = kel::mesh::getComponentSizeInBytes(type) * components;
    return std::make_shared<kel::mesh::detail::AttributeBufferDataView>(
        type, components, stride, 0, std::make_shared<kel::mesh::detail::VectorBufferData>(std::move(bytes)),
        std::move(name));
}

AttributePtr gatherElements(const kel::mesh::AttributeBuffer& buffer,
                            const std::vector<std::uint32_t>& vertices) {
    const std::size_t size = buffer.getElementSizeInBytes();
    Bytes bytes(vertices.size() * size);
    const auto span = kel::src::detail::elementsInMemory(buffer, buffer.getElementCount());
    // A size that the compiler knows turns the copy into plain moves.
    const auto gather = [&](auto bytesPerElement) {
        unsigned char* target = bytes.data();
        for (const std::uint32_t vertex : vertices) {
            std::memcpy(target, span.first + vertex * span.stride, bytesPerElement);
            target += bytesPerElement;
        }
    };
    if (!span) {
        for (std::size_t i = 0; i < vertices.size(); ++i)
            buffer.getElement(vertices[i], bytes.data() + i * size);
    } else if (size == 12) {
        gather(std::integral_constant<std::size_t, 12>());
    } else if (size == 8) {
        gather(std::integral_constant<std::size_t, 8>());
    } else {
        gather(size);
    }
    return makeAttribute(buffer.getComponentType(), buffer.getComponentCountPerElement(), std::move(bytes),
                         buffer.getAttributeName());
}

} // namespace kel::prepare::detail
