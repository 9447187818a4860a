#pragma once

#include "AssembledMesh.h"

#include <kel/src/PackedAccess.h>

#include <cstddef>
#include <cstdint>
#include <vector>

// Reading meshes of any implementation: in bulk where their numbers lie in memory, else one by one.
namespace kel::prepare::detail {

/// How many vertices a mesh has: the elements of "position", or of its longest attribute when it has none.
std::size_t vertexCountOf(const kel::mesh::Mesh& mesh, const std::vector<AttributePtr>& attributes);

/// Calls visit(position, index) for all indices in order.
template<typename Visit>
void forEachIndex(const kel::mesh::IndexBuffer& indices, const Visit& visit) {
    const std::size_t count = indices.getElementCount();
    if (const auto* packed32 = kel::src::detail::packedIndices<std::uint32_t>(indices)) {
        for (std::size_t i = 0; i < count; ++i)
            visit(i, static_cast<std::size_t>(packed32[i]));
    } else if (const auto* packed16 = kel::src::detail::packedIndices<std::uint16_t>(indices)) {
        for (std::size_t i = 0; i < count; ++i)
            visit(i, static_cast<std::size_t>(packed16[i]));
    } else {
        for (std::size_t i = 0; i < count; ++i)
            visit(i, indices.getIndex(i));
    }
}

struct CheckedIndices {
    std::vector<std::uint32_t> values;
    bool allInRange = true;
    std::size_t badPosition = 0; ///< of the first index without a vertex, when there is one
    std::size_t badIndex = 0;
};

/// All indices of a mesh with fewer than 2^32 vertices.
CheckedIndices checkedIndices(const kel::mesh::IndexBuffer& indices, std::size_t vertexCount);

/// The elements `vertices[0]`, `vertices[1]`, ... of an attribute as a new one of the same type and name. All
/// of them lie inside the buffer.
AttributePtr gatherElements(const kel::mesh::AttributeBuffer& buffer,
                            const std::vector<std::uint32_t>& vertices);

/// The components of a float attribute in one packed array: the buffer's own memory where it is laid out so,
/// else a copy. Valid while the buffer lives and is not changed.
class PackedFloats {
public:
    /// `buffer` holds floats.
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

} // namespace kel::prepare::detail
