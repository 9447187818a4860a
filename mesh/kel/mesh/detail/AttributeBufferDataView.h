#pragma once

#include <kel/mesh/detail/DefaultAttributeBuffer.h>

#include <memory>
#include <string>
#include <utility>

namespace kel::mesh::detail {

/// A view on a region of shared bytes, so that several attributes can be interleaved in one block.
class KEL_MESH_EXPORT AttributeBufferDataView : public DefaultAttributeBuffer {
public:
    AttributeBufferDataView(ComponentType type, std::size_t componentCountPerElement,
                            std::size_t strideInBytes, std::size_t offsetInBytes,
                            std::shared_ptr<BufferData> data, std::string name)
        : DefaultAttributeBuffer(type, componentCountPerElement, strideInBytes, offsetInBytes,
                                 std::move(data), std::move(name)) {}

private:
    // Part of the object's layout; nothing sets them.
    std::shared_ptr<void> reserved0;
    std::shared_ptr<void> reserved1;
};

} // namespace kel::mesh::detail
