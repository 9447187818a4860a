#pragma once

#include <kel/mesh/Buffer.h>

namespace kel::mesh {

/// The index list of a mesh.
class KEL_MESH_EXPORT IndexBuffer : public Buffer {
public:
    /// The vertex index stored at `position`, 0 to getElementCount() - 1.
    virtual std::size_t getIndex(std::size_t position) const = 0;
};

} // namespace kel::mesh
