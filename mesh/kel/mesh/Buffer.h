#pragma once

#include <kel/mesh/ComponentType.h>

#include <cstddef>

namespace kel::mesh {

/// A sequence of elements, each a fixed number of components of one type. The order of the virtual operations is
/// part of the interface, because compiled callers find each operation by its place in that order.
class KEL_MESH_EXPORT Buffer {
public:
    virtual ~Buffer() = default;

    virtual ComponentType getComponentType() const = 0;
    /// For instance 3 for positions.
    virtual std::size_t getComponentCountPerElement() const = 0;
    virtual std::size_t getComponentSizeInBytes() const = 0;
    /// Components per element times component size.
    virtual std::size_t getElementSizeInBytes() const = 0;
    /// Distance in bytes from one element to the next in the underlying storage; at least the element size.
    virtual std::size_t getElementStrideInBytes() const = 0;
    /// Position of the first element's first byte in the underlying storage.
    virtual std::size_t getElementOffsetInBytes() const = 0;
    virtual std::size_t getElementCount() const = 0;
    virtual void resize(std::size_t elementCount) = 0;
};

} // namespace kel::mesh
