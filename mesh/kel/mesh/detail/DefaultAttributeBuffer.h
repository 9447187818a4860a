#pragma once

#include <kel/mesh/AttributeBuffer.h>
#include <kel/mesh/detail/DefaultBuffer.h>

#include <memory>
#include <string>

namespace kel::mesh::detail {

/// An attribute over shared bytes. Inheritance is plain and not virtual, so that the object has the layout that
/// compiled callers expect. It has two Buffer parts; every Buffer operation is overridden here once and serves both.
///
/// Access to an element that does not lie wholly inside the bytes throws std::out_of_range.
class KEL_MESH_EXPORT DefaultAttributeBuffer : public DefaultBuffer, public AttributeBuffer {
public:
    DefaultAttributeBuffer(ComponentType type, std::size_t componentCountPerElement,
                           std::size_t strideInBytes, std::size_t offsetInBytes,
                           std::shared_ptr<BufferData> data, std::string name);
    ~DefaultAttributeBuffer() override;

    ComponentType getComponentType() const override;
    std::size_t getComponentCountPerElement() const override;
    std::size_t getComponentSizeInBytes() const override;
    std::size_t getElementSizeInBytes() const override;
    std::size_t getElementStrideInBytes() const override;
    std::size_t getElementOffsetInBytes() const override;
    std::size_t getElementCount() const override;
    void resize(std::size_t elementCount) override;

    void getElement(std::size_t index, void* destination) const override;
    void setElement(std::size_t index, const void* source) override;
    void getComponent(std::size_t index, std::size_t component, void* destination) const override;
    void setComponent(std::size_t index, std::size_t component, const void* source) override;
    std::string getAttributeName() const override;

private:
    std::size_t checkedOffset(std::size_t index) const;
    std::size_t checkedOffset(std::size_t index, std::size_t component) const;

    std::uint64_t attributeComponentCount;
    std::string attributeName;
};

} // namespace kel::mesh::detail
