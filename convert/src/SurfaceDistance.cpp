#include "SurfaceDistance.h"

#include "PointGrid.h"
#include "SurfaceTree.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace kel::convert {

namespace {

/// Beyond this part of the diagonal, places in the lists that are alike may be chance.
constexpr double SAME_ORDER = 1.0 / 50;
/// The surface has to be this much nearer than the corners, then.
constexpr double MUCH_NEARER = 0.1;
constexpr std::size_t SAMPLES_PER_PRIMITIVE = 4, FEWEST_SAMPLES = 64, MOST_SAMPLES = 200000;
/// Points are taken from all over first. Where each takes more effort than this, for lying far from the
/// surface, these are all.
constexpr std::size_t STRIDE = 64, EFFORT_PER_PRIMITIVE = 64, LEAST_EFFORT = 100000;
/// Primitives near a point that are asked for the attributes that fit best.
constexpr std::size_t CANDIDATES = 32;
/// Values between vertices are rounded.
constexpr double ANGLE_NOISE = 0.01, VALUE_NOISE = 1e-5;
/// A primitive whose corners may move by this part of its width keeps no direction.
constexpr double SMALL = 2.0;

double lengthOf(const Point& a, const Point& b) {
    return distanceBetween(a, b);
}

/// Twice the area of a triangle, the length of a line, 0 for a point.
double extentOf(const ComparableMesh& mesh, std::uint32_t primitive) {
    const std::size_t size = mesh.cornersPerPrimitive;
    const auto corner = [&](std::size_t i) { return mesh.positions[mesh.corners[primitive * size + i]]; };
    if (size == 1) return 0.0;
    if (size == 2) return lengthOf(corner(0), corner(1));
    const Point a = corner(0), b = corner(1), c = corner(2);
    Point cross{};
    for (std::size_t i = 0; i < 3; ++i) {
        const std::size_t j = (i + 1) % 3, k = (i + 2) % 3;
        cross[i] = (b[j] - a[j]) * (c[k] - a[k]) - (b[k] - a[k]) * (c[j] - a[j]);
    }
    return std::sqrt(cross[0] * cross[0] + cross[1] * cross[1] + cross[2] * cross[2]);
}

/// Whether two corners are at one place, or too near for the reach.
bool isSmall(const ComparableMesh& mesh, std::uint32_t primitive, double reach) {
    const std::size_t size = mesh.cornersPerPrimitive;
    if (size == 1) return false;
    double longest = 0;
    for (std::size_t i = 0; i < size; ++i) {
        const double side = lengthOf(mesh.positions[mesh.corners[primitive * size + i]],
                                     mesh.positions[mesh.corners[primitive * size + (i + 1) % size]]);
        if (side == 0.0) return true;
        longest = std::max(longest, side);
    }
    const double width = size == 2 ? longest : extentOf(mesh, primitive) / longest;
    return reach > 0 && width <= SMALL * reach;
}

class Measurement {
public:
    Measurement(CornerComparison& corners, PrimitiveMatches& matches) : corners(corners), matches(matches) {}

    LostPrimitives run() {
        if (matches.onlyA.empty() && matches.onlyB.empty()) return lost;
        std::vector<std::uint32_t> lostA, lostB;
        partMoved(lostA, lostB);
        if (!moved.empty() && !hasMovedInOrder()) {
            for (const auto& [primitive, turning] : moved) {
                lostA.push_back(primitive);
                lostB.push_back(primitive);
            }
            moved.clear();
        }
        for (const auto& [primitive, turning] : moved)
            corners.record(primitive, primitive, turning);
        if (lostA.empty() && lostB.empty()) return lost;
        matches.by = ComparedBy::SURFACE;
        lost.onlyA = count(corners.a, lostA);
        lost.onlyB = count(corners.b, lostB);
        measure(lostA, true, corners.distances, true);
        measure(lostB, false, corners.distances, true);
        return lost;
    }

private:
    /// The turning that brings corners nearest.
    Turning nearestTurning(std::uint32_t primitive) const {
        Turning best;
        double least = corners.apart(primitive, primitive, best);
        for (std::uint8_t turn = 1; turn < corners.size; ++turn) {
            const double apart = corners.apart(primitive, primitive, {turn, false});
            if (!(apart < least)) continue;
            least = apart;
            best = {turn, false};
        }
        return best;
    }

