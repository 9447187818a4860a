#pragma once

#include <kel/convert/Compare.h>

namespace kel::convert {

/// What a mesh's primitives join, after vertices at equal positions are one. Takes n log n time.
Topology topologyOf(const ComparableMesh& mesh);

} // namespace kel::convert
