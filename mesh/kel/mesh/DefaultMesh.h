#pragma once

#include <kel/mesh/Mesh.h>
#include <kel/mesh/detail/BufferData.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kel::mesh {

/// A mesh that callers fill from vectors. The vectors are moved in; no number is copied.
///
///     auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
///     mesh->addAttribute("position", 3, std::vector<float>{0, 0, 0, 1, 0, 0, 0, 1, 0});
///     mesh->setIndices(std::vector<std::uint16_t>{0, 1, 2});
class KEL_MESH_EXPORT DefaultMesh : public Mesh {
public:
    explicit DefaultMesh(PrimitiveType type = TRIANGLES);
    ~DefaultMesh() override;

    PrimitiveType getPrimitiveType() const override;
    /// Counted from the indices, or, without an index buffer, from the elements of "position".
    std::size_t getNumPrimitives() const override;
    std::shared_ptr<IndexBuffer> getIndexBuffer() const override;
    std::size_t getNumAttributeBuffers() const override;
    /// throws  std::out_of_range past the last buffer
    std::shared_ptr<AttributeBuffer> getAttributeBuffer(std::size_t index) const override;
    std::shared_ptr<AttributeBuffer> getAttributeBuffer(const std::string& name) const override;

    void setPrimitiveType(PrimitiveType type);
    void setIndexBuffer(std::shared_ptr<IndexBuffer> indices);
    void setIndices(std::vector<std::uint8_t> indices);
    void setIndices(std::vector<std::uint16_t> indices);
    void setIndices(std::vector<std::uint32_t> indices);

    /// Adds a buffer, or replaces in place the one with the same attribute name.
    void addAttribute(std::shared_ptr<AttributeBuffer> buffer);

    /// Adds `values`, `componentCountPerElement` numbers per vertex, packed.
    ///
    /// throws  std::invalid_argument when the count is 0 or does not divide the number of values
    void addAttribute(std::string name, std::size_t componentCountPerElement, std::vector<float> values);
    void addAttribute(std::string name, std::size_t componentCountPerElement,
                      std::vector<std::int8_t> values);
    void addAttribute(std::string name, std::size_t componentCountPerElement,
                      std::vector<std::uint8_t> values);
    void addAttribute(std::string name, std::size_t componentCountPerElement,
                      std::vector<std::int16_t> values);
    void addAttribute(std::string name, std::size_t componentCountPerElement,
                      std::vector<std::uint16_t> values);
    void addAttribute(std::string name, std::size_t componentCountPerElement,
                      std::vector<std::int32_t> values);
    void addAttribute(std::string name, std::size_t componentCountPerElement,
                      std::vector<std::uint32_t> values);

private:
    PrimitiveType primitiveType;
    std::shared_ptr<IndexBuffer> indexBuffer;
    std::vector<std::shared_ptr<AttributeBuffer>> attributes;
};

} // namespace kel::mesh
