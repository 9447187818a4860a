#pragma once

#include "../model/ListedModel.h"

#include <glm/vec3.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kel::importer::detail {

/// Sorts faces of any number of corners into triangles, lines and points.
class PolygonCutter {
public:
    /// positions  of all vertices; outlives the cutter
    PolygonCutter(const ModelAttribute& positions, BadGeometry onBadGeometry)
        : position(positions), onBadGeometry(onBadGeometry) {}

    /// places  among the positions, of each corner
    /// names   of each corner, as the lists get them
    void add(const std::uint32_t* places, const std::uint32_t* names, std::size_t corners,
             PrimitiveLists& lists);

    /// Adds what was left out so far.
    void report(std::vector<Dropped>& dropped) const;

private:
    Positions position;
    BadGeometry onBadGeometry;
    std::size_t broken = 0; ///< polygons with positions that are not finite
    std::size_t notTriangulated = 0;
    std::vector<glm::dvec3> points;
    std::vector<std::uint32_t> triangles; // of `points`
};

} // namespace kel::importer::detail
