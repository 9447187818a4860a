#include <kel/mesh/AttributeBuffer.h>
#include <kel/mesh/Transforms.h>
#include <kel/mesh/detail/AttributeBufferDataView.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

namespace kel::mesh {

std::size_t getComponentSizeInBytes(ComponentType type) {
    switch (type) {
    case BYTE:
    case UNSIGNED_BYTE:
        return 1;
    case SHORT:
    case UNSIGNED_SHORT:
        return 2;
    case INT:
    case UNSIGNED_INT:
    case FLOAT:
        return 4;
    }
    throw std::invalid_argument("Unknown component type " + std::to_string(static_cast<std::uint32_t>(type)) +
                                ".");
}

bool AttributeBuffer::isVec3f() const {
    return getComponentType() == FLOAT && getComponentCountPerElement() == 3;
}

std::shared_ptr<AttributeBuffer> AttributeBuffer::createDefault(ComponentType type, std::size_t components,
                                                                std::string name) {
    return std::make_shared<detail::DefaultAttributeBuffer>(
        type, components, kel::mesh::getComponentSizeInBytes(type) * components, 0,
        std::make_shared<detail::VectorBufferData>(), std::move(name));
}

void transformAttributes(std::shared_ptr<AttributeBuffer> source, std::shared_ptr<AttributeBuffer> target,
                         std::function<void(void*, void*)> transform) {
    const std::size_t count = source->getElementCount();
    target->resize(count);
    // Transforms of positions and normals read three floats, also from a source whose elements are shorter.
    std::vector<unsigned char> from(std::max(source->getElementSizeInBytes(), 4 * sizeof(float)));
    std::vector<unsigned char> to(target->getElementSizeInBytes());
    for (std::size_t i = 0; i < count; ++i) {
        source->getElement(i, from.data());
        target->getElement(i, to.data());
        transform(from.data(), to.data());
        target->setElement(i, to.data());
    }
}

namespace detail {

DefaultAttributeBuffer::DefaultAttributeBuffer(ComponentType type, std::size_t components,
                                               std::size_t strideInBytes, std::size_t offsetInBytes,
                                               std::shared_ptr<BufferData> data, std::string name)
    : DefaultBuffer(type, components, strideInBytes, offsetInBytes, std::move(data)),
      attributeComponentCount(components), attributeName(std::move(name)) {}

DefaultAttributeBuffer::~DefaultAttributeBuffer() = default;

ComponentType DefaultAttributeBuffer::getComponentType() const {
    return DefaultBuffer::getComponentType();
}
std::size_t DefaultAttributeBuffer::getComponentCountPerElement() const {
    return attributeComponentCount;
}
std::size_t DefaultAttributeBuffer::getComponentSizeInBytes() const {
    return DefaultBuffer::getComponentSizeInBytes();
}
std::size_t DefaultAttributeBuffer::getElementSizeInBytes() const {
    return DefaultBuffer::getElementSizeInBytes();
}
std::size_t DefaultAttributeBuffer::getElementStrideInBytes() const {
    return DefaultBuffer::getElementStrideInBytes();
}
std::size_t DefaultAttributeBuffer::getElementOffsetInBytes() const {
    return DefaultBuffer::getElementOffsetInBytes();
}
std::size_t DefaultAttributeBuffer::getElementCount() const {
    return DefaultBuffer::getElementCount();
}
void DefaultAttributeBuffer::resize(std::size_t elementCount) {
    DefaultBuffer::resize(elementCount);
}

std::size_t DefaultAttributeBuffer::checkedOffset(std::size_t index) const {
    const std::size_t size = getBufferData()->getSizeInBytes();
    const std::size_t offset = getElementOffsetInBytes();
    const std::size_t elementSize = getElementSizeInBytes();
    // The element's last byte must lie inside; written so that no sum or product can wrap.
    if (offset > size || elementSize > size - offset ||
        (index != 0 && index > (size - offset - elementSize) / getElementStrideInBytes())) {
        throw std::out_of_range("Attribute \"" + attributeName + "\" has no element " +
                                std::to_string(index) + " in its " + std::to_string(size) + " bytes.");
    }
    return offset + index * getElementStrideInBytes();
}

std::size_t DefaultAttributeBuffer::checkedOffset(std::size_t index, std::size_t component) const {
    if (component >= attributeComponentCount) {
        throw std::out_of_range("Attribute \"" + attributeName + "\" has no component " +
                                std::to_string(component) + ".");
    }
    return checkedOffset(index) + component * getComponentSizeInBytes();
}

void DefaultAttributeBuffer::getElement(std::size_t index, void* destination) const {
    const std::size_t at = checkedOffset(index);
    std::memcpy(destination, getBufferData()->getData() + at, getElementSizeInBytes());
}

void DefaultAttributeBuffer::setElement(std::size_t index, const void* source) {
    const std::size_t at = checkedOffset(index);
    std::memcpy(getBufferData()->getData() + at, source, getElementSizeInBytes());
}

void DefaultAttributeBuffer::getComponent(std::size_t index, std::size_t component, void* destination) const {
    const std::size_t at = checkedOffset(index, component);
    std::memcpy(destination, getBufferData()->getData() + at, getComponentSizeInBytes());
}

void DefaultAttributeBuffer::setComponent(std::size_t index, std::size_t component, const void* source) {
    const std::size_t at = checkedOffset(index, component);
    std::memcpy(getBufferData()->getData() + at, source, getComponentSizeInBytes());
}

std::string DefaultAttributeBuffer::getAttributeName() const {
    return attributeName;
}

} // namespace detail
} // namespace kel::mesh
