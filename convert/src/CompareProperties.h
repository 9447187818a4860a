#pragma once

#include <kel/convert/Compare.h>

namespace kel::convert {

/// Compares what two meshes have beside their geometry: which attributes, the material, metadata. Counts go
/// into the report as well as differences.
///
/// mesh  how differences call it
void compareProperties(const ComparableMesh& a, const ComparableMesh& b, const std::string& mesh,
                       CompareReport& report);

/// Compares JSON texts by their keys, without those that writers and preparation put there.
///
/// mesh      whose they are; empty for the file as a whole
/// sameNode  the entry "node" was found to mean the same
void compareMetadata(const std::map<std::string, std::string>& a, const std::map<std::string, std::string>& b,
                     const std::string& mesh, CompareReport& report, bool sameNode = false);

} // namespace kel::convert
