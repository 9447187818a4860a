#include "Pairing.h"

#include "CornerComparison.h"
#include "PointGrid.h"

#include <kel/src/format/MetadataKeys.h>
#include <kel/src/text/JsonValues.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <tuple>
#include <utility>

namespace kel::convert {

namespace {

namespace metadata = kel::src::format::metadata;

/// A whole number of the metadata; -1 for none.
double numberOf(const ComparableMesh& mesh, std::string_view key) {
    const auto found = mesh.metadata.find(std::string(key));
    double number = 0;
    return found != mesh.metadata.end() && kel::src::text::parseJsonNumber(found->second, number) ? number
                                                                                                  : -1;
}

/// How many meshes from `first` on are the parts of one.
std::size_t partsFrom(const std::vector<ComparableMesh>& meshes, std::size_t first) {
    const ComparableMesh& begin = meshes[first];
    const double parts = numberOf(begin, metadata::PARTS);
    if (!(parts >= 2 && parts <= static_cast<double>(meshes.size() - first))) return 1;
    const auto count = static_cast<std::size_t>(parts);
    for (std::size_t i = 0; i < count; ++i) {
        const ComparableMesh& part = meshes[first + i];
        if (numberOf(part, metadata::PART) != static_cast<double>(i) ||
            numberOf(part, metadata::PARTS) != parts || part.name != begin.name ||
            part.cornersPerPrimitive != begin.cornersPerPrimitive)
            return 1;
    }
    return count;
}

/// Of the diagonal of all meshes: boxes that differ by less are nearly the same.
constexpr double ALIKE = 1e-3;
/// Meshes at one place that are looked at for the one that is most like another.
constexpr std::size_t MOST_TRIES = 64;

using Group = std::vector<const WholeMesh*>;

/// How far the boxes of equal meshes may be apart.
double reachOf(const WholeMesh& a, const WholeMesh& b) {
    double reach = 0;
    for (const WholeMesh* mesh : {&a, &b}) {
        double loss = 0;
        for (const ComparableMesh* part : mesh->parts)
            loss = std::max(loss, part->positionLoss +
                                      (a.first().origin == b.first().origin ? 0.0 : part->positionRounding));
        reach += loss;
    }
    return reach;
}

/// Whether any step of a node's path has one; a path of slashes alone belongs to many nodes.
bool hasName(const std::string& node) {
    return node.find_first_not_of('/') != std::string::npos;
}

bool agree(const WholeMesh& a, const WholeMesh& b) {
    if (a.primitives != b.primitives) return false;
    const double reach = reachOf(a, b);
    for (std::size_t c = 0; c < 3; ++c) {
        if (a.box.isEmpty() && b.box.isEmpty()) break;
        if (!(std::abs(a.box.min[c] - b.box.min[c]) <= reach &&
              std::abs(a.box.max[c] - b.box.max[c]) <= reach))
            return false;
    }
    const std::string &nodeA = a.first().node, &nodeB = b.first().node;
    if (a.first().name == b.first().name && hasName(nodeA) && hasName(nodeB) && nodeA != nodeB) return false;
    return comparedAttributes(a.first(), b.first()) == comparedAttributes(b.first(), a.first());
}

/// How far apart the ends of the boxes are.
double unlikeness(const WholeMesh& a, const WholeMesh& b) {
    if (a.box.isEmpty() || b.box.isEmpty()) return INFINITY;
    return std::max(distanceBetween(a.box.min, b.box.min), distanceBetween(a.box.max, b.box.max));
}

/// Pairs two groups of equal size.
class GroupPairing {
public:
    GroupPairing(const Group& a, const Group& b, std::vector<MeshPair>& pairs)
        : a(a), b(b), pairs(pairs), partner(a.size(), NONE), isTaken(b.size()) {}

    void run() {
        if (a.size() > 1) {
            for (std::size_t i = 0; i < a.size(); ++i) {
                if (agree(*a[i], *b[i])) take(i, i);
            }
            byPlace();
            byNode();
            byBox();
            bySize();
        }
        std::size_t next = 0;
        for (std::size_t i = 0; i < a.size(); ++i) {
            if (partner[i] != NONE) continue;
            while (isTaken[next])
                ++next;
            take(i, next);
        }
        for (std::size_t i = 0; i < a.size(); ++i)
            pairs.push_back({{a[i]}, {b[partner[i]]}});
    }

private:
    static constexpr std::size_t NONE = ~std::size_t(0);

    void take(std::size_t i, std::size_t j) {
        partner[i] = j;
        isTaken[j] = true;
    }

