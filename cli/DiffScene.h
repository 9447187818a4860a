#pragma once

#include "SrcInput.h"

#include <kel/src/SrcReader.h>
#include <kel/src/SrcWriterInput.h>

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace kelsrc::cli {

/// A mesh made comparable: single primitives, positions and normals as floats.
struct DiffMesh {
    std::string name;
    unsigned cornersPerPrimitive = 3; ///< 1 points, 2 lines, 3 triangles
    std::vector<std::array<float, 3>> positions;
    std::vector<std::array<float, 3>> normals; ///< one per position, or none
    std::vector<std::uint32_t> corners;        ///< all below the number of positions
    bool hasMaterial = false;
    std::map<std::string, std::vector<double>> material; ///< by parameter
    std::map<std::string, std::string> metadata;         ///< JSON texts
    std::set<std::string> attributes;                    ///< all names

    std::size_t primitives() const { return corners.size() / cornersPerPrimitive; }
    /// Of the vertices that are drawn.
    Bounds bounds() const;
};

struct DiffScene {
    std::vector<DiffMesh> meshes;
};

/// applyFit  undo what was fitted into a preset's box
/// throws    Failure when an index is not below the number of vertices; SrcError
DiffScene sceneOf(const kel::src::SrcFile& file, const std::string& name, bool applyFit = true);
/// Expects float attributes, as the importer gives.
DiffScene sceneOf(const kel::src::SrcWriterInput& input);

/// An SRC file, or any model that the importer reads.
///
/// throws  Failure
DiffScene openScene(const std::string& path);

} // namespace kelsrc::cli
