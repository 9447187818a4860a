#include <kel/convert/Compare.h>

#include "CompareProperties.h"
#include "MatchPrimitives.h"
#include "Pairing.h"
#include "SurfaceDistance.h"
#include "Topology.h"

#include <kel/convert/Texts.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace kel::convert {

namespace {

const char* primitiveName(std::size_t corners, std::size_t count) {
    static constexpr const char* NAMES[3][2] = {
        {"point", "points"}, {"line", "lines"}, {"triangle", "triangles"}};
    return NAMES[corners - 1][count == 1 ? 0 : 1];
}

/// One mesh, or several joined; a single one is not copied.
class OneMesh {
public:
    explicit OneMesh(const std::vector<const WholeMesh*>& meshes) {
        std::vector<const ComparableMesh*> parts;
        for (const WholeMesh* mesh : meshes)
            parts.insert(parts.end(), mesh->parts.begin(), mesh->parts.end());
        if (parts.size() > 1) {
            all = joined(parts);
        } else {
            single = parts.front();
        }
    }
    const ComparableMesh& get() const { return single ? *single : all; }

private:
    const ComparableMesh* single = nullptr;
    ComparableMesh all;
};

/// Of the diagonal: floats about another origin may move positions by as much without anyone's saying so. Models
/// that would lose more get an origin nearby.
constexpr double LARGEST_ROUNDING = 1e-6;

class Comparison {
public:
    explicit Comparison(const CompareLimits& limits) : limits(limits) {}

    CompareReport run(const ComparableScene& a, const ComparableScene& b) {
        const std::vector<WholeMesh> wholeA = wholeMeshes(a), wholeB = wholeMeshes(b);
        sideOf(report.a, a, wholeA);
        sideOf(report.b, b, wholeB);
        const Pairing pairing = pairMeshes(wholeA, wholeB);
        for (const MeshPair& pair : pairing.pairs)
            comparePair(pair);
        for (const WholeMesh* mesh : pairing.onlyA)
            alone(*mesh, "only in A", report.missing, report.a.topology);
        for (const WholeMesh* mesh : pairing.onlyB)
            alone(*mesh, "only in B", report.added, report.b.topology);
        if (a.metadata && b.metadata) compareMetadata(*a.metadata, *b.metadata, "", report);
        if (a.textures && b.textures && a.textures != b.textures) {
            Difference& difference = add(DifferenceKind::TEXTURES, "");
            difference.detail =
                std::to_string(*a.textures) + " in A, " + std::to_string(*b.textures) + " in B";
            difference.amount = std::abs(static_cast<double>(*a.textures) - static_cast<double>(*b.textures));
        }
        const auto isIgnored = [&](const Difference& difference) {
            return std::find(limits.ignored.begin(), limits.ignored.end(), difference.kind) !=
                   limits.ignored.end();
        };
        report.differences.erase(
            std::remove_if(report.differences.begin(), report.differences.end(), isIgnored),
            report.differences.end());
        summarize();
        return std::move(report);
    }

private:
    static void sideOf(ComparedSide& side, const ComparableScene& scene,
                       const std::vector<WholeMesh>& whole) {
        for (const ComparableMesh& mesh : scene.meshes)
            side.counts += mesh.counts();
        for (const WholeMesh& mesh : whole)
            side.bounds.add(mesh.box);
    }

    Difference& add(DifferenceKind kind, const std::string& mesh) {
        Difference& difference = report.differences.emplace_back();
        difference.kind = kind;
        difference.mesh = mesh;
        difference.count = 1;
        return difference;
    }

    void addTally(DifferenceKind kind, const std::string& mesh, const std::string& what, const Tally& tally) {
        if (tally.over == 0) return;
        Difference& difference = add(kind, mesh);
        difference.what = what;
        difference.amount = tally.largest;
        difference.limit = tally.limit;
        difference.count = tally.over;
        difference.place = tally.place;
    }

    void alone(const WholeMesh& mesh, const char* side, std::vector<std::string>& names, Topology& topology) {
        names.push_back(mesh.first().name);
        report.isExact = false;
        for (const ComparableMesh* part : mesh.parts)
            topology += topologyOf(*part);
        Difference& difference = add(DifferenceKind::MESHES, mesh.label());
        difference.detail = std::string(side) + ", with " + std::to_string(mesh.primitives) + ' ' +
                            primitiveName(mesh.first().cornersPerPrimitive, mesh.primitives);
        difference.amount = static_cast<double>(mesh.primitives);
        if (!mesh.box.isEmpty()) difference.place = mesh.box.min;
    }

    void comparePair(const MeshPair& pair) {
        const OneMesh a(pair.a), b(pair.b);
        const ComparableMesh& first = pair.a.front()->first();
        const std::string& name = first.name;
        ComparedPair compared;
        compared.name = name;
        compared.meshesA = pair.a.size();
        compared.meshesB = pair.b.size();
        label = pair.a.front()->label();
        compareGeometry(a.get(), b.get(), compared);
        report.pairs.push_back(std::move(compared));

        if (pair.a.size() != pair.b.size()) {
            Difference& difference = add(DifferenceKind::MESHES, label);
            difference.detail = counted(pair.a.size(), "mesh", "meshes") + " in A, " +
                                std::to_string(pair.b.size()) + " in B";
            difference.amount =
                std::abs(static_cast<double>(pair.a.size()) - static_cast<double>(pair.b.size()));
        }
        const std::string& other = pair.b.front()->first().name;
        if (name != other) {
            Difference& difference = add(DifferenceKind::NAMES, label);
            difference.what = other;
            difference.detail = other.empty() ? "has no name in B" : "is called \"" + other + "\" in B";
        }
        // One mesh against several of its name: each of them has its properties.
        if (pair.a.size() != 1 && pair.b.size() != 1) return;
        const std::size_t count = std::max(pair.a.size(), pair.b.size());
        for (std::size_t i = 0; i < count; ++i)
            compareParts(*pair.a[std::min(i, pair.a.size() - 1)], *pair.b[std::min(i, pair.b.size() - 1)]);
    }