    void byPlace() {
        double reach = 0;
        std::size_t left = 0;
        for (std::size_t i = 0; i < a.size(); ++i) {
            if (partner[i] != NONE) continue;
            ++left;
            reach = std::max(reach, reachOf(*a[i], *b[i]));
        }
        if (left == 0) return;
        PointGrid grid(2 * reach, left);
        for (std::size_t j = b.size(); j-- > 0;) {
            if (!isTaken[j]) grid.add(b[j]->box.min, static_cast<std::uint32_t>(j));
        }
        for (std::size_t i = 0; i < a.size(); ++i) {
            if (partner[i] != NONE) continue;
            grid.visit(a[i]->box.min, [&](std::uint32_t j) {
                if (isTaken[j] || !agree(*a[i], *b[j])) return PointGrid::GO_ON;
                take(i, j);
                return PointGrid::REMOVE_AND_STOP;
            });
        }
    }

    void byNode() {
        std::map<std::string_view, std::vector<std::size_t>> places;
        for (std::size_t j = b.size(); j-- > 0;) {
            const std::string& node = b[j]->first().node;
            if (!isTaken[j] && hasName(node)) places[node].push_back(j);
        }
        for (std::size_t i = 0; i < a.size(); ++i) {
            const auto found = places.find(a[i]->first().node);
            if (partner[i] != NONE || found == places.end() || found->second.empty()) continue;
            // Primitives of one mesh have one node.
            std::vector<std::size_t>& there = found->second;
            const std::size_t most = std::min(there.size(), MOST_TRIES);
            const auto best =
                std::min_element(there.rbegin(), there.rbegin() + static_cast<std::ptrdiff_t>(most),
                                 [&](std::size_t x, std::size_t y) {
                                     return unlikeness(*a[i], *b[x]) < unlikeness(*a[i], *b[y]);
                                 });
            take(i, *best);
            there.erase(best.base() - 1);
        }
    }

    /// Each with the one whose box is most like its own, if that is nearly so: a file that was made anew has other
    /// names and another order, is off by more than its encoding says, and lacks triangles without an area.
    void byBox() {
        Bounds all;
        for (const WholeMesh* mesh : a)
            all.add(mesh->box);
        const double reach = ALIKE * all.diagonal();
        if (!std::isfinite(reach)) return;
        PointGrid grid(reach, b.size());
        for (std::size_t j = b.size(); j-- > 0;) {
            if (!isTaken[j] && !b[j]->box.isEmpty()) grid.add(b[j]->box.min, static_cast<std::uint32_t>(j));
        }
        for (std::size_t i = 0; i < a.size(); ++i) {
            if (partner[i] != NONE || a[i]->box.isEmpty()) continue;
            std::size_t best = NONE;
            double least = reach;
            std::size_t tries = MOST_TRIES;
            grid.visit(a[i]->box.min, [&](std::uint32_t j) {
                const double apart = isTaken[j] ? INFINITY : unlikeness(*a[i], *b[j]);
                if (apart < least || (apart == least && best == NONE)) {
                    least = apart;
                    best = j;
                }
                return least == 0.0 || --tries == 0 ? PointGrid::STOP : PointGrid::GO_ON;
            });
            if (best != NONE) take(i, best);
        }
    }

    /// Meshes of as many primitives, those at the least coordinates first: where a file has others in its order, and
    /// is off by more than its encoding says, as one that was quantized before.
    void bySize() {
        const auto left = [](const Group& group, const auto& isPaired) {
            std::vector<std::size_t> rest;
            for (std::size_t i = 0; i < group.size(); ++i) {
                if (!isPaired(i)) rest.push_back(i);
            }
            const auto key = [&](std::size_t i) {
                const WholeMesh& mesh = *group[i];
                return std::tie(mesh.primitives, mesh.box.min[0], mesh.box.min[1], mesh.box.min[2]);
            };
            std::stable_sort(rest.begin(), rest.end(),
                             [&](std::size_t x, std::size_t y) { return key(x) < key(y); });
            return rest;
        };
        const std::vector<std::size_t> restA = left(a, [&](std::size_t i) { return partner[i] != NONE; });
        const std::vector<std::size_t> restB = left(b, [&](std::size_t j) { return isTaken[j]; });
        for (std::size_t i = 0, j = 0; i < restA.size() && j < restB.size();) {
            const std::size_t inA = a[restA[i]]->primitives, inB = b[restB[j]]->primitives;
            if (inA == inB) take(restA[i], restB[j]);
            i += inA <= inB;
            j += inB <= inA;
        }
    }

