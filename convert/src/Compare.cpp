#include <kel/convert/Compare.h>

#include "MeshFacts.h"

#include <kel/src/format/MetadataKeys.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numeric>
#include <utility>

namespace kel::convert {

namespace {

using Point = std::array<float, 3>;

constexpr double INFINITE = std::numeric_limits<double>::infinity();
/// Beyond this part of the diagonal the order of primitives cannot be trusted.
constexpr double SAME_ORDER = 1.0 / 50;
/// Vertices at one place that are asked for the normal that fits best.
constexpr int CANDIDATES = 64;
/// Differences of material values up to this are rounding.
constexpr double MATERIAL_ROUNDING = 1e-6;

/// What writers and preparation put there themselves.
bool isOwnEntry(std::string_view key) {
    using namespace kel::src::format::metadata;
    for (const std::string_view own :
         {NUM_POINTS, NUM_LINES, NUM_TRIANGLES, NUM_VERTICES, SURFACE_AREA, FIT, FILLED, PART, PARTS}) {
        if (key == own) return true;
    }
    return false;
}

double squaredDistance(const Point& a, const Point& b) {
    double sum = 0;
    for (std::size_t c = 0; c < 3; ++c) {
        const double d = static_cast<double>(a[c]) - static_cast<double>(b[c]);
        sum += d * d;
    }
    return std::isnan(sum) ? INFINITE : sum;
}

/// In degrees. A normal without a length has no direction to compare.
double angleBetween(const Point& a, const Point& b) {
    constexpr Point NONE{0, 0, 0};
    return a == NONE || b == NONE ? 0.0 : degreesBetween(a.data(), b.data());
}

/// The vertices of a mesh that are drawn, as a tree that finds the nearest one.
class VertexTree {
public:
    explicit VertexTree(const ComparableMesh& mesh) : mesh(mesh) {
        std::vector<bool> used(mesh.positions.size());
        for (const std::uint32_t corner : mesh.corners)
            used[corner] = true;
        for (std::uint32_t v = 0; v < used.size(); ++v) {
            const Point& p = mesh.positions[v];
            if (used[v] && std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]))
                order.push_back(v);
            if (used[v]) drawn.push_back(v);
        }
        axes.resize(order.size());
        build(0, order.size());
    }

    const std::vector<std::uint32_t>& vertices() const { return drawn; }

    /// The squared distance to the nearest vertex, and the smallest angle to a normal there.
    std::pair<double, double> nearest(const Point& point, const Point* normal) const {
        double best = INFINITE;
        find(0, order.size(), point, best);
        if (!normal || mesh.normals.empty() || !std::isfinite(best)) return {best, 0.0};
        double angle = 180.0;
        int left = CANDIDATES;
        collect(0, order.size(), point, *normal, best, angle, left);
        return {best, angle};
    }

private:
    /// The middle vertex of each range parts it along its longest side.
    void build(std::size_t first, std::size_t last) {
        if (last - first < 2) return;
        Point low = mesh.positions[order[first]], high = low;
        for (std::size_t i = first; i < last; ++i) {
            const Point& p = mesh.positions[order[i]];
            for (std::size_t c = 0; c < 3; ++c) {
                low[c] = std::min(low[c], p[c]);
                high[c] = std::max(high[c], p[c]);
            }
        }
        std::uint8_t axis = 0;
        for (std::uint8_t c = 1; c < 3; ++c) {
            if (high[c] - low[c] > high[axis] - low[axis]) axis = c;
        }
        const std::size_t middle = first + (last - first) / 2;
        const auto begin = order.begin();
        std::nth_element(begin + static_cast<std::ptrdiff_t>(first),
                         begin + static_cast<std::ptrdiff_t>(middle),
                         begin + static_cast<std::ptrdiff_t>(last), [&](std::uint32_t a, std::uint32_t b) {
                             return mesh.positions[a][axis] < mesh.positions[b][axis];
                         });
        axes[middle] = axis;
        build(first, middle);
        build(middle + 1, last);
    }

    void find(std::size_t first, std::size_t last, const Point& point, double& best) const {
        if (first >= last) return;
        const std::size_t middle = first + (last - first) / 2;
        const Point& here = mesh.positions[order[middle]];
        best = std::min(best, squaredDistance(here, point));
        const std::size_t axis = axes[middle];
        const double beyond = static_cast<double>(point[axis]) - static_cast<double>(here[axis]);
        if (beyond <= 0) {
            find(first, middle, point, best);
            if (beyond * beyond < best) find(middle + 1, last, point, best);
        } else {
            find(middle + 1, last, point, best);
            if (beyond * beyond < best) find(first, middle, point, best);
        }
    }

