#pragma once

#include <kel/mesh/DefaultIndexBuffer.h>
#include <kel/mesh/Mesh.h>
#include <kel/src/PackedAccess.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// Reading meshes of any implementation, in bulk where their numbers lie in memory, else one by one; and new
// meshes and buffers from what was read.
namespace kel::prepare::detail {

using Bytes = std::vector<unsigned char>;
using AttributePtr = std::shared_ptr<kel::mesh::AttributeBuffer>;
using IndexPtr = std::shared_ptr<kel::mesh::IndexBuffer>;

/// All attribute buffers of a mesh, empty pointers included; none of an empty pointer.
std::vector<AttributePtr> attributesOf(const kel::mesh::MeshPtr& mesh);

/// How many vertices a mesh has: the elements of "position", or of its longest attribute when it has none.
std::size_t vertexCountOf(const kel::mesh::Mesh& mesh, const std::vector<AttributePtr>& attributes);

/// Calls visit(position, index) for all indices in order.
template<typename Visit>
void forEachIndex(const kel::mesh::IndexBuffer& indices, const Visit& visit) {
    const std::size_t count = indices.getElementCount();
    const auto visitAll = [&](const auto& indexAt) {
        for (std::size_t i = 0; i < count; ++i)
            visit(i, static_cast<std::size_t>(indexAt(i)));
    };
    if (const auto* packed32 = kel::src::detail::packedIndices<std::uint32_t>(indices)) {
        visitAll([&](std::size_t i) { return packed32[i]; });
    } else if (const auto* packed16 = kel::src::detail::packedIndices<std::uint16_t>(indices)) {
        visitAll([&](std::size_t i) { return packed16[i]; });
    } else {
        visitAll([&](std::size_t i) { return indices.getIndex(i); });
    }
}

/// All indices of a mesh with fewer than 2^32 vertices.
///
/// firstBad  set to the position of the first index that has no vertex; to their number when all have one
std::vector<std::uint32_t> readIndices(const kel::mesh::IndexBuffer& indices, std::size_t vertexCount,
                                       std::size_t& firstBad);

/// The components of a float attribute in one packed array: the buffer's own memory where it is laid out so,
/// else a copy. Valid while the buffer lives and is not changed.
class PackedFloats {
public:
    explicit PackedFloats(const kel::mesh::AttributeBuffer& buffer);
    PackedFloats(const PackedFloats&) = delete;
    PackedFloats& operator=(const PackedFloats&) = delete;

    const float* data() const { return values; }
    std::size_t size() const { return valueCount; } ///< components, not elements
    const float* begin() const { return values; }
    const float* end() const { return values + valueCount; }

private:
    std::vector<float> copy;
    const float* values = nullptr;
    std::size_t valueCount = 0;
};

/// A mesh put together from finished parts. Unlike a mesh that counts for itself it hands on the number of
/// primitives it was given, and keeps several attributes of one name apart.
kel::mesh::MeshPtr makeMesh(kel::mesh::PrimitiveType type, std::size_t primitives, IndexPtr indices,
                            std::vector<AttributePtr> attributes);

/// A packed attribute that takes the bytes over.
AttributePtr makeAttribute(kel::mesh::ComponentType type, std::size_t components, Bytes bytes,
                           std::string name);

/// The elements `vertices[0]`, `vertices[1]`, ... of an attribute as a new one of the same type and name. All
/// of them lie inside the buffer.
AttributePtr gatherElements(const kel::mesh::AttributeBuffer& buffer,
                            const std::vector<std::uint32_t>& vertices);

/// A packed index buffer that takes the indices over.
template<typename Index>
IndexPtr makeIndices(std::vector<Index> indices) {
    return std::make_shared<kel::mesh::DefaultIndexBuffer<Index>>(std::move(indices));
}

} // namespace kel::prepare::detail
