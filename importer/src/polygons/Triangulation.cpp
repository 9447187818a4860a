#include "Triangulation.h"

#include <glm/common.hpp>
#include <glm/geometric.hpp>
#include <glm/vec2.hpp>

#include <algorithm>
#include <cmath>
#include <utility>

namespace kel::importer::detail {

namespace {

/// How often a corner may be looked at, on average, in the search for diagonals that no other corner is in
/// the way of.
constexpr std::size_t MOST_LOOKS = 4096;

/// Twice the area of the polygon, along its normal.
glm::dvec3 areaOf(const std::vector<glm::dvec3>& points) {
    glm::dvec3 area(0.0);
    for (std::size_t i = 2; i < points.size(); ++i)
        area += glm::cross(points[i - 1] - points[0], points[i] - points[0]);
    return area;
}

/// The points seen from the side to which the normal points, without the coordinate that is the shortest
/// there.
std::vector<glm::dvec2> flatten(const std::vector<glm::dvec3>& points, const glm::dvec3& normal) {
    const glm::dvec3 size = glm::abs(normal);
    const int axis = size.x > size.y ? (size.x > size.z ? 0 : 2) : (size.y > size.z ? 1 : 2);
    int u = (axis + 1) % 3;
    int v = (axis + 2) % 3;
    if (normal[axis] < 0.0) std::swap(u, v);
    std::vector<glm::dvec2> flat;
    flat.reserve(points.size());
    for (const glm::dvec3& point : points) {
        const glm::dvec3 p = point - points[0]; // exact digits where they count, far from zero
        flat.emplace_back(p[u], p[v]);
    }
    return flat;
}

double turn(const glm::dvec2& a, const glm::dvec2& b, const glm::dvec2& c) {
    return (b.x - a.x) * (c.y - b.y) - (b.y - a.y) * (c.x - b.x);
}

void addFan(std::size_t first, std::size_t corners, std::vector<std::uint32_t>& triangles) {
    for (std::size_t i = 1; i + 1 < corners; ++i) {
        for (const std::size_t corner : {first, first + i, first + i + 1})
            triangles.push_back(static_cast<std::uint32_t>(corner % corners));
    }
}

/// A quad has one concave corner at most: its diagonal begins there.
std::size_t firstCornerOfQuad(const std::vector<glm::dvec2>& p) {
    for (std::size_t i = 0; i < 4; ++i) {
        if (turn(p[(i + 3) % 4], p[i], p[(i + 1) % 4]) < 0.0) return i;
    }
    return 0;
}

bool isStrictlyConvex(const std::vector<glm::dvec2>& p) {
    const std::size_t n = p.size();
    std::size_t turnings = 0; // from left to right or back
    for (std::size_t i = 0; i < n; ++i) {
        const glm::dvec2 &a = p[i], &b = p[(i + 1) % n], &c = p[(i + 2) % n];
        if (!(turn(a, b, c) > 0.0)) return false;
        turnings += (b.x > a.x) != (c.x > b.x);
    }
    return turnings <= 2; // else it winds around more than once
}

/// Cuts off one ear after another: a corner that sticks out, with no other corner in its triangle.
class EarClipper {
public:
    EarClipper(const std::vector<glm::dvec2>& points, std::vector<std::uint32_t>& triangles)
        : points(points), triangles(triangles), next(points.size()), previous(points.size()),
          looksLeft(MOST_LOOKS * points.size()) {
        const std::size_t n = points.size();
        for (std::size_t i = 0; i < n; ++i) {
            next[i] = (i + 1) % n;
            previous[(i + 1) % n] = i;
        }
        for (std::size_t i = 0; i < n; ++i) {
            if (!sticksOut(i)) reflex.push_back(i);
        }
        std::sort(reflex.begin(), reflex.end(),
                  [&](std::size_t a, std::size_t b) { return points[a].x < points[b].x; });
    }

    bool run() {
        std::size_t corner = 0;
        std::size_t waiting = 0; // corners passed since the last ear
        for (std::size_t left = points.size(); left > 3;) {
            // Where all corners have been passed the polygon crosses itself. Any corner is as good as another
            // then.
            const bool stuck = waiting > left;
            if (!stuck && !isEar(corner)) {
                if (looksLeft == 0) return false;
                corner = next[corner];
                ++waiting;
                continue;
            }
            add(corner);
            next[previous[corner]] = next[corner];
            previous[next[corner]] = previous[corner];
            corner = next[next[corner]]; // not the neighbour, or fans of thin triangles come out
            --left;
            waiting = 0;
            if (left % 64 == 0) forgetReflexes();
            last = corner;
        }
        add(last);
        return true;
    }

private:
    const std::vector<glm::dvec2>& points;
    std::vector<std::uint32_t>& triangles;
    std::vector<std::size_t> next, previous;
    /// Corners that do not stick out, or did not when they were looked at last; from left to right.
    std::vector<std::size_t> reflex;
    std::size_t looksLeft;
    std::size_t last = 0;

    bool isGone(std::size_t i) const { return next[previous[i]] != i; }
    bool sticksOut(std::size_t i) const {
        return turn(points[previous[i]], points[i], points[next[i]]) > 0.0;
    }
    void add(std::size_t i) {
        for (const std::size_t corner : {previous[i], i, next[i]})
            triangles.push_back(static_cast<std::uint32_t>(corner));
    }
    void forgetReflexes() {
        std::size_t kept = 0;
        for (const std::size_t i : reflex) {
            if (!isGone(i) && !sticksOut(i)) reflex[kept++] = i;
        }
        reflex.resize(kept);
    }

    bool isEar(std::size_t i) {
        if (!sticksOut(i)) return false;
        const glm::dvec2 &a = points[previous[i]], &b = points[i], &c = points[next[i]];
        const double right = std::max({a.x, b.x, c.x});
        auto other = std::lower_bound(reflex.begin(), reflex.end(), std::min({a.x, b.x, c.x}),
                                      [&](std::size_t r, double left) { return points[r].x < left; });
        for (; other != reflex.end() && points[*other].x <= right; ++other) {
            if (looksLeft == 0) return false;
            --looksLeft;
            const glm::dvec2& p = points[*other];
            // Corners at one place, as where a hole is joined to the rim, are in nobody's way.
            if (p == a || p == b || p == c || isGone(*other)) continue;
            if (turn(a, b, p) >= 0.0 && turn(b, c, p) >= 0.0 && turn(c, a, p) >= 0.0) return false;
        }
        return true;
    }
};

} // namespace

bool triangulate(const std::vector<glm::dvec3>& points, std::vector<std::uint32_t>& triangles) {
    const std::size_t n = points.size();
    if (n == 3) {
        addFan(0, 3, triangles);
        return true;
    }
    const std::vector<glm::dvec2> flat = flatten(points, areaOf(points));
    const bool isFlatFinite = std::all_of(flat.begin(), flat.end(), [](const glm::dvec2& p) {
        return std::isfinite(p.x) && std::isfinite(p.y);
    });
    if (!isFlatFinite) {
        addFan(0, n, triangles);
        return true;
    }
    if (n == 4) {
        addFan(firstCornerOfQuad(flat), 4, triangles);
        return true;
    }
    if (isStrictlyConvex(flat)) {
        addFan(0, n, triangles);
        return true;
    }
    const std::size_t before = triangles.size();
    if (EarClipper(flat, triangles).run()) return true;
    triangles.resize(before);
    return false;
}

} // namespace kel::importer::detail