    void collect(std::size_t first, std::size_t last, const Point& point, const Point& normal, double best,
                 double& angle, int& left) const {
        if (first >= last || left == 0) return;
        const std::size_t middle = first + (last - first) / 2;
        const Point& here = mesh.positions[order[middle]];
        if (squaredDistance(here, point) <= best) {
            angle = std::min(angle, angleBetween(mesh.normals[order[middle]], normal));
            --left;
        }
        const std::size_t axis = axes[middle];
        const double beyond = static_cast<double>(point[axis]) - static_cast<double>(here[axis]);
        if (beyond <= 0 || beyond * beyond <= best) collect(first, middle, point, normal, best, angle, left);
        if (beyond >= 0 || beyond * beyond <= best)
            collect(middle + 1, last, point, normal, best, angle, left);
    }

    const ComparableMesh& mesh;
    std::vector<std::uint32_t> order; ///< finite vertices that are drawn
    std::vector<std::uint32_t> drawn;
    std::vector<std::uint8_t> axes;
};

class Distances {
public:
    void add(double squared) {
        largest = std::max(largest, squared);
        sum += squared;
        ++count;
    }
    void addAngle(double degrees) { angle = std::max(angle, degrees); }
    double max() const { return std::sqrt(largest); }
    void fill(ComparedPair& pair) const {
        pair.maxDistance = max();
        pair.rmsDistance = count == 0 ? 0.0 : std::sqrt(sum / static_cast<double>(count));
        pair.maxAngle = angle;
        pair.samples = count;
    }

private:
    double largest = 0, sum = 0, angle = 0;
    std::size_t count = 0;
};

Distances inOrder(const ComparableMesh& a, const ComparableMesh& b) {
    const std::size_t size = a.cornersPerPrimitive;
    const bool normals = !a.normals.empty() && !b.normals.empty();
    Distances distances;
    for (std::size_t first = 0; first + size <= a.corners.size(); first += size) {
        std::array<double, 3> best{};
        std::size_t bestTurn = 0;
        double bestSum = INFINITE;
        for (std::size_t turn = 0; turn < size; ++turn) {
            std::array<double, 3> found{};
            double sum = 0;
            for (std::size_t c = 0; c < size; ++c) {
                found[c] = squaredDistance(a.positions[a.corners[first + c]],
                                           b.positions[b.corners[first + (c + turn) % size]]);
                sum += found[c];
            }
            if (turn == 0 || sum < bestSum) {
                best = found;
                bestSum = sum;
                bestTurn = turn;
            }
            if (bestSum == 0.0) break;
        }
        for (std::size_t c = 0; c < size; ++c) {
            distances.add(best[c]);
            if (normals)
                distances.addAngle(angleBetween(a.normals[a.corners[first + c]],
                                                b.normals[b.corners[first + (c + bestTurn) % size]]));
        }
    }
    return distances;
}

Distances toNearest(const ComparableMesh& a, const ComparableMesh& b) {
    Distances distances;
    const VertexTree treeA(a), treeB(b);
    const bool normals = !a.normals.empty() && !b.normals.empty();
    const auto walk = [&](const ComparableMesh& from, const VertexTree& fromTree, const VertexTree& to) {
        for (const std::uint32_t v : fromTree.vertices()) {
            const auto [squared, angle] = to.nearest(from.positions[v], normals ? &from.normals[v] : nullptr);
            distances.add(squared);
            distances.addAngle(angle);
        }
    };
    walk(a, treeA, treeB);
    walk(b, treeB, treeA);
    return distances;
}

ComparedPair compareMeshes(const ComparableMesh& a, const ComparableMesh& b) {
    ComparedPair pair;
    pair.name = a.name;
    if (a.primitives() == b.primitives()) {
        const Distances ordered = inOrder(a, b);
        Bounds box = a.bounds();
        box.add(b.bounds());
        if (!(ordered.max() > SAME_ORDER * box.diagonal())) {
            ordered.fill(pair);
            return pair;
        }
        // Far apart in this order; much nearer in any order means that the order is another one.
        const Distances near = toNearest(a, b);
        pair.byOrder = !(near.max() < 0.1 * ordered.max());
        (pair.byOrder ? ordered : near).fill(pair);
        return pair;
    }
    pair.byOrder = false;
    toNearest(a, b).fill(pair);
    return pair;
}

ComparableMesh joined(const std::vector<const ComparableMesh*>& meshes) {
    ComparableMesh all;
    all.name = meshes.front()->name;
    all.cornersPerPrimitive = meshes.front()->cornersPerPrimitive;
    const bool normals = std::all_of(meshes.begin(), meshes.end(),
                                     [](const ComparableMesh* mesh) { return !mesh->normals.empty(); });
    for (const ComparableMesh* mesh : meshes) {
        const auto first = static_cast<std::uint32_t>(all.positions.size());
        all.positions.insert(all.positions.end(), mesh->positions.begin(), mesh->positions.end());
        if (normals) all.normals.insert(all.normals.end(), mesh->normals.begin(), mesh->normals.end());
        for (const std::uint32_t corner : mesh->corners)
            all.corners.push_back(first + corner);
    }
    return all;
}

