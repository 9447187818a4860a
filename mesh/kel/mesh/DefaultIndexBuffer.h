#pragma once

#include <kel/mesh/IndexBuffer.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kel::mesh {

/// Indices of one width, 1, 2 or 4 bytes, in a vector of their own, packed.
///
/// getIndex throws std::out_of_range outside 0 .. getElementCount() - 1.
template<typename T>
class DefaultIndexBuffer final : public IndexBuffer {
    static_assert(std::is_same<T, std::uint8_t>::value || std::is_same<T, std::uint16_t>::value ||
                      std::is_same<T, std::uint32_t>::value,
                  "indices are unsigned and 1, 2 or 4 bytes wide");

public:
    explicit DefaultIndexBuffer(std::vector<T> indices) : indices(std::move(indices)) {}

    ComponentType getComponentType() const override {
        return sizeof(T) == 1 ? UNSIGNED_BYTE : sizeof(T) == 2 ? UNSIGNED_SHORT : UNSIGNED_INT;
    }
    std::size_t getComponentCountPerElement() const override { return 1; }
    std::size_t getComponentSizeInBytes() const override { return sizeof(T); }
    std::size_t getElementSizeInBytes() const override { return sizeof(T); }
    std::size_t getElementStrideInBytes() const override { return sizeof(T); }
    std::size_t getElementOffsetInBytes() const override { return 0; }
    std::size_t getElementCount() const override { return indices.size(); }
    void resize(std::size_t elementCount) override { indices.resize(elementCount); }
    std::size_t getIndex(std::size_t position) const override { return indices.at(position); }

    /// The packed indices; valid until the buffer is resized.
    const T* data() const { return indices.data(); }

private:
    std::vector<T> indices;
};

extern template class KEL_MESH_EXPORT DefaultIndexBuffer<std::uint8_t>;
extern template class KEL_MESH_EXPORT DefaultIndexBuffer<std::uint16_t>;
extern template class KEL_MESH_EXPORT DefaultIndexBuffer<std::uint32_t>;

} // namespace kel::mesh