    /// Parts have the properties of the whole, all of them.
    void compareParts(const WholeMesh& a, const WholeMesh& b) {
        const std::size_t count = std::max(a.parts.size(), b.parts.size());
        for (std::size_t i = 0; i < count; ++i)
            compareProperties(*a.parts[std::min(i, a.parts.size() - 1)],
                              *b.parts[std::min(i, b.parts.size() - 1)], label, report);
    }

    void compareGeometry(const ComparableMesh& a, const ComparableMesh& b, ComparedPair& pair) {
        const double diagonal = std::max(report.a.bounds.diagonal(), report.b.bounds.diagonal());
        CornerComparison corners(a, b, limits, LARGEST_ROUNDING * diagonal);
        PrimitiveMatches matches = matchPrimitives(corners);
        const LostPrimitives lost = measureUnmatched(corners, matches);
        const Topology topologyA = topologyOf(a);
        const Topology topologyB = topologyOf(b);
        report.a.topology += topologyA;
        report.b.topology += topologyB;

        report.isExact = report.isExact && corners.distances.largest == 0 && matches.flipped == 0 &&
                         lost.onlyA == 0 && lost.onlyB == 0;
        pair.by = matches.by;
        pair.maxDistance = corners.distances.largest;
        pair.samples = corners.distances.samples;
        if (pair.samples != 0)
            pair.rmsDistance = std::sqrt(corners.distances.sum / static_cast<double>(pair.samples));
        addTally(DifferenceKind::POSITIONS, label, "", corners.distances);
        if (matches.flipped != 0) {
            Difference& difference = add(DifferenceKind::ORIENTATION, label);
            difference.amount = static_cast<double>(matches.flipped);
            difference.count = matches.flipped;
            difference.detail = std::to_string(matches.flipped) + " of " +
                                counted(a.primitives(), "triangle", "triangles") + " facing the other way";
            difference.place = matches.firstFlipped;
        }
        if (lost.onlyA != 0 || lost.onlyB != 0) {
            Difference& difference = add(DifferenceKind::TOPOLOGY, label);
            difference.count = lost.onlyA + lost.onlyB;
            difference.amount = static_cast<double>(difference.count);
            difference.place = lost.first;
            difference.detail = topologyText(a.cornersPerPrimitive, lost, topologyA, topologyB);
        }
        for (const SharedAttribute& attribute : corners.attributes) {
            addTally(attribute.kind, label, attribute.name, attribute.tally);
            if (attribute.lengths.over != 0 && attribute.tally.over == 0) {
                addTally(attribute.kind, label, attribute.name, attribute.lengths);
                report.differences.back().detail = "lengths off by " +
                                                   shortNumber(attribute.lengths.largest) + ", at " +
                                                   counted(attribute.lengths.over, "place", "places");
            }
            const double largest = attribute.tally.largest;
            report.isExact = report.isExact && largest == 0 && attribute.lengths.largest == 0;
            const auto raise = [&](double& so_far) { so_far = std::max(so_far, largest); };
            if (attribute.kind == DifferenceKind::NORMALS) raise(pair.maxAngle);
            if (attribute.kind == DifferenceKind::COLORS) raise(pair.maxColor);
            if (attribute.kind == DifferenceKind::TEXCOORDS) raise(pair.maxTexcoord);
        }
    }

    static std::string topologyText(std::size_t corners, const LostPrimitives& lost, const Topology& a,
                                    const Topology& b) {
        std::string text = std::to_string(lost.onlyA) + ' ' + primitiveName(corners, lost.onlyA) +
                           " only in A, " + std::to_string(lost.onlyB) + " only in B";
        const auto addChange = [&](const char* what, std::size_t before, std::size_t after) {
            if (before != after)
                text +=
                    std::string("; ") + what + ' ' + std::to_string(before) + " and " + std::to_string(after);
        };
        addChange("boundary edges", a.boundaryEdges, b.boundaryEdges);
        addChange("components", a.components, b.components);
        return text;
    }

    void summarize() {
        double sum = 0;
        std::size_t samples = 0;
        for (std::size_t i = 0; i < report.pairs.size(); ++i) {
            const ComparedPair& pair = report.pairs[i];
            if (pair.maxDistance > report.maxDistance) {
                report.maxDistance = pair.maxDistance;
                report.worst = i;
            }
            report.maxAngle = std::max(report.maxAngle, pair.maxAngle);
            report.maxColor = std::max(report.maxColor, pair.maxColor);
            report.maxTexcoord = std::max(report.maxTexcoord, pair.maxTexcoord);
            sum += pair.rmsDistance * pair.rmsDistance * static_cast<double>(pair.samples);
            samples += pair.samples;
        }
        report.rmsDistance = samples == 0 ? 0.0 : std::sqrt(sum / static_cast<double>(samples));
    }

    const CompareLimits& limits;
    CompareReport report;
    std::string label; ///< of the pair at hand
};

} // namespace

CompareReport compare(const ComparableScene& a, const ComparableScene& b, const CompareLimits& limits) {
    return Comparison(limits).run(a, b);
}

} // namespace kel::convert
