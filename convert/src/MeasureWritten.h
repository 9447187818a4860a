#pragma once

#include <kel/convert/Convert.h>
#include <kel/mesh/Mesh.h>
#include <kel/prepare/Target.h>

namespace kel::convert {

/// The counts of a mesh as it goes to the writer, and how many bytes of indices and attributes the writer
/// stores for it. The name and the error are left empty.
WrittenMesh measureWritten(const kel::mesh::Mesh& mesh, kel::prepare::Target target);

} // namespace kel::convert
