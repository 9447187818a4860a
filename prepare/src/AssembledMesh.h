#pragma once

#include <kel/mesh/DefaultIndexBuffer.h>
#include <kel/mesh/Mesh.h>

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// New meshes from finished parts, for every step that makes one.
namespace kel::prepare::detail {

using Bytes = std::vector<unsigned char>;
using AttributePtr = std::shared_ptr<kel::mesh::AttributeBuffer>;

/// A mesh put together from finished parts. Unlike a mesh that counts for itself it hands on the number of
/// primitives it was given, and keeps several attributes of one name apart.
class AssembledMesh final : public kel::mesh::Mesh {
public:
    AssembledMesh(kel::mesh::PrimitiveType type, std::size_t primitives,
                  std::shared_ptr<kel::mesh::IndexBuffer> indices, std::vector<AttributePtr> attributes)
        : type(type), primitives(primitives), indices(std::move(indices)), attributes(std::move(attributes)) {
    }
    ~AssembledMesh() override;

    kel::mesh::PrimitiveType getPrimitiveType() const override { return type; }
    std::size_t getNumPrimitives() const override { return primitives; }
    std::shared_ptr<kel::mesh::IndexBuffer> getIndexBuffer() const override { return indices; }
    std::size_t getNumAttributeBuffers() const override { return attributes.size(); }
    AttributePtr getAttributeBuffer(std::size_t index) const override { return attributes.at(index); }
    AttributePtr getAttributeBuffer(const std::string& name) const override;

private:
    kel::mesh::PrimitiveType type;
    std::size_t primitives;
    std::shared_ptr<kel::mesh::IndexBuffer> indices;
    std::vector<AttributePtr> attributes;
};

/// All attribute buffers of a mesh, empty pointers included.
std::vector<AttributePtr> attributesOf(const kel::mesh::Mesh& mesh);

/// The same primitives with other attributes.
kel::mesh::MeshPtr withAttributes(const kel::mesh::Mesh& mesh, std::vector<AttributePtr> attributes);

/// A packed attribute that takes the bytes over.
AttributePtr makeAttribute(kel::mesh::ComponentType type, std::size_t components, Bytes bytes,
                           std::string name);

/// A packed index buffer that takes the indices over.
template<typename Index>
std::shared_ptr<kel::mesh::IndexBuffer> makeIndices(std::vector<Index> indices) {
    return std::make_shared<kel::mesh::DefaultIndexBuffer<Index>>(std::move(indices));
}

} // namespace kel::prepare::detail
