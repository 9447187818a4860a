#include <kel/mesh/AttributeNames.h>
#include <kel/src/SrcJson.h>
#include <kel/src/format/FileLayout.h>
#include <kel/src/format/MetadataKeys.h>
#include <kel/src/reader/Validation_p.h>
#include <kel/src/text/JsonPointer.h>

#include <cstring>
#include <limits>

namespace kel::src::detail {

namespace {

using text::jsonPointer;

/// What the indices of one view are, whichever mesh uses them.
struct IndexFacts {
    bool known = false;
    std::uint64_t vertices = 0; ///< that they need, restart indices aside
    std::uint64_t restarts = 0;
    std::uint64_t firstRestart = 0;
};

struct MeshChecks {
    Validation& validation;
    Gathered& attributeCounts;
    const SrcFile& file = validation.file;
    const HeaderTables& tables = validation.tables;
    std::vector<IndexFacts> indexFacts = std::vector<IndexFacts>(tables.indexViews.size());

    void mesh(const SrcMesh& mesh) {
        const std::string path = jsonPointer({format::section::MESHES, mesh.id});
        MeshPositions positions = positionsOf(mesh);
        if (!positions.attribute) {
            validation.report(SrcCode::MISSING_POSITION, path, {});
        } else if (positions.usable) {
            otherAttributes(mesh, positions);
            if (positions.view.components == 3) positions.values = validation.decode(positions.view);
            bounds(mesh, path, positions);
        }
        normals(mesh, path);
        placement(mesh, path);

        const bool indicesKnown =
            mesh.indexView == SRC_NONE || validation.isUsable(tables.indexViews[mesh.indexView]);
        if (!positions.usable || !indicesKnown) return;
        const bool indicesGood = mesh.indexView == SRC_NONE || indices(mesh, path, positions.view.count);
        validatePrimitives(validation, mesh, path, positions, indicesGood);
    }

    MeshPositions positionsOf(const SrcMesh& mesh) {
        MeshPositions positions;
        for (const SrcAttribute& attribute : file.attributes(mesh)) {
            const SrcAttributeView& view = tables.attributeViews[attribute.view];
            const bool combined = isCombinedPositionNormal(attribute, view);
            if (attribute.name != kel::mesh::DEFAULT_POSITIONS_NAME && !combined) continue;
            positions.attribute = &attribute;
            positions.view = combined ? positionPart(view) : view;
            positions.usable = validation.isUsable(view);
            if (!combined) break;
        }
        return positions;
    }

    void otherAttributes(const SrcMesh& mesh, const MeshPositions& positions) {
        for (const SrcAttribute& attribute : file.attributes(mesh)) {
            const SrcAttributeView& view = tables.attributeViews[attribute.view];
            if (validation.isUsable(view) && view.count != positions.view.count)
                attributeCounts.add([&] {
                    return jsonPointer(
                        {format::section::MESHES, mesh.id, format::key::ATTRIBUTES, attribute.name});
                });
        }
    }

    void bounds(const SrcMesh& mesh, const std::string& path, const MeshPositions& positions) {
        if (!mesh.hasBounds) {
            if (positions.view.components == 3 && !validation.sink.has({SrcCode::BOUNDS_INCOMPLETE}))
                validation.report(SrcCode::MISSING_BOUNDS, path, {});
            return;
        }
        for (const double side : mesh.boundsSize) {
            if (side >= 0.0) continue;
            validation.report(SrcCode::BOUNDS_INVERTED, path + "/bboxSize", "found " + std::to_string(side));
            return;
        }
        const std::array<double, 4> steps = stepsOf(positions.view);
        std::uint64_t outside = 0, firstOutside = 0;
        double farthest = 0;
        for (std::size_t i = 0; i < positions.values.size(); ++i) {
            const std::size_t axis = i % 3;
            const double value = positions.values[i];
            if (!std::isfinite(value)) continue;
            // Bounds are computed in single precision; a decoded value lies up to a step below its original.
            constexpr double ROUNDING = 4.0 * std::numeric_limits<float>::epsilon();
            const double center = mesh.boundsCenter[axis], half = mesh.boundsSize[axis] * 0.5;
            const double slack = steps[axis] + ROUNDING * (std::fabs(center) + half);
            const double beyond = std::fabs(value - center) - half;
            if (beyond <= slack) continue;
            if (outside++ == 0) firstOutside = i / 3;
            farthest = std::max(farthest, beyond);
        }
        if (outside > 0)
            validation.report(SrcCode::BOUNDS_TOO_SMALL, path,
                              "first at vertex " + std::to_string(firstOutside) + ", by up to " +
                                  std::to_string(farthest),
                              outside);
    }

