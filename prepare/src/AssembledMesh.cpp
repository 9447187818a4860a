#include "AssembledMesh.h"

#include <kel/mesh/detail/AttributeBufferDataView.h>

#include <algorithm>

namespace kel::prepare::detail {

AssembledMesh::~AssembledMesh() = default;

AttributePtr AssembledMesh::getAttributeBuffer(const std::string& name) const {
    const auto found = std::find_if(attributes.begin(), attributes.end(), [&](const AttributePtr& buffer) {
        return buffer && buffer->getAttributeName() == name;
    });
    return found == attributes.end() ? nullptr : *found;
}

std::vector<AttributePtr> attributesOf(const kel::mesh::Mesh& mesh) {
    std::vector<AttributePtr> attributes(mesh.getNumAttributeBuffers());
    for (std::size_t i = 0; i < attributes.size(); ++i)
        attributes[i] = mesh.getAttributeBuffer(i);
    return attributes;
}

kel::mesh::MeshPtr withAttributes(const kel::mesh::Mesh& mesh, std::vector<AttributePtr> attributes) {
    return std::make_shared<AssembledMesh>(mesh.getPrimitiveType(), mesh.getNumPrimitives(),
                                           mesh.getIndexBuffer(), std::move(attributes));
}

AttributePtr makeAttribute(kel::mesh::ComponentType type, std::size_t components, Bytes bytes,
                           std::string name) {
    const std::size_t stride = kel::mesh::getComponentSizeInBytes(type) * components;
    return std::make_shared<kel::mesh::detail::AttributeBufferDataView>(
        type, components, stride, 0, std::make_shared<kel::mesh::detail::VectorBufferData>(std::move(bytes)),
        std::move(name));
}

} // namespace kel::prepare::detail
