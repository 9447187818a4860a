#include <kel/mesh/AttributeNames.h>
#include <kel/mesh/DefaultIndexBuffer.h>
#include <kel/mesh/DefaultMesh.h>
#include <kel/mesh/ForEachPrimitive.h>
#include <kel/mesh/detail/DefaultAttributeBuffer.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace kel::mesh {

const std::string DEFAULT_POSITIONS_NAME = "position";
const std::string DEFAULT_NORMALS_NAME = "normal";

template class DefaultIndexBuffer<std::uint8_t>;
template class DefaultIndexBuffer<std::uint16_t>;
template class DefaultIndexBuffer<std::uint32_t>;

std::string getStringForPrimitiveType(PrimitiveType type) {
    switch (type) {
    case POINTS:
        return "POINTS";
    case LINES:
        return "LINES";
    case LINE_LOOP:
        return "LINE_LOOP";
    case LINE_STRIP:
        return "LINE_STRIP";
    case TRIANGLES:
        return "TRIANGLES";
    case TRIANGLE_STRIP:
        return "TRIANGLE_STRIP";
    case TRIANGLE_FAN:
        return "TRIANGLE_FAN";
    }
    return "UNKNOWN (" + std::to_string(static_cast<std::uint32_t>(type)) + ")";
}

DefaultMesh::DefaultMesh(PrimitiveType type) : primitiveType(type) {}
DefaultMesh::~DefaultMesh() = default;

PrimitiveType DefaultMesh::getPrimitiveType() const {
    return primitiveType;
}

std::size_t DefaultMesh::getNumPrimitives() const {
    std::size_t n = 0;
    if (indexBuffer) {
        n = indexBuffer->getElementCount();
    } else if (const auto positions = getAttributeBuffer(DEFAULT_POSITIONS_NAME)) {
        n = positions->getElementCount();
    }
    return primitiveCount(primitiveType, n);
}

std::shared_ptr<IndexBuffer> DefaultMesh::getIndexBuffer() const {
    return indexBuffer;
}

std::size_t DefaultMesh::getNumAttributeBuffers() const {
    return attributes.size();
}

std::shared_ptr<AttributeBuffer> DefaultMesh::getAttributeBuffer(std::size_t index) const {
    return attributes.at(index);
}

std::shared_ptr<AttributeBuffer> DefaultMesh::getAttributeBuffer(const std::string& name) const {
    const auto found = std::find_if(attributes.begin(), attributes.end(),
                                    [&](const auto& buffer) { return buffer->getAttributeName() == name; });
    return found == attributes.end() ? nullptr : *found;
}

void DefaultMesh::setPrimitiveType(PrimitiveType type) {
    primitiveType = type;
}

void DefaultMesh::setIndexBuffer(std::shared_ptr<IndexBuffer> indices) {
    indexBuffer = std::move(indices);
}
void DefaultMesh::setIndices(std::vector<std::uint8_t> indices) {
    indexBuffer = std::make_shared<DefaultIndexBuffer<std::uint8_t>>(std::move(indices));
}
void DefaultMesh::setIndices(std::vector<std::uint16_t> indices) {
    indexBuffer = std::make_shared<DefaultIndexBuffer<std::uint16_t>>(std::move(indices));
}
void DefaultMesh::setIndices(std::vector<std::uint32_t> indices) {
    indexBuffer = std::make_shared<DefaultIndexBuffer<std::uint32_t>>(std::move(indices));
}

void DefaultMesh::addAttribute(std::shared_ptr<AttributeBuffer> buffer) {
    if (!buffer) throw std::invalid_argument("An attribute buffer must not be empty.");
    const std::string name = buffer->getAttributeName();
    const auto found = std::find_if(attributes.begin(), attributes.end(),
                                    [&](const auto& other) { return other->getAttributeName() == name; });
    if (found == attributes.end()) {
        attributes.push_back(std::move(buffer));
    } else {
        *found = std::move(buffer);
    }
}

namespace {

template<typename T>
std::shared_ptr<AttributeBuffer> packedAttribute(ComponentType type, std::string name, std::size_t components,
                                                 std::vector<T> values) {
    if (components == 0 || values.size() % components != 0) {
        throw std::invalid_argument("Attribute \"" + name + "\": " + std::to_string(values.size()) +
                                    " values do not make whole elements of " + std::to_string(components) +
                                    " components.");
    }
    auto data = std::make_shared<detail::TypedBufferData<T>>(std::move(values));
    return std::make_shared<detail::DefaultAttributeBuffer>(type, components, components * sizeof(T), 0,
                                                            std::move(data), std::move(name));
}

} // namespace

void DefaultMesh::addAttribute(std::string name, std::size_t components, std::vector<float> values) {
    addAttribute(packedAttribute(FLOAT, std::move(name), components, std::move(values)));
}
void DefaultMesh::addAttribute(std::string name, std::size_t components, std::vector<std::int8_t> values) {
    addAttribute(packedAttribute(BYTE, std::move(name), components, std::move(values)));
}
void DefaultMesh::addAttribute(std::string name, std::size_t components, std::vector<std::uint8_t> values) {
    addAttribute(packedAttribute(UNSIGNED_BYTE, std::move(name), components, std::move(values)));
}
void DefaultMesh::addAttribute(std::string name, std::size_t components, std::vector<std::int16_t> values) {
    addAttribute(packedAttribute(SHORT, std::move(name), components, std::move(values)));
}
void DefaultMesh::addAttribute(std::string name, std::size_t components, std::vector<std::uint16_t> values) {
    addAttribute(packedAttribute(UNSIGNED_SHORT, std::move(name), components, std::move(values)));
}
void DefaultMesh::addAttribute(std::string name, std::size_t components, std::vector<std::int32_t> values) {
    addAttribute(packedAttribute(INT, std::move(name), components, std::move(values)));
}
void DefaultMesh::addAttribute(std::string name, std::size_t components, std::vector<std::uint32_t> values) {
    addAttribute(packedAttribute(UNSIGNED_INT, std::move(name), components, std::move(values)));
}

} // namespace kel::mesh
