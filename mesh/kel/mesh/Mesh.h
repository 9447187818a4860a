#pragma once

#include <kel/mesh/AttributeBuffer.h>
#include <kel/mesh/IndexBuffer.h>
#include <kel/mesh/PrimitiveType.h>

#include <cstddef>
#include <memory>
#include <string>

namespace kel::mesh {

/// A primitive type, an optional index buffer and an ordered list of named attribute buffers. The order of the
/// virtual operations is part of the interface, as that of Buffer is.
class KEL_MESH_EXPORT Mesh {
public:
    virtual ~Mesh() = default;

    virtual PrimitiveType getPrimitiveType() const = 0;
    /// How many points, lines or triangles the mesh describes.
    virtual std::size_t getNumPrimitives() const = 0;
    /// Empty when the mesh is not indexed.
    virtual std::shared_ptr<IndexBuffer> getIndexBuffer() const = 0;
    virtual std::size_t getNumAttributeBuffers() const = 0;
    /// `index` is 0 to getNumAttributeBuffers() - 1.
    virtual std::shared_ptr<AttributeBuffer> getAttributeBuffer(std::size_t index) const = 0;
    /// The buffer whose attribute name equals `name`, or an empty pointer.
    virtual std::shared_ptr<AttributeBuffer> getAttributeBuffer(const std::string& name) const = 0;
};

/// Meshes are identified by pointer: two handles to one mesh are the same mesh.
using MeshPtr = std::shared_ptr<Mesh>;

} // namespace kel::mesh