    const Group &a, &b;
    std::vector<MeshPair>& pairs;
    std::vector<std::size_t> partner; ///< in b
    std::vector<bool> isTaken;
};

} // namespace

std::vector<WholeMesh> wholeMeshes(const ComparableScene& scene) {
    std::vector<WholeMesh> meshes;
    for (std::size_t first = 0; first < scene.meshes.size();) {
        WholeMesh& mesh = meshes.emplace_back();
        mesh.position = first;
        const std::size_t end = first + partsFrom(scene.meshes, first);
        for (; first < end; ++first) {
            const ComparableMesh& part = scene.meshes[first];
            mesh.parts.push_back(&part);
            mesh.primitives += part.primitives();
            mesh.box.add(part.bounds());
        }
    }
    return meshes;
}

std::set<std::string> comparedAttributes(const ComparableMesh& mesh, const ComparableMesh& other) {
    std::set<std::string> names;
    for (const auto& [name, attribute] : mesh.attributes) {
        if (mesh.filled.count(name) == 0 && other.canStore(name, attribute.components)) names.insert(name);
    }
    return names;
}

ComparableMesh joined(const std::vector<const ComparableMesh*>& meshes) {
    ComparableMesh all = *meshes.front();
    for (auto part = meshes.begin() + 1; part != meshes.end(); ++part) {
        const ComparableMesh& mesh = **part;
        const auto first = static_cast<std::uint32_t>(all.positions.size());
        all.positions.insert(all.positions.end(), mesh.positions.begin(), mesh.positions.end());
        for (const std::uint32_t corner : mesh.corners)
            all.corners.push_back(first + corner);
        all.positionLoss = std::max(all.positionLoss, mesh.positionLoss);
        all.positionRounding = std::max(all.positionRounding, mesh.positionRounding);
        for (auto entry = all.attributes.begin(); entry != all.attributes.end();) {
            const auto other = mesh.attributes.find(entry->first);
            ComparableAttribute& attribute = entry->second;
            if (other == mesh.attributes.end() || other->second.components != attribute.components) {
                entry = all.attributes.erase(entry);
                continue;
            }
            attribute.values.insert(attribute.values.end(), other->second.values.begin(),
                                    other->second.values.end());
            attribute.loss = std::max(attribute.loss, other->second.loss);
            attribute.lossDegrees = std::max(attribute.lossDegrees, other->second.lossDegrees);
            ++entry;
        }
    }
    return all;
}

Pairing pairMeshes(const std::vector<WholeMesh>& a, const std::vector<WholeMesh>& b) {
    Pairing pairing;
    using Key = std::pair<std::string, std::size_t>;
    struct Sides {
        Group a, b;
    };
    std::map<Key, Sides> groups;
    std::vector<std::pair<const Key*, Sides*>> order;
    const auto add = [&](const WholeMesh& mesh, Group Sides::*side) {
        const auto [place, isNew] =
            groups.try_emplace(Key(mesh.first().name, mesh.first().cornersPerPrimitive));
        if (isNew) order.emplace_back(&place->first, &place->second);
        (place->second.*side).push_back(&mesh);
    };
    for (const WholeMesh& mesh : a)
        add(mesh, &Sides::a);
    for (const WholeMesh& mesh : b)
        add(mesh, &Sides::b);

    bool anyInBoth = false;
    std::map<std::size_t, Sides> left; // by kind
    const auto pairGroups = [&](const Sides& sides) {
        if (sides.a.size() == sides.b.size()) {
            GroupPairing(sides.a, sides.b, pairing.pairs).run();
        } else {
            pairing.pairs.push_back({sides.a, sides.b});
        }
    };
    for (const auto& [key, sides] : order) {
        if (sides->a.empty() || sides->b.empty()) {
            Sides& rest = left[key->second];
            rest.a.insert(rest.a.end(), sides->a.begin(), sides->a.end());
            rest.b.insert(rest.b.end(), sides->b.begin(), sides->b.end());
            continue;
        }
        anyInBoth = true;
        pairGroups(*sides);
    }
    for (const auto& [kind, sides] : left) {
        if (!sides.a.empty() && !sides.b.empty() && (sides.a.size() == sides.b.size() || !anyInBoth)) {
            pairGroups(sides);
            continue;
        }
        pairing.onlyA.insert(pairing.onlyA.end(), sides.a.begin(), sides.a.end());
        pairing.onlyB.insert(pairing.onlyB.end(), sides.b.begin(), sides.b.end());
    }
    return pairing;
}

} // namespace kel::convert
