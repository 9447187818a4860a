#pragma once

#include <kel/mesh/AttributeBuffer.h>
#include <kel/mesh/IndexBuffer.h>
#include <kel/mesh/detail/AttributeBufferDataView.h>
#if KELSRC_BUNDLED_MESH
#include <kel/mesh/DefaultIndexBuffer.h>
#endif

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <typeinfo>

namespace kel::src::detail {

/// Elements that lie in memory at a fixed distance.
struct ElementSpan {
    const unsigned char* first = nullptr; ///< null when the elements can only be read through the interface
    std::size_t stride = 0;

    explicit operator bool() const { return first != nullptr; }
    bool isPacked(std::size_t elementSize) const { return first && stride == elementSize; }
};

/// Whether a buffer's exact type is one whose storage we know. A class derived from ours may answer differently, so
/// it is read through the interface, as is any other implementation.
inline bool hasKnownStorage(const kel::mesh::AttributeBuffer& buffer) {
    const std::type_info& type = typeid(buffer);
    return type == typeid(kel::mesh::detail::DefaultAttributeBuffer) ||
           type == typeid(kel::mesh::detail::AttributeBufferDataView);
}

/// Where the first `count` elements of a buffer lie, if its storage is known and all of them lie inside its bytes.
inline ElementSpan elementsInMemory(const kel::mesh::AttributeBuffer& buffer, std::size_t count) {
    if (!hasKnownStorage(buffer)) return {};
    const auto& known = static_cast<const kel::mesh::detail::DefaultAttributeBuffer&>(buffer);
    const kel::mesh::detail::BufferData& data = *known.getBufferData();
    const std::size_t size = data.getSizeInBytes();
    const std::size_t offset = known.getElementOffsetInBytes();
    const std::size_t elementSize = known.getElementSizeInBytes();
    const std::size_t stride = known.getElementStrideInBytes();
    if (count == 0 || offset > size || elementSize > size - offset ||
        count - 1 > (size - offset - elementSize) / stride) {
        return {};
    }
    return {data.getData() + offset, stride};
}

/// Copies `count` elements of `elementSize` bytes, packed, to `target`: in bulk where they lie in memory,
/// else by getElement in ascending order.
inline void copyElements(const kel::mesh::AttributeBuffer& buffer, std::size_t count, std::size_t elementSize,
                         unsigned char* target) {
    const ElementSpan span = elementsInMemory(buffer, count);
    if (span.isPacked(elementSize)) {
        std::memcpy(target, span.first, count * elementSize);
    } else if (span) {
        for (std::size_t i = 0; i < count; ++i)
            std::memcpy(target + i * elementSize, span.first + i * span.stride, elementSize);
    } else {
        for (std::size_t i = 0; i < count; ++i)
            buffer.getElement(i, target + i * elementSize);
    }
}

/// Room for one element that getElement writes. A buffer is not asked how wide its elements are: four floats are
/// what positions and normals have at most, the rest is for buffers that callers pass in error.
using ElementScratch = std::array<float, 16>;

/// The indices as an array of T, if the buffer is exactly our own of that width; null otherwise.
template<typename T>
const T* packedIndices(const kel::mesh::IndexBuffer& buffer) {
#if KELSRC_BUNDLED_MESH
    if (typeid(buffer) == typeid(kel::mesh::DefaultIndexBuffer<T>))
        return static_cast<const kel::mesh::DefaultIndexBuffer<T>&>(buffer).data();
#else
    static_cast<void>(buffer);
#endif
    return nullptr;
}

/// Calls visit(k, index) for the first `count` indices in order; a buffer of our own is read from its memory.
template<typename Visit>
void forEachIndex(const kel::mesh::IndexBuffer& indices, std::size_t count, const Visit& visit) {
    const auto visitAll = [&](const auto& indexAt) {
        for (std::size_t k = 0; k < count; ++k)
            visit(k, static_cast<std::size_t>(indexAt(k)));
    };
    if (const auto* packed32 = packedIndices<std::uint32_t>(indices)) {
        visitAll([packed32](std::size_t k) { return packed32[k]; });
    } else if (const auto* packed16 = packedIndices<std::uint16_t>(indices)) {
        visitAll([packed16](std::size_t k) { return packed16[k]; });
    } else if (const auto* packed8 = packedIndices<std::uint8_t>(indices)) {
        visitAll([packed8](std::size_t k) { return packed8[k]; });
    } else {
        visitAll([&](std::size_t k) { return indices.getIndex(k); });
    }
}

} // namespace kel::src::detail
