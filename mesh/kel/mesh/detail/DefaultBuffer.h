#pragma once

#include <kel/mesh/Buffer.h>
#include <kel/mesh/detail/BufferData.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

namespace kel::mesh::detail {

/// A layout over shared bytes: element i begins at offset + i * stride.
class KEL_MESH_EXPORT DefaultBuffer : public Buffer {
public:
    DefaultBuffer(ComponentType type, std::size_t componentCountPerElement, std::size_t strideInBytes,
                  std::size_t offsetInBytes, std::shared_ptr<BufferData> data)
        : componentType(type), componentCountPerElement(componentCountPerElement),
          elementStrideInBytes(strideInBytes), elementOffsetInBytes(offsetInBytes), data(std::move(data)),
          componentSizeInBytes(kel::mesh::getComponentSizeInBytes(type)),
          elementSizeInBytes(componentSizeInBytes * componentCountPerElement) {}

    ComponentType getComponentType() const override { return componentType; }
    std::size_t getComponentCountPerElement() const override { return componentCountPerElement; }
    std::size_t getComponentSizeInBytes() const override { return componentSizeInBytes; }
    std::size_t getElementSizeInBytes() const override { return elementSizeInBytes; }
    std::size_t getElementStrideInBytes() const override { return elementStrideInBytes; }
    std::size_t getElementOffsetInBytes() const override { return elementOffsetInBytes; }
    /// Bytes divided by stride. The offset is not subtracted: interleaved views of one block must all count
    /// the same elements. A stride of 0 is the caller's error and not checked.
    std::size_t getElementCount() const override {
        return data->getSizeInBytes() / getElementStrideInBytes();
    }
    void resize(std::size_t elementCount) override { data->resize(getElementStrideInBytes() * elementCount); }

    virtual std::shared_ptr<BufferData>& getBufferData() { return data; }
    virtual const std::shared_ptr<BufferData>& getBufferData() const { return data; }

private:
    ComponentType componentType;
    std::uint64_t componentCountPerElement;
    std::uint64_t elementStrideInBytes;
    std::uint64_t elementOffsetInBytes;
    std::shared_ptr<BufferData> data;
    std::uint64_t componentSizeInBytes;
    std::uint64_t elementSizeInBytes;
};

} // namespace kel::mesh::detail
