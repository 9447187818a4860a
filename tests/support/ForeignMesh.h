#pragma once

#include <kel/mesh/Mesh.h>

#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kel::tests {

/// What was asked of a mesh and its buffers, in order, e.g. "position.getElement(0)".
using CallLog = std::vector<std::string>;

/// An attribute buffer of somebody else's library: nothing about its storage is known, and it notes every
/// call.
class ForeignAttribute : public kel::mesh::AttributeBuffer {
public:
    ForeignAttribute(kel::mesh::ComponentType type, std::size_t components, std::vector<unsigned char> bytes,
                     std::string name, std::shared_ptr<CallLog> log = std::make_shared<CallLog>())
        : type(type), components(components), bytes(std::move(bytes)), name(std::move(name)),
          log(std::move(log)) {}

    kel::mesh::ComponentType getComponentType() const override {
        note("getComponentType");
        return type;
    }
    std::size_t getComponentCountPerElement() const override {
        note("getComponentCountPerElement");
        return components;
    }
    std::size_t getComponentSizeInBytes() const override {
        note("getComponentSizeInBytes");
        return kel::mesh::getComponentSizeInBytes(type);
    }
    std::size_t getElementSizeInBytes() const override {
        note("getElementSizeInBytes");
        return elementSize();
    }
    std::size_t getElementStrideInBytes() const override {
        note("getElementStrideInBytes");
        return elementSize();
    }
    std::size_t getElementOffsetInBytes() const override {
        note("getElementOffsetInBytes");
        return 0;
    }
    std::size_t getElementCount() const override {
        note("getElementCount");
        return elementSize() == 0 ? 0 : bytes.size() / elementSize();
    }
    void resize(std::size_t count) override { bytes.resize(count * elementSize()); }
    void getElement(std::size_t index, void* destination) const override {
        note("getElement(" + std::to_string(index) + ")");
        std::memcpy(destination, bytes.data() + index * elementSize(), elementSize());
    }
    void setElement(std::size_t index, const void* source) override {
        std::memcpy(bytes.data() + index * elementSize(), source, elementSize());
    }
    void getComponent(std::size_t index, std::size_t component, void* destination) const override {
        const std::size_t size = kel::mesh::getComponentSizeInBytes(type);
        std::memcpy(destination, bytes.data() + index * elementSize() + component * size, size);
    }
    void setComponent(std::size_t index, std::size_t component, const void* source) override {
        const std::size_t size = kel::mesh::getComponentSizeInBytes(type);
        std::memcpy(bytes.data() + index * elementSize() + component * size, source, size);
    }
    std::string getAttributeName() const override {
        note("getAttributeName");
        return name;
    }

private:
    std::size_t elementSize() const { return components * kel::mesh::getComponentSizeInBytes(type); }
    void note(const std::string& call) const { log->push_back(name + "." + call); }

    kel::mesh::ComponentType type;
    std::size_t components;
    std::vector<unsigned char> bytes;
    std::string name;
    std::shared_ptr<CallLog> log;
};

inline std::shared_ptr<ForeignAttribute>
foreignFloats(std::string name, std::size_t components, const std::vector<float>& values,
              std::shared_ptr<CallLog> log = std::make_shared<CallLog>()) {
    std::vector<unsigned char> bytes(values.size() * sizeof(float));
    if (!values.empty()) std::memcpy(bytes.data(), values.data(), bytes.size());
    return std::make_shared<ForeignAttribute>(kel::mesh::FLOAT, components, std::move(bytes), std::move(name),
                                              std::move(log));
}

/// Indices of somebody else's library, with an element width of their choice.
class ForeignIndices : public kel::mesh::IndexBuffer {
public:
    ForeignIndices(std::size_t width, std::vector<std::size_t> indices,
                   std::shared_ptr<CallLog> log = std::make_shared<CallLog>())
        : width(width), indices(std::move(indices)), log(std::move(log)) {}

    kel::mesh::ComponentType getComponentType() const override {
        return width == 1   ? kel::mesh::UNSIGNED_BYTE
               : width == 2 ? kel::mesh::UNSIGNED_SHORT
                            : kel::mesh::UNSIGNED_INT;
    }
    std::size_t getComponentCountPerElement() const override { return 1; }
    std::size_t getComponentSizeInBytes() const override { return width; }
    std::size_t getElementSizeInBytes() const override {
        log->push_back("indices.getElementSizeInBytes");
        return width;
    }
    std::size_t getElementStrideInBytes() const override { return width; }
    std::size_t getElementOffsetInBytes() const override { return 0; }
    std::size_t getElementCount() const override {
        log->push_back("indices.getElementCount");
        return indices.size();
    }
    void resize(std::size_t count) override { indices.resize(count); }
    std::size_t getIndex(std::size_t position) const override {
        log->push_back("indices.getIndex(" + std::to_string(position) + ")");
        return indices.at(position);
    }

private:
    std::size_t width;
    std::vector<std::size_t> indices;
    std::shared_ptr<CallLog> log;
};

/// A mesh of somebody else's library that notes every call.
class ForeignMesh : public kel::mesh::Mesh {
public:
    kel::mesh::PrimitiveType type = kel::mesh::TRIANGLES;
    std::size_t primitives = 0;
    std::shared_ptr<kel::mesh::IndexBuffer> indices;
    std::vector<std::pair<std::string, std::shared_ptr<kel::mesh::AttributeBuffer>>> attributes;
    std::shared_ptr<CallLog> log = std::make_shared<CallLog>();

    kel::mesh::PrimitiveType getPrimitiveType() const override {
        log->push_back("mesh.getPrimitiveType");
        return type;
    }
    std::size_t getNumPrimitives() const override {
        log->push_back("mesh.getNumPrimitives");
        return primitives;
    }
    std::shared_ptr<kel::mesh::IndexBuffer> getIndexBuffer() const override {
        log->push_back("mesh.getIndexBuffer");
        return indices;
    }
    std::size_t getNumAttributeBuffers() const override {
        log->push_back("mesh.getNumAttributeBuffers");
        return attributes.size();
    }
    std::shared_ptr<kel::mesh::AttributeBuffer> getAttributeBuffer(std::size_t index) const override {
        log->push_back("mesh.getAttributeBuffer(" + std::to_string(index) + ")");
        return attributes.at(index).second;
    }
    std::shared_ptr<kel::mesh::AttributeBuffer> getAttributeBuffer(const std::string& name) const override {
        log->push_back("mesh.getAttributeBuffer(" + name + ")");
        for (const auto& [key, buffer] : attributes) {
            if (key == name) return buffer;
        }
        return nullptr;
    }
};

} // namespace kel::tests
