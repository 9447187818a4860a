#pragma once

#include <kel/prepare/MeasureErrors.h>

#include "AssembledMesh.h"

#include <cstddef>
#include <limits>

namespace kel::prepare::detail {

/// The position error of what cannot be quantized.
constexpr double UNBOUNDED = std::numeric_limits<double>::infinity();

/// The normals that position-normal packs; empty where it codes the mesh as position does.
AttributePtr packedNormalsOf(const kel::mesh::Mesh& mesh);

/// The largest angle in degrees of the first `count` normals.
double normalErrorOf(const kel::mesh::AttributeBuffer& normals, std::size_t count);

/// The errors of a mesh, which may be empty, in a mode of the public writer.
ReachedError errorOf(const kel::mesh::MeshPtr& mesh, Target mode);

} // namespace kel::prepare::detail
