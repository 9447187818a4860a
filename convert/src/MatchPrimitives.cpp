#include "MatchPrimitives.h"

#include "PointGrid.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

namespace kel::convert {

namespace {

/// Neighbours that one primitive is tried with. Where more lie within reach the encoding has lost which is
/// which.
constexpr std::size_t MOST_CANDIDATES = 1024;
/// How many give up their partner for one that has none.
constexpr std::size_t DEEPEST = 32;

/// What has to meet.
enum class Demand : std::uint8_t { EVERYTHING, CORNERS, CORNERS_TURNED_ROUND };

/// The middle of a primitive, the same to the last bit whichever corner it begins at.
Point middleOf(const ComparableMesh& mesh, std::size_t primitive) {
    const std::size_t size = mesh.cornersPerPrimitive;
    Point middle{};
    for (std::size_t c = 0; c < 3; ++c) {
        std::array<double, 3> values{};
        for (std::size_t i = 0; i < size; ++i)
            values[i] = mesh.positions[mesh.corners[primitive * size + i]][c];
        std::sort(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(size));
        middle[c] = std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(size);
    }
    return middle;
}

class Matching {
public:
    explicit Matching(CornerComparison& corners)
        : corners(corners), partnerOfA(corners.a.primitives(), NONE),
          partnerOfB(corners.b.primitives(), NONE), turnings(corners.a.primitives()),
          isLonely(corners.a.primitives()) {}

    PrimitiveMatches run() {
        inOrder(Demand::EVERYTHING);
        anywhere(Demand::EVERYTHING);
        rearrange();
        for (const Demand demand : {Demand::CORNERS, Demand::CORNERS_TURNED_ROUND}) {
            if (demand == Demand::CORNERS_TURNED_ROUND && corners.size != 3) break;
            inOrder(demand);
            anywhere(demand);
        }
        for (std::uint32_t a = 0; a < partnerOfA.size(); ++a) {
            if (partnerOfA[a] != NONE) record(a);
        }
        matches.onlyA = left(partnerOfA);
        matches.onlyB = left(partnerOfB);
        return std::move(matches);
    }

private:
    static constexpr std::uint32_t NONE = 0xffffffffu;

    std::optional<Turning> meet(std::size_t a, std::size_t b, Demand demand) const {
        return corners.meet(a, b, demand == Demand::CORNERS_TURNED_ROUND, demand == Demand::EVERYTHING);
    }

    /// Most neighbours have no corner where a's first one is; no way of turning them helps.
    bool shareACorner(std::uint32_t a, std::uint32_t b) const {
        const Point& first = corners.a.positions[corners.cornerOfA(a, 0)];
        for (std::size_t c = 0; c < corners.size; ++c) {
            if (isWithin(first, corners.b.positions[corners.cornerOfB(b, c, {})], corners.reach)) return true;
        }
        return false;
    }

    void take(std::uint32_t a, std::uint32_t b, Turning turning) {
        partnerOfA[a] = b;
        partnerOfB[b] = a;
        turnings[a] = turning;
        if (a != b) matches.by = ComparedBy::MATCH;
    }

    void record(std::uint32_t a) {
        corners.record(a, partnerOfA[a], turnings[a]);
        if (!turnings[a].isReversed) return;
        if (matches.flipped++ == 0) matches.firstFlipped = corners.a.positions[corners.cornerOfA(a, 0)];
    }

    static std::vector<std::uint32_t> left(const std::vector<std::uint32_t>& partners) {
        std::vector<std::uint32_t> alone;
        for (std::uint32_t i = 0; i < partners.size(); ++i) {
            if (partners[i] == NONE) alone.push_back(i);
        }
        return alone;
    }

    /// Those at one place of the lists.
    void inOrder(Demand demand) {
        const std::size_t both = std::min(partnerOfA.size(), partnerOfB.size());
        for (std::uint32_t i = 0; i < both; ++i) {
            if (partnerOfA[i] != NONE || partnerOfB[i] != NONE) continue;
            if (const auto turning = meet(i, i, demand)) take(i, i, *turning);
        }
    }