    void normals(const SrcMesh& mesh, const std::string& path) {
        for (const SrcAttribute& attribute : ownAttributes(file, mesh)) {
            const SrcAttributeView& view = tables.attributeViews[attribute.view];
            if (attribute.name != kel::mesh::DEFAULT_NORMALS_NAME || view.components != 3 ||
                !validation.isUsable(view))
                continue;
            const std::vector<float> values = validation.decode(view);
            std::array<double, 3> scale{1, 1, 1}, offset{};
            for (const SrcFit& fit : fitOf(mesh)) {
                if (fit.attribute != attribute.name || fit.scale.size() != 3) continue;
                std::copy(fit.scale.begin(), fit.scale.end(), scale.begin());
                std::copy(fit.offset.begin(), fit.offset.end(), offset.begin());
            }
            const std::array<double, 4> steps = stepsOf(view);
            const double slack =
                0.1 + std::hypot(steps[0] * scale[0], steps[1] * scale[1], steps[2] * scale[2]);
            std::uint64_t far = 0, firstFar = 0;
            double worst = 1.0;
            for (std::size_t i = 0; i + 2 < values.size(); i += 3) {
                const double length =
                    std::hypot(values[i] * scale[0] + offset[0], values[i + 1] * scale[1] + offset[1],
                               values[i + 2] * scale[2] + offset[2]);
                if (!std::isfinite(length) || std::fabs(length - 1.0) <= slack) continue;
                if (far++ == 0) firstFar = i / 3;
                if (std::fabs(length - 1.0) > std::fabs(worst - 1.0)) worst = length;
            }
            if (far > 0)
                validation.report(SrcCode::NORMAL_LENGTH, path + "/attributes/normal",
                                  "first at vertex " + std::to_string(firstFar) + ", worst length " +
                                      std::to_string(worst),
                                  far);
        }
    }

    void placement(const SrcMesh& mesh, const std::string& path) {
        for (const SrcMember& member : jsonMembers(mesh.metadata)) {
            if (member.key == format::metadata::ORIGIN && !format::readOrigin(member.json))
                validation.report(SrcCode::ORIGIN_MALFORMED, path + "/meta/origin", {});
            if (member.key == format::metadata::BOUNDS && !format::readBounds(member.json))
                validation.report(SrcCode::BOUNDS_MALFORMED, path + "/meta/bounds", {});
            if (member.key != format::metadata::FIT) continue;
            if (member.json.empty() || member.json[0] != '{' ||
                fitOf(mesh).size() != jsonMembers(member.json).size())
                validation.report(SrcCode::FIT_MALFORMED, path + "/meta/fit", {});
        }
    }

    /// returns  false when an index names no vertex, or restarts a strip
    bool indices(const SrcMesh& mesh, const std::string& path, std::uint64_t vertices) {
        const SrcIndexView& view = tables.indexViews[mesh.indexView];
        const IndexFacts& facts = factsOf(mesh.indexView);
        if (facts.restarts > 0)
            validation.report(SrcCode::INDEX_IS_RESTART, path + "/indices",
                              "index " + std::to_string(restartOf(view)) + ", first at position " +
                                  std::to_string(facts.firstRestart),
                              facts.restarts);
        if (facts.vertices <= vertices) return facts.restarts == 0;
        std::uint64_t outside = 0, first = 0;
        std::uint32_t firstIndex = 0;
        forEachIndex(view, [&](std::uint32_t index, std::uint64_t at) {
            if (index >= vertices && index != restartOf(view) && outside++ == 0) {
                first = at;
                firstIndex = index;
            }
        });
        validation.report(SrcCode::INDEX_OUT_OF_RANGE, path + "/indices",
                          "index " + std::to_string(firstIndex) + " of " + std::to_string(vertices) +
                              " vertices, first at position " + std::to_string(first),
                          outside);
        return false;
    }

    const IndexFacts& factsOf(std::uint32_t position) {
        IndexFacts& facts = indexFacts[position];
        if (facts.known) return facts;
        facts.known = true;
        const SrcIndexView& view = tables.indexViews[position];
        const std::uint32_t restart = restartOf(view);
        forEachIndex(view, [&](std::uint32_t index, std::uint64_t at) {
            if (index != restart) {
                facts.vertices = std::max(facts.vertices, std::uint64_t(index) + 1);
            } else if (facts.restarts++ == 0) {
                facts.firstRestart = at;
            }
        });
        return facts;
    }

    static std::uint32_t restartOf(const SrcIndexView& view) {
        return 0xffffffffu >> (32 - 8 * kel::mesh::getComponentSizeInBytes(view.componentType));
    }

    template<typename Visit>
    void forEachIndex(const SrcIndexView& view, Visit&& visit) {
        const std::size_t size = kel::mesh::getComponentSizeInBytes(view.componentType);
        validation.work(view, view.count * size);
        forEachRun(file, view, [&](const unsigned char* source, std::uint64_t first, std::size_t count) {
            for (std::size_t i = 0; i < count; ++i) {
                std::uint32_t index = 0;
                std::memcpy(&index, source + i * size, size);
                visit(index, first + i);
            }
        });
    }
};

} // namespace

void validateMeshes(Validation& validation, Gathered& attributeCounts) {
    MeshChecks checks{validation, attributeCounts};
    for (std::size_t m = 0; m < checks.tables.meshes.size(); ++m)
        if (!checks.tables.badMeshes.contains(m)) checks.mesh(checks.tables.meshes[m]);
}

} // namespace kel::src::detail