    /// For each vertex that `primitives` use, whether the other mesh has one at its place.
    std::vector<bool> haveEqual(const ComparableMesh& mesh, const std::vector<std::uint32_t>& primitives,
                                const ComparableMesh& other) const {
        PointGrid grid(corners.reach, other.positions.size());
        std::vector<bool> isKnown(other.positions.size()), isDone(mesh.positions.size()),
            equal(mesh.positions.size());
        for (const std::uint32_t vertex : other.corners) {
            if (!isKnown[vertex]) grid.add(other.positions[vertex], vertex);
            isKnown[vertex] = true;
        }
        for (const std::uint32_t primitive : primitives) {
            for (std::size_t c = 0; c < corners.size; ++c) {
                const std::uint32_t vertex = mesh.corners[primitive * corners.size + c];
                if (isDone[vertex]) continue;
                isDone[vertex] = true;
                grid.visit(mesh.positions[vertex], [&](std::uint32_t candidate) {
                    equal[vertex] =
                        distanceBetween(mesh.positions[vertex], other.positions[candidate]) <= corners.reach;
                    return equal[vertex] ? PointGrid::STOP : PointGrid::GO_ON;
                });
            }
        }
        return equal;
    }

    /// Parts what has moved from what has gone or come.
    void partMoved(std::vector<std::uint32_t>& lostA, std::vector<std::uint32_t>& lostB) {
        if (matches.onlyA != matches.onlyB || corners.a.primitives() != corners.b.primitives()) {
            lostA = matches.onlyA;
            lostB = matches.onlyB;
            return;
        }
        const std::vector<bool> equalA = haveEqual(corners.a, matches.onlyA, corners.b),
                                equalB = haveEqual(corners.b, matches.onlyB, corners.a);
        for (const std::uint32_t primitive : matches.onlyA) {
            bool isKnownA = true, isKnownB = true;
            for (std::size_t c = 0; c < corners.size; ++c) {
                isKnownA = isKnownA && equalA[corners.cornerOfA(primitive, c)];
                isKnownB = isKnownB && equalB[corners.cornerOfB(primitive, c, {})];
            }
            if (isKnownA || isKnownB) { // it joins other vertices
                lostA.push_back(primitive);
                lostB.push_back(primitive);
            } else {
                moved.emplace_back(primitive, nearestTurning(primitive));
            }
        }
    }

    /// False when the surfaces are much nearer than the corners: then the order is another one.
    bool hasMovedInOrder() {
        double farthest = 0;
        std::vector<std::uint32_t> primitives;
        for (const auto& [primitive, turning] : moved) {
            primitives.push_back(primitive);
            for (std::size_t c = 0; c < corners.size; ++c)
                farthest = std::max(
                    farthest, distanceBetween(corners.a.positions[corners.cornerOfA(primitive, c)],
                                              corners.b.positions[corners.cornerOfB(primitive, c, turning)]));
        }
        const Bounds boxA = corners.a.bounds(), boxB = corners.b.bounds();
        if (!(farthest > SAME_ORDER * std::max(boxA.diagonal(), boxB.diagonal()))) return true;
        // Surfaces are at least as far apart as their boxes.
        const double much = MUCH_NEARER * farthest;
        for (std::size_t c = 0; c < 3; ++c) {
            if (!(std::abs(boxA.min[c] - boxB.min[c]) < much && std::abs(boxA.max[c] - boxB.max[c]) < much))
                return true;
        }
        DistanceTally near;
        measure(primitives, true, near, false);
        if (near.largest < much) measure(primitives, false, near, false);
        return !(near.largest < much);
    }

    std::size_t count(const ComparableMesh& mesh, const std::vector<std::uint32_t>& primitives) {
        std::size_t large = 0;
        for (const std::uint32_t primitive : primitives) {
            if (isSmall(mesh, primitive, corners.reach)) continue;
            if (!lost.first) lost.first = mesh.positions[mesh.corners[primitive * corners.size]];
            ++large;
        }
        return large;
    }

    const SurfaceTree& tree(bool ofA) {
        std::optional<SurfaceTree>& known = ofA ? treeA : treeB;
        if (!known) known.emplace(ofA ? corners.a : corners.b);
        return *known;
    }

    // ---- Points on primitives ---------------------------------------------------------------------------