    /// The nearest ones, wherever they stand.
    void anywhere(Demand demand) {
        const std::vector<std::uint32_t> leftA = left(partnerOfA), leftB = left(partnerOfB);
        if (leftA.empty() || leftB.empty()) return;
        PointGrid grid = gridOf(leftB);
        for (const std::uint32_t a : leftA) {
            if (isLonely[a]) continue;
            isLonely[a] = true;
            std::size_t tries = MOST_CANDIDATES;
            double nearest = 0;
            std::uint32_t found = NONE;
            Turning turning;
            grid.visit(middleOf(corners.a, a), [&](std::uint32_t b) {
                if (!shareACorner(a, b)) return --tries == 0 ? PointGrid::STOP : PointGrid::GO_ON;
                isLonely[a] =
                    isLonely[a] && !corners.meet(a, b, false, false) && !corners.meet(a, b, true, false);
                const auto met = isLonely[a] || partnerOfB[b] != NONE ? std::nullopt : meet(a, b, demand);
                const double apart = met ? corners.apart(a, b, *met) : 0.0;
                if (met && (found == NONE || apart < nearest)) {
                    found = b;
                    nearest = apart;
                    turning = *met;
                }
                return --tries == 0 || (found != NONE && nearest == 0.0) ? PointGrid::STOP : PointGrid::GO_ON;
            });
            if (found == NONE) continue;
            take(a, found, turning);
            grid.visit(middleOf(corners.b, found), [&](std::uint32_t b) {
                return b == found ? PointGrid::REMOVE_AND_STOP : PointGrid::GO_ON;
            });
        }
    }

    PointGrid gridOf(const std::vector<std::uint32_t>& primitivesOfB) const {
        PointGrid grid(corners.reach, primitivesOfB.size());
        // The grid gives the last one first.
        for (auto b = primitivesOfB.rbegin(); b != primitivesOfB.rend(); ++b)
            grid.add(middleOf(corners.b, *b), *b);
        return grid;
    }

    /// Where several lie within reach of each other, the nearest one may be another's only one. Those that
    /// are left take a partner from others that have a second choice.
    void rearrange() {
        const std::vector<std::uint32_t> leftA = left(partnerOfA), leftB = left(partnerOfB);
        if (leftA.empty() || leftB.empty() || corners.reach == 0.0) return;
        std::vector<std::uint32_t> all(partnerOfB.size());
        std::iota(all.begin(), all.end(), 0u);
        PointGrid grid = gridOf(all);
        std::vector<std::uint32_t> askedBy(partnerOfB.size(), NONE);
        for (const std::uint32_t a : leftA)
            findPartner(a, a, grid, askedBy, 0);
    }

    /// root     stands in `askedBy` for what this search has asked already
    bool findPartner(std::uint32_t a, std::uint32_t root, PointGrid& grid,
                     std::vector<std::uint32_t>& askedBy, std::size_t depth) {
        std::vector<std::pair<std::uint32_t, Turning>> choices;
        std::size_t tries = MOST_CANDIDATES;
        grid.visit(middleOf(corners.a, a), [&](std::uint32_t b) {
            const bool asks = askedBy[b] != root && shareACorner(a, b);
            const auto met = asks ? meet(a, b, Demand::EVERYTHING) : std::nullopt;
            if (met) {
                askedBy[b] = root;
                choices.emplace_back(b, *met);
            }
            return --tries == 0 ? PointGrid::STOP : PointGrid::GO_ON;
        });
        for (const bool isFree : {true, false}) {
            for (const auto& [b, turning] : choices) {
                if ((partnerOfB[b] == NONE) != isFree) continue;
                if (!isFree &&
                    (depth == DEEPEST || !findPartner(partnerOfB[b], root, grid, askedBy, depth + 1)))
                    continue;
                take(a, b, turning);
                return true;
            }
        }
        return false;
    }

    CornerComparison& corners;
    PrimitiveMatches matches;
    std::vector<std::uint32_t> partnerOfA, partnerOfB;
    std::vector<Turning> turnings; ///< of A
    std::vector<bool> isLonely;    ///< of A: nothing in B has its corners
};

} // namespace

PrimitiveMatches matchPrimitives(CornerComparison& corners) {
    return Matching(corners).run();
}

} // namespace kel::convert
