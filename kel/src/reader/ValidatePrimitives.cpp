#include <kel/mesh/ForEachPrimitive.h>
#include <kel/src/SrcJson.h>
#include <kel/src/format/MetadataKeys.h>
#include <kel/src/reader/Validation_p.h>
#include <utils/TriangleArea.h>

#include <glm/geometric.hpp>
#include <glm/vec3.hpp>

namespace kel::src::detail {

namespace {

/// What the primitives of a mesh add up to.
struct PrimitiveSums {
    std::uint64_t primitives = 0;
    std::uint64_t degenerate = 0;
    float floatArea = 0.0f; ///< added up as the writers do, with the same losses
    double area = 0.0;
    double perimeters = 0.0;
};

double length(const glm::dvec3& v) {
    return std::hypot(v.x, v.y, v.z);
}

void addTriangle(const glm::vec3& a, const glm::vec3& b, const glm::vec3& c, PrimitiveSums& sums) {
    const glm::dvec3 ab = glm::dvec3(b) - glm::dvec3(a), ac = glm::dvec3(c) - glm::dvec3(a),
                     bc = glm::dvec3(c) - glm::dvec3(b);
    const double area = 0.5 * length(glm::cross(ab, ac));
    if (area == 0.0) ++sums.degenerate;
    if (!std::isfinite(area)) return;
    const float asWritten = utils::computeTriangleArea(a, b, c);
    if (std::isnormal(asWritten)) sums.floatArea += asWritten;
    sums.area += area;
    sums.perimeters += length(ab) + length(bc) + length(ac);
}

struct PrimitiveChecks {
    Validation& validation;
    const SrcMesh& mesh;
    const std::string& path;
    const MeshPositions& positions;
    std::uint64_t corners = mesh.indexView == SRC_NONE ? positions.view.count
                                                       : validation.tables.indexViews[mesh.indexView].count;
    PrimitiveSums sums = {};

    void run(bool indicesGood) {
        sums.primitives = kel::mesh::primitiveCount(mesh.primitive, corners);
        if (kel::mesh::usedCorners(mesh.primitive, corners) != corners)
            validation.report(SrcCode::INCOMPLETE_PRIMITIVE, path + "/indices",
                              std::to_string(corners) + " indices");
        const bool measured = indicesGood && positions.view.components == 3;
        if (measured) measure();
        if (sums.degenerate > 0)
            validation.report(SrcCode::DEGENERATE_PRIMITIVES, path,
                              std::to_string(sums.degenerate) + " of " + std::to_string(sums.primitives),
                              sums.degenerate);
        for (const SrcMember& member : jsonMembers(mesh.metadata))
            checkStatistic(member, measured);
    }

    void measure() {
        std::vector<std::uint32_t> indices;
        if (mesh.indexView != SRC_NONE)
            indices = validation.decode(validation.tables.indexViews[mesh.indexView]);
        if (mesh.primitive == kel::mesh::POINTS) return;
        const auto point = [&](std::size_t corner) {
            const float* p = positions.values.data() + 3 * (indices.empty() ? corner : indices[corner]);
            return glm::vec3(p[0], p[1], p[2]);
        };
        const auto add = [&](const std::array<std::size_t, 3>& at, std::size_t count) {
            if (count == 2) {
                sums.degenerate += point(at[0]) == point(at[1]);
                return;
            }
            // In the order of the list, as the writers add up, also where a strip's facing swaps two.
            const auto [first, second] = std::minmax(at[0], at[1]);
            addTriangle(point(first), point(second), point(at[2]), sums);
        };
        kel::mesh::forEachPrimitive(mesh.primitive, static_cast<std::size_t>(corners), add);
    }

    void differs(const SrcMember& member, const std::string& found) {
        validation.report(SrcCode::STATISTICS_DIFFER, path + "/meta/" + member.key,
                          "says " + std::string(member.json) + ", the geometry " + found);
    }

    void checkStatistic(const SrcMember& member, bool measured) {
        std::vector<double> numbers;
        if (!jsonNumbers(member.json, numbers) || numbers.size() != 1 || member.json[0] == '[') return;
        const double stated = numbers[0];
        if (member.key == format::metadata::SURFACE_AREA && measured) checkArea(member, stated);
        const auto mode = mesh.primitive;
        const struct {
            std::string_view key;
            bool rightKind;
            std::uint64_t found;
        } COUNTS[] = {
            {format::metadata::NUM_TRIANGLES,
             mode == kel::mesh::TRIANGLES || mode == kel::mesh::TRIANGLE_STRIP, sums.primitives},
            {format::metadata::NUM_LINES, mode == kel::mesh::LINES, sums.primitives},
            {format::metadata::NUM_POINTS, mode == kel::mesh::POINTS, sums.primitives},
            {format::metadata::NUM_VERTICES, true, positions.view.count},
        };
        for (const auto& [key, rightKind, found] : COUNTS) {
            if (member.key != key) continue;
            if (!rightKind) differs(member, "is drawn as mode " + std::to_string(mode));
            if (rightKind && stated != static_cast<double>(found))
                differs(member, "has " + std::to_string(found));
        }
    }

    void checkArea(const SrcMember& member, double stated) {
        // Writers measure indexed triangles of three floats only, and print six decimals.
        const bool isMeasured = mesh.indexView != SRC_NONE && mesh.primitive >= kel::mesh::TRIANGLES;
        const double area = isMeasured ? sums.area : 0.0;
        const std::array<double, 4> steps = stepsOf(positions.view);
        const double slack = 1e-6 + 1e-3 * area + sums.perimeters * std::hypot(steps[0], steps[1], steps[2]);
        const bool near = std::fabs(stated - area) <= slack ||
                          (isMeasured && std::fabs(stated - static_cast<double>(sums.floatArea)) <= slack);
        if (!near) differs(member, "has " + std::to_string(area));
    }
};

} // namespace

void validatePrimitives(Validation& validation, const SrcMesh& mesh, const std::string& path,
                        const MeshPositions& positions, bool indicesGood) {
    PrimitiveChecks{validation, mesh, path, positions}.run(indicesGood);
}

} // namespace kel::src::detail