    /// From points on primitives of one side to the surface of the other.
    ///
    /// withAttributes  compares what belongs to the points, too
    void measure(const std::vector<std::uint32_t>& primitives, bool isA, DistanceTally& tally,
                 bool withAttributes) {
        if (primitives.empty()) return;
        const ComparableMesh& from = isA ? corners.a : corners.b;
        const SurfaceTree& surface = tree(!isA);
        std::uint32_t last = 0; // points follow each other, so the last one's primitive is mostly near
        const auto take = [&](std::uint32_t primitive, const std::array<double, 3>& weights) {
            Point point{};
            for (std::size_t i = 0; i < corners.size; ++i) {
                for (std::size_t c = 0; c < 3; ++c)
                    point[c] += weights[i] * from.positions[from.corners[primitive * corners.size + i]][c];
            }
            SurfacePoint found = surface.nearest(point, last);
            last = found.primitive;
            double noise = 0;
            for (const double coordinate : point)
                noise = std::max(noise, 16 * std::numeric_limits<double>::epsilon() * std::abs(coordinate));
            if (std::isnan(found.distance)) found.distance = std::numeric_limits<double>::infinity();
            tally.add(found.distance <= noise ? 0.0 : found.distance, corners.positionLimit, point);
            // At a sharp edge the nearest primitive may be the neighbour of the one that the point came from.
            if (withAttributes && found.distance <= corners.reach + noise)
                compareAttributes(primitive, weights, isA, point,
                                  surface.within(point, corners.reach + noise, CANDIDATES));
        };
        std::vector<bool> isDone(from.positions.size());
        const std::size_t mostEffort =
            surface.effort() + LEAST_EFFORT + EFFORT_PER_PRIMITIVE * primitives.size();
        const auto takeCorners = [&](std::uint32_t primitive) {
            for (std::size_t c = 0; c < corners.size; ++c) {
                const std::uint32_t vertex = from.corners[primitive * corners.size + c];
                std::array<double, 3> weights{};
                weights[c] = 1;
                if (!isDone[vertex]) take(primitive, weights);
                isDone[vertex] = true;
            }
        };
        for (std::size_t i = 0; i < primitives.size(); i += STRIDE)
            takeCorners(primitives[i]);
        double total = 0;
        for (const std::uint32_t primitive : primitives) {
            if (surface.effort() > mostEffort) return;
            takeCorners(primitive);
            total += extentOf(from, primitive);
        }
        if (!(total > 0) || !std::isfinite(total)) return;
        // As many points on each as it has of the area; where they are follows a sequence that fills the
        // plane evenly.
        const std::size_t samples =
            std::clamp(primitives.size() * SAMPLES_PER_PRIMITIVE, FEWEST_SAMPLES, MOST_SAMPLES);
        double before = 0;
        std::size_t sample = 0;
        for (const std::uint32_t primitive : primitives) {
            before += extentOf(from, primitive);
            if (surface.effort() > mostEffort) return;
            for (; static_cast<double>(sample) + 0.5 < before / total * static_cast<double>(samples);
                 ++sample) {
                double u = std::fmod(0.5 + static_cast<double>(sample) * 0.7548776662466927, 1.0);
                double v = std::fmod(0.5 + static_cast<double>(sample) * 0.5698402909980532, 1.0);
                if (corners.size == 2) v = 0;
                if (u + v > 1) {
                    u = 1 - u;
                    v = 1 - v;
                }
                take(primitive, {1 - u - v, u, v});
            }
        }
    }

    std::vector<float> valueAt(const ComparableMesh& mesh, const ComparableAttribute& attribute,
                               std::uint32_t primitive, const std::array<double, 3>& weights) const {
        std::vector<float> value(attribute.components);
        for (std::size_t c = 0; c < value.size(); ++c) {
            double sum = 0;
            for (std::size_t i = 0; i < corners.size; ++i) {
                const std::uint32_t vertex = mesh.corners[primitive * corners.size + i];
                if (weights[i] != 0)
                    sum += weights[i] * static_cast<double>(attribute.values[vertex * value.size() + c]);
            }
            value[c] = static_cast<float>(sum);
        }
        return value;
    }

    void compareAttributes(std::uint32_t primitive, const std::array<double, 3>& weights, bool isA,
                           const Point& at, const std::vector<SurfacePoint>& others) {
        const ComparableMesh &from = isA ? corners.a : corners.b, &to = isA ? corners.b : corners.a;
        for (SharedAttribute& attribute : corners.attributes) {
            const ComparableAttribute &mine = isA ? attribute.ofA() : attribute.ofB(),
                                      &theirs = isA ? attribute.ofB() : attribute.ofA();
            const std::vector<float> value = valueAt(from, mine, primitive, weights);
            double least = std::numeric_limits<double>::infinity(), largest = 1;
            for (const SurfacePoint& other : others) {
                const std::vector<float> found = valueAt(to, theirs, other.primitive, other.weights);
                least = std::min(least, isA ? attribute.difference(value.data(), found.data())
                                            : attribute.difference(found.data(), value.data()));
            }
            for (const float component : value)
                largest = std::max(largest, static_cast<double>(std::abs(component)));
            const double noise =
                attribute.kind == DifferenceKind::NORMALS ? ANGLE_NOISE : VALUE_NOISE * largest;
            if (!others.empty()) attribute.record(least <= noise ? 0.0 : least, at);
        }
    }

    CornerComparison& corners;
    PrimitiveMatches& matches;
    LostPrimitives lost;
    std::vector<std::pair<std::uint32_t, Turning>> moved; ///< at the same places of both lists
    std::optional<SurfaceTree> treeA, treeB;
};

} // namespace

LostPrimitives measureUnmatched(CornerComparison& corners, PrimitiveMatches& matches) {
    return Measurement(corners, matches).run();
}

} // namespace kel::convert