class Comparison {
public:
    CompareReport run(const ComparableScene& a, const ComparableScene& b) {
        report.a = sideOf(a);
        report.b = sideOf(b);
        using Key = std::pair<std::string, std::size_t>;
        struct Group {
            std::vector<const ComparableMesh*> a, b;
        };
        std::map<Key, Group> groups;
        std::vector<Key> order;
        const auto add = [&](const ComparableMesh& mesh, auto side) {
            const Key key(mesh.name, mesh.cornersPerPrimitive);
            const auto [place, isNew] = groups.try_emplace(key);
            if (isNew) order.push_back(key);
            (place->second.*side).push_back(&mesh);
        };
        for (const ComparableMesh& mesh : a.meshes)
            add(mesh, &Group::a);
        for (const ComparableMesh& mesh : b.meshes)
            add(mesh, &Group::b);

        bool anyInBoth = false;
        std::map<std::size_t, Group> left;
        for (const Key& key : order) {
            Group& group = groups.at(key);
            if (group.a.empty() || group.b.empty()) {
                Group& rest = left[key.second];
                rest.a.insert(rest.a.end(), group.a.begin(), group.a.end());
                rest.b.insert(rest.b.end(), group.b.begin(), group.b.end());
                continue;
            }
            anyInBoth = true;
            compareGroups(group.a, group.b);
        }
        for (auto& [kind, group] : left) {
            if (!group.a.empty() && !group.b.empty() && (group.a.size() == group.b.size() || !anyInBoth)) {
                compareGroups(group.a, group.b);
                continue;
            }
            for (const ComparableMesh* mesh : group.a)
                report.missing.push_back(mesh->name);
            for (const ComparableMesh* mesh : group.b)
                report.added.push_back(mesh->name);
        }
        summarize();
        return std::move(report);
    }

private:
    static ComparedSide sideOf(const ComparableScene& scene) {
        ComparedSide side;
        for (const ComparableMesh& mesh : scene.meshes) {
            side.counts += mesh.counts();
            side.bounds.add(mesh.bounds());
        }
        return side;
    }

    void compareGroups(const std::vector<const ComparableMesh*>& a,
                       const std::vector<const ComparableMesh*>& b) {
        if (a.size() == b.size()) {
            for (std::size_t i = 0; i < a.size(); ++i) {
                report.pairs.push_back(compareMeshes(*a[i], *b[i]));
                compareProperties(*a[i], *b[i]);
            }
            return;
        }
        ComparedPair pair = compareMeshes(joined(a), joined(b));
        pair.meshesA = a.size();
        pair.meshesB = b.size();
        report.pairs.push_back(std::move(pair));
        // Parts of one mesh have its properties each.
        if (a.size() != 1 && b.size() != 1) return;
        for (std::size_t i = 0; i < std::max(a.size(), b.size()); ++i)
            compareProperties(*a[std::min(i, a.size() - 1)], *b[std::min(i, b.size() - 1)]);
    }

    void compareProperties(const ComparableMesh& a, const ComparableMesh& b) {
        for (const auto& name : a.attributes)
            if (b.attributes.count(name) == 0) ++report.attributes[name].onlyA;
        for (const auto& name : b.attributes)
            if (a.attributes.count(name) == 0) ++report.attributes[name].onlyB;
        compareMaterials(a, b);
        for (const auto& [key, text] : a.metadata) {
            if (isOwnEntry(key)) continue;
            const auto other = b.metadata.find(key);
            if (other == b.metadata.end()) {
                ++report.metadata[key].onlyA;
            } else if (!sameJson(text, other->second)) {
                ++report.metadata[key].differ;
            }
        }
        for (const auto& [key, text] : b.metadata) {
            if (!isOwnEntry(key) && a.metadata.count(key) == 0) ++report.metadata[key].onlyB;
        }
    }

    void compareMaterials(const ComparableMesh& a, const ComparableMesh& b) {
        if (a.hasMaterial != b.hasMaterial) {
            ++(a.hasMaterial ? report.materials[""].onlyA : report.materials[""].onlyB);
            return;
        }
        for (const auto& [parameter, value] : a.material) {
            const auto other = b.material.find(parameter);
            if (other == b.material.end() || other->second.size() != value.size()) {
                ++report.materials[parameter].differ;
                continue;
            }
            double largest = 0;
            for (std::size_t i = 0; i < value.size(); ++i)
                largest = std::max(largest, std::abs(value[i] - other->second[i]));
            if (!(largest > MATERIAL_ROUNDING)) continue;
            DifferenceCount& count = report.materials[parameter];
            ++count.differ;
            count.largest = std::max(count.largest, largest);
        }
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
            sum += pair.rmsDistance * pair.rmsDistance * static_cast<double>(pair.samples);
            samples += pair.samples;
        }
        report.rmsDistance = samples == 0 ? 0.0 : std::sqrt(sum / static_cast<double>(samples));
    }

    CompareReport report;
};

} // namespace

CompareReport compare(const ComparableScene& a, const ComparableScene& b) {
    return Comparison().run(a, b);
}

} // namespace kel::convert
