#include "PolygonCutter.h"

#include "Triangulation.h"

#include <algorithm>

namespace kel::importer::detail {

void PolygonCutter::add(const std::uint32_t* places, const std::uint32_t* names, std::size_t corners,
                        PrimitiveLists& lists) {
    const auto append = [&](std::vector<std::uint32_t>& list) {
        list.insert(list.end(), names, names + corners);
    };
    if (corners == 3) return append(lists.triangles);
    if (corners == 2) return append(lists.lines);
    if (corners == 1) return append(lists.points);
    points.clear();
    for (std::size_t c = 0; c < corners; ++c)
        points.push_back(position[places[c]]);
    // No part of a polygon with a broken corner is worth keeping.
    if (onBadGeometry == BadGeometry::DROP && !std::all_of(points.begin(), points.end(), isFinite)) {
        ++broken;
        return;
    }
    triangles.clear();
    if (corners == 0 || !triangulate(points, triangles)) {
        ++notTriangulated;
        return;
    }
    for (const std::uint32_t corner : triangles)
        lists.triangles.push_back(names[corner]);
}

void PolygonCutter::report(std::vector<Dropped>& dropped) const {
    if (broken > 0) dropped.push_back({NOT_FINITE_PRIMITIVES, broken, ""});
    if (notTriangulated > 0) dropped.push_back({"faces that could not be triangulated", notTriangulated, ""});
}

} // namespace kel::importer::detail
