#pragma once

#include <kel/mesh/Buffer.h>

#include <memory>
#include <string>

namespace kel::mesh {

/// A named per-vertex attribute.
class KEL_MESH_EXPORT AttributeBuffer : public Buffer {
public:
    /// Copies element `index`, getElementSizeInBytes() bytes with the components packed, to `destination`.
    virtual void getElement(std::size_t index, void* destination) const = 0;
    virtual void setElement(std::size_t index, const void* source) = 0;
    virtual void getComponent(std::size_t index, std::size_t component, void* destination) const = 0;
    virtual void setComponent(std::size_t index, std::size_t component, const void* source) = 0;
    virtual std::string getAttributeName() const = 0;

    /// True when every element is three floats.
    bool isVec3f() const;

    /// A new, empty buffer with storage of its own, for the caller to resize and fill.
    static std::shared_ptr<AttributeBuffer>
    createDefault(ComponentType type, std::size_t componentCountPerElement, std::string name);
};

} // namespace kel::mesh
