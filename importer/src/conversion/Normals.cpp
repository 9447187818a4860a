#include "Conversion.h"

#include <glm/geometric.hpp>

namespace kel::importer::detail {

namespace {

constexpr double COSINE_OF_CREASE = 0.5;
constexpr std::uint32_t NONE = std::numeric_limits<std::uint32_t>::max();

/// The triangles around one place that share a normal. A triangle joins the first group whose first triangle
/// it leans towards; groups at one place lean 60 degrees or more from each other, so there are twelve at most
/// and the cost per corner is bounded, however many triangles meet there.
struct Group {
    glm::dvec3 first;
    glm::dvec3 sum;
    std::uint32_t next;
};

} // namespace

CornerNormals makeNormals(const ModelAttribute& positions, const std::vector<std::uint32_t>& corners) {
    CornerNormals result;
    result.ofCorner.resize(corners.size(), NONE);

    std::vector<std::uint32_t> placeOfCorner = corners;
    const std::size_t places = joinPlaces(positions, placeOfCorner);
    std::vector<Group> groups;
    std::vector<std::uint32_t> firstGroup(places, NONE);
    const Positions positionOf(positions);
    const auto at = [&](std::size_t corner) { return positionOf[corners[corner]]; };
    for (std::size_t t = 0; t + 2 < corners.size(); t += 3) {
        const glm::dvec3 a = at(t);
        const glm::dvec3 area = glm::cross(at(t + 1) - a, at(t + 2) - a);
        const double length = glm::length(area);
        if (!(length > 0.0)) continue;
        const glm::dvec3 direction = area / length;
        for (std::size_t c = t; c < t + 3; ++c) {
            std::uint32_t* link = &firstGroup[placeOfCorner[c]];
            while (*link != NONE && glm::dot(groups[*link].first, direction) <= COSINE_OF_CREASE) {
                link = &groups[*link].next;
            }
            if (*link == NONE) {
                *link = static_cast<std::uint32_t>(groups.size());
                result.ofCorner[c] = *link;
                groups.push_back({direction, area, NONE}); // may move what `link` points to
            } else {
                groups[*link].sum += area;
                result.ofCorner[c] = *link;
            }
        }
    }
    for (std::size_t c = 0; c < corners.size(); ++c) {
        if (result.ofCorner[c] != NONE) continue;
        std::uint32_t& group = firstGroup[placeOfCorner[c]];
        if (group == NONE) {
            group = static_cast<std::uint32_t>(groups.size());
            groups.push_back({{0.0, 0.0, 1.0}, {0.0, 0.0, 1.0}, NONE});
            ++result.undefined;
        }
        result.ofCorner[c] = group;
    }

    result.normals.reserve(3 * groups.size());
    for (const Group& group : groups) {
        // Every member lies within 60 degrees of the first, so the sum is never zero.
        const glm::dvec3 normal = group.sum / glm::length(group.sum);
        for (int axis = 0; axis < 3; ++axis)
            result.normals.push_back(static_cast<float>(normal[axis]) + 0.0f);
    }
    return result;
}

} // namespace kel::importer::detail
