#include "SurfaceTree.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace kel::convert {

namespace {

constexpr double INFINITE = std::numeric_limits<double>::infinity();
constexpr std::uint32_t LEAF = 6; ///< primitives

Point operator-(const Point& a, const Point& b) {
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}

double dot(const Point& a, const Point& b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

double squaredDistance(const Point& point, const Point& low, const Point& high) {
    double sum = 0;
    for (std::size_t c = 0; c < 3; ++c) {
        const double beyond = std::max({low[c] - point[c], point[c] - high[c], 0.0});
        sum += beyond * beyond;
    }
    return sum;
}

/// Where on the way from a to b the point nearest to the origin is, 0 to 1.
double nearestOnWay(const Point& a, const Point& way) {
    const double length = dot(way, way);
    return length > 0 ? std::clamp(-dot(a, way) / length, 0.0, 1.0) : 0.0;
}

/// The weights of the point of a triangle that is nearest to the origin: where the plane's nearest point lies
/// inside it is that one, else it is on one of the sides.
std::array<double, 3> nearestWeights(const Point& a, const Point& b, const Point& c) {
    const Point ab = b - a, ac = c - a;
    const double abab = dot(ab, ab), acac = dot(ac, ac), abac = dot(ab, ac);
    const double area = abab * acac - abac * abac;
    if (area > 0) {
        const double toB = -dot(a, ab), toC = -dot(a, ac);
        const double v = (acac * toB - abac * toC) / area, w = (abab * toC - abac * toB) / area;
        if (v >= 0 && w >= 0 && v + w <= 1) return {1 - v - w, v, w};
    }
    std::array<double, 3> best{1, 0, 0};
    double least = INFINITE;
    const std::array<const Point*, 3> corners{&a, &b, &c};
    for (std::size_t side = 0; side < 3; ++side) {
        const std::size_t next = (side + 1) % 3;
        const Point way = *corners[next] - *corners[side];
        const double t = nearestOnWay(*corners[side], way);
        double distance = 0;
        for (std::size_t k = 0; k < 3; ++k) {
            const double part = (*corners[side])[k] + t * way[k];
            distance += part * part;
        }
        if (!(distance < least)) continue;
        least = distance;
        best = {};
        best[side] = 1 - t;
        best[next] = t;
    }
    return best;
}

} // namespace

SurfaceTree::SurfaceTree(const ComparableMesh& mesh) : mesh(mesh) {
    const std::size_t size = mesh.cornersPerPrimitive;
    std::vector<Point> middles(mesh.primitives());
    order.reserve(middles.size());
    for (std::uint32_t p = 0; p < middles.size(); ++p) {
        bool isFinite = true;
        for (std::size_t c = 0; c < 3; ++c) {
            for (std::size_t i = 0; i < size; ++i)
                middles[p][c] += mesh.positions[mesh.corners[p * size + i]][c] / static_cast<double>(size);
            isFinite = isFinite && std::isfinite(middles[p][c]);
        }
        if (isFinite) order.push_back(p);
    }
    nodes.reserve(order.size() / 2 + 1);
    if (!order.empty()) build(0, static_cast<std::uint32_t>(order.size()), middles);
}

/// The middle primitive of each range parts it along the longest side of the middles' box.
void SurfaceTree::build(std::uint32_t first, std::uint32_t last, const std::vector<Point>& middles) {
    const std::size_t size = mesh.cornersPerPrimitive;
    const std::size_t place = nodes.size();
    Bounds box, spread;
    for (std::uint32_t i = first; i < last; ++i) {
        spread.add(middles[order[i]]);
        for (std::size_t c = 0; c < size; ++c)
            box.add(mesh.positions[mesh.corners[order[i] * size + c]]);
    }
    nodes.push_back({box.min, box.max, first, last, 0});
    if (last - first <= LEAF) return;
    const Point sides = spread.size();
    const auto axis = static_cast<std::size_t>(std::max_element(sides.begin(), sides.end()) - sides.begin());
    const std::uint32_t half = first + (last - first) / 2;
    const auto at = [&](std::uint32_t i) { return order.begin() + static_cast<std::ptrdiff_t>(i); };
    std::nth_element(at(first), at(half), at(last), [&](std::uint32_t a, std::uint32_t b) {
        return std::make_pair(middles[a][axis], a) < std::make_pair(middles[b][axis], b);
    });
    build(first, half, middles);
    nodes[place].right = static_cast<std::uint32_t>(nodes.size());
    build(half, last, middles);
}

SurfacePoint SurfaceTree::nearestOn(std::uint32_t primitive, const Point& point) const {
    const std::size_t size = mesh.cornersPerPrimitive;
    std::array<Point, 3> corners{};
    for (std::size_t i = 0; i < 3; ++i)
        corners[i] = mesh.positions[mesh.corners[primitive * size + std::min(i, size - 1)]] - point;
    SurfacePoint found{0, primitive, {1, 0, 0}};
    if (size == 3) {
        found.weights = nearestWeights(corners[0], corners[1], corners[2]);
    } else if (size == 2) {
        const double t = nearestOnWay(corners[0], corners[1] - corners[0]);
        found.weights = {1 - t, t, 0};
    }
    Point offset{};
    for (std::size_t i = 0; i < size; ++i) {
        for (std::size_t c = 0; c < 3; ++c)
            offset[c] += found.weights[i] * corners[i][c];
    }
    found.distance = dot(offset, offset);
    return found;
}

template<typename Visit>
void SurfaceTree::visit(const Point& point, const double& limit, const Visit& visitor) const {
    if (nodes.empty()) return;
    // The halves are equal, so no tree is deeper.
    std::array<std::pair<double, std::uint32_t>, 72> open;
    std::size_t count = 0;
    open[count++] = {squaredDistance(point, nodes[0].low, nodes[0].high), 0};
    while (count != 0) {
        const auto [distance, place] = open[--count];
        if (distance > limit) continue;
        const Node& node = nodes[place];
        if (node.right == 0) {
            looked += node.last - node.first;
            for (std::uint32_t i = node.first; i < node.last; ++i)
                visitor(nearestOn(order[i], point));
            continue;
        }
        std::pair<double, std::uint32_t> near{0, place + 1}, far{0, node.right};
        for (auto* child : {&near, &far})
            child->first = squaredDistance(point, nodes[child->second].low, nodes[child->second].high);
        if (far.first < near.first) std::swap(near, far);
        if (far.first <= limit) open[count++] = far;
        open[count++] = near;
    }
}

SurfacePoint SurfaceTree::nearest(const Point& point, std::uint32_t guess) const {
    SurfacePoint best;
    best.distance = INFINITE;
    const auto take = [&](const SurfacePoint& found) {
        if (found.distance < best.distance) best = found;
    };
    if (guess < mesh.primitives()) take(nearestOn(guess, point));
    visit(point, best.distance, take);
    best.distance = std::sqrt(best.distance);
    return best;
}

std::vector<SurfacePoint> SurfaceTree::within(const Point& point, double distance, std::size_t most) const {
    std::vector<SurfacePoint> nearest; // a heap, the farthest in front
    double limit = distance * distance * (1 + 4 * std::numeric_limits<double>::epsilon());
    const auto isNearer = [](const SurfacePoint& a, const SurfacePoint& b) {
        return std::make_pair(a.distance, a.primitive) < std::make_pair(b.distance, b.primitive);
    };
    visit(point, limit, [&](const SurfacePoint& found) {
        if (!(found.distance <= limit)) return;
        if (nearest.size() == most) {
            if (!isNearer(found, nearest.front())) return;
            std::pop_heap(nearest.begin(), nearest.end(), isNearer);
            nearest.pop_back();
        }
        nearest.push_back(found);
        std::push_heap(nearest.begin(), nearest.end(), isNearer);
        if (nearest.size() == most) limit = nearest.front().distance;
    });
    for (SurfacePoint& found : nearest)
        found.distance = std::sqrt(found.distance);
    return nearest;
}

} // namespace kel::convert
