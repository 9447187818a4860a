// The pipeline's own buffers: no checks, no sharing of code with any other implementation.
#include <kel/mesh/AttributeNames.h>
#include <kel/mesh/PrimitiveType.h>
#include <kel/mesh/Transforms.h>
#include <kel/mesh/detail/DefaultAttributeBuffer.h>

#include <cstring>

namespace kel::mesh {

const std::string DEFAULT_POSITIONS_NAME = "position";
const std::string DEFAULT_NORMALS_NAME = "normal";

std::size_t getComponentSizeInBytes(ComponentType type) {
    return type >= INT ? 4 : type >= SHORT ? 2 : 1;
}

std::string getStringForPrimitiveType(PrimitiveType type) {
    return "pipeline primitive " + std::to_string(type);
}

bool AttributeBuffer::isVec3f() const {
    return getElementSizeInBytes() == 12 && getComponentType() == FLOAT;
}

std::shared_ptr<AttributeBuffer> AttributeBuffer::createDefault(ComponentType type, std::size_t components,
                                                                std::string name) {
    return std::make_shared<detail::DefaultAttributeBuffer>(
        type, components, components * kel::mesh::getComponentSizeInBytes(type), 0,
        std::make_shared<detail::VectorBufferData>(), name);
}

void transformAttributes(std::shared_ptr<AttributeBuffer> source, std::shared_ptr<AttributeBuffer> target,
                         std::function<void(void*, void*)> transform) {
    target->resize(source->getElementCount());
    char from[64], to[64];
    for (std::size_t i = 0; i < source->getElementCount(); ++i) {
        source->getElement(i, from);
        transform(from, to);
        target->setElement(i, to);
    }
}

std::function<void(void*, void*)> quantizeNormals() {
    return [](void*, void* code) { std::memset(code, 127, 2); };
}

namespace detail {

DefaultAttributeBuffer::DefaultAttributeBuffer(ComponentType type, std::size_t components, std::size_t stride,
                                               std::size_t offset, std::shared_ptr<BufferData> data,
                                               std::string name)
    : DefaultBuffer(type, components, stride, offset, data), attributeComponentCount(components),
      attributeName(name) {}
DefaultAttributeBuffer::~DefaultAttributeBuffer() {}

using Base = DefaultBuffer;
using This = DefaultAttributeBuffer;
ComponentType This::getComponentType() const {
    return Base::getComponentType();
}
std::size_t This::getComponentCountPerElement() const {
    return Base::getComponentCountPerElement();
}
std::size_t This::getComponentSizeInBytes() const {
    return Base::getComponentSizeInBytes();
}
std::size_t This::getElementSizeInBytes() const {
    return Base::getElementSizeInBytes();
}
std::size_t This::getElementStrideInBytes() const {
    return Base::getElementStrideInBytes();
}
std::size_t This::getElementOffsetInBytes() const {
    return Base::getElementOffsetInBytes();
}
std::size_t This::getElementCount() const {
    return Base::getElementCount();
}
void This::resize(std::size_t count) {
    Base::resize(count);
}
std::string This::getAttributeName() const {
    return attributeName;
}

void This::getElement(std::size_t i, void* to) const {
    std::memcpy(to, getBufferData()->getData() + i * getElementStrideInBytes(), getElementSizeInBytes());
}
void This::setElement(std::size_t i, const void* from) {
    std::memcpy(getBufferData()->getData() + i * getElementStrideInBytes(), from, getElementSizeInBytes());
}
void This::getComponent(std::size_t i, std::size_t c, void* to) const {
    const std::size_t size = getComponentSizeInBytes();
    std::memcpy(to, getBufferData()->getData() + i * getElementStrideInBytes() + c * size, size);
}
void This::setComponent(std::size_t i, std::size_t c, const void* from) {
    const std::size_t size = getComponentSizeInBytes();
    std::memcpy(getBufferData()->getData() + i * getElementStrideInBytes() + c * size, from, size);
}

} // namespace detail
} // namespace kel::mesh
