#include "PackedReading.h"

#include <kel/mesh/AttributeNames.h>

#include <algorithm>
#include <cstring>

namespace kel::prepare::detail {

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

CheckedIndices checkedIndices(const kel::mesh::IndexBuffer& indices, std::size_t vertexCount) {
    CheckedIndices checked;
    checked.values.resize(indices.getElementCount());
    forEachIndex(indices, [&](std::size_t position, std::size_t index) {
        if (index >= vertexCount && checked.allInRange) {
            checked.allInRange = false;
            checked.badPosition = position;
            checked.badIndex = index;
        }
        checked.values[position] = static_cast<std::uint32_t>(index);
    });
    return checked;
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

} // namespace kel::prepare::detail
