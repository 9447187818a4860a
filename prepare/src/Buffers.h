#pragma once

// What the functions of this room share: reading any implementation of the input model, making new meshes.

#include <kel/mesh/Mesh.h>
#include <kel/src/SrcWriterInput.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

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

/// A packed attribute that takes the bytes over.
AttributePtr makeAttribute(kel::mesh::ComponentType type, std::size_t components, Bytes bytes,
                           std::string name);

/// A packed index buffer that takes the indices over.
std::shared_ptr<kel::mesh::IndexBuffer> makeIndices(std::vector<std::uint8_t> indices);
std::shared_ptr<kel::mesh::IndexBuffer> makeIndices(std::vector<std::uint16_t> indices);
std::shared_ptr<kel::mesh::IndexBuffer> makeIndices(std::vector<std::uint32_t> indices);

/// How many vertices a mesh has: the elements of "position", or of its longest attribute when it has none.
std::size_t vertexCountOf(const kel::mesh::Mesh& mesh, const std::vector<AttributePtr>& attributes);

/// All indices, one after another.
std::vector<std::size_t> indicesOf(const kel::mesh::IndexBuffer& indices);

/// The elements `vertices[0]`, `vertices[1]`, ... of an attribute as a new one of the same type and name. All
/// of them lie inside the buffer.
AttributePtr gatherElements(const kel::mesh::AttributeBuffer& buffer,
                            const std::vector<std::uint32_t>& vertices);

/// The components of a float attribute in one packed array: the buffer's own memory where it is laid out so,
/// else a copy. Valid while the buffer lives and is not changed.
class PackedFloats {
public:
    /// `buffer` holds floats.
    explicit PackedFloats(const kel::mesh::AttributeBuffer& buffer);
    PackedFloats(const PackedFloats&) = delete;
    PackedFloats& operator=(const PackedFloats&) = delete;

    const float* data() const { return values; }
    std::size_t size() const { return valueCount; } ///< components, not elements
    const float* begin() const { return values; }
    const float* end() const { return values + valueCount; }

private:
    std::vector<float> copy;
    const float* values = nullptr;
    std::size_t valueCount = 0;
};

/// For messages: four significant digits, the same in any locale.
std::string numberText(double value);

/// For messages: `Mesh 3 ("bolt")`.
std::string placeOf(const kel::src::SrcWriterInput& input, std::size_t mesh);

/// The metadata's "name" for people: a JSON string's content, another text as it is, else empty.
std::string nameOf(const kel::src::SrcWriterInput& input, const kel::mesh::MeshPtr& mesh);

/// A copy of the map that nobody shares; a new one for an empty pointer.
kel::src::MetaDataPtr ownMetaData(const kel::src::MetaDataPtr& metaData);

/// The input's metadata, every map copied; empty pointers stay.
std::map<kel::mesh::MeshPtr, kel::src::MetaDataPtr> copyMetaData(const kel::src::SrcWriterInput& input);

/// Hands the metadata and the material of `from` to `to` within `input`. Returns the metadata map of `to`,
/// made new when there was none.
kel::src::MetaDataPtr moveMeshEntries(kel::src::SrcWriterInput& input, const kel::mesh::MeshPtr& from,
                                      const kel::mesh::MeshPtr& to);

} // namespace kel::prepare::detail
