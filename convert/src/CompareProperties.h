#pragma once

#include <kel/convert/Compare.h>

namespace kel::convert {

/// Compares what two meshes have beside their geometry: which attributes, the material, metadata. Counts go
/// into the report as well as differences.
void compareProperties(const ComparableMesh& a, const ComparableMesh& b, CompareReport& report);

} // namespace kel::convert
