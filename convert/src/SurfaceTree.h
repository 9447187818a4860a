#pragma once

#include <kel/convert/ComparableScene.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace kel::convert {

/// A point on a triangle, line or point of a mesh.
struct SurfacePoint {
    double distance = 0; ///< from the point that was asked for
    std::uint32_t primitive = 0;
    std::array<double, 3> weights{}; ///< of the corners, sum 1
};

/// The primitives of a mesh as a tree of boxes, which finds what is nearest to a point. Corners that are not
/// finite are left out. Takes n log n time to build.
class SurfaceTree {
public:
    explicit SurfaceTree(const ComparableMesh& mesh);

    /// How many primitives were looked at so far. A point far away from the surface may take many of them.
    std::size_t effort() const { return looked; }
    /// Infinitely far when there is nothing.
    ///
    /// guess  a primitive that may be near; the result is the same whichever it is, but for equally near ones
    SurfacePoint nearest(const Point& point, std::uint32_t guess = 0) const;
    /// The nearest ones, up to `most`, that are no farther than `distance`.
    std::vector<SurfacePoint> within(const Point& point, double distance, std::size_t most) const;

private:
    struct Node {
        Point low, high;
        std::uint32_t first, last; ///< of `order`
        std::uint32_t right;       ///< the second child, 0 for a leaf; the first one is the next node
    };

    void build(std::uint32_t first, std::uint32_t last, const std::vector<Point>& middles);
    /// With the square of the distance.
    SurfacePoint nearestOn(std::uint32_t primitive, const Point& point) const;
    /// Visits the primitives of boxes that are no farther than the root of `limit`, which the visitor may
    /// lower.
    template<typename Visit>
    void visit(const Point& point, const double& limit, const Visit& visitor) const;

    const ComparableMesh& mesh;
    std::vector<std::uint32_t> order; ///< primitives by leaf
    std::vector<Node> nodes;
    mutable std::size_t looked = 0;
};

} // namespace kel::convert
