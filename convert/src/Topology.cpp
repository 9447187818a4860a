#include "Topology.h"

#include "PointGrid.h"

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <utility>
#include <vector>

namespace kel::convert {

namespace {

/// For each vertex the first one at its position.
std::vector<std::uint32_t> joinedVertices(const ComparableMesh& mesh) {
    std::vector<std::uint32_t> first(mesh.positions.size());
    PointGrid grid(0.0, mesh.positions.size());
    for (std::uint32_t v = 0; v < first.size(); ++v) {
        first[v] = v;
        grid.visit(mesh.positions[v], [&](std::uint32_t other) {
            if (mesh.positions[other] != mesh.positions[v]) return PointGrid::GO_ON;
            first[v] = other;
            return PointGrid::STOP;
        });
        if (first[v] == v) grid.add(mesh.positions[v], v);
    }
    return first;
}

/// Pieces that grow together.
class Pieces {
public:
    explicit Pieces(std::size_t count) : parent(count) { std::iota(parent.begin(), parent.end(), 0u); }

    std::uint32_t of(std::uint32_t v) {
        while (parent[v] != v)
            v = parent[v] = parent[parent[v]];
        return v;
    }
    void join(std::uint32_t a, std::uint32_t b) {
        a = of(a);
        b = of(b);
        parent[std::max(a, b)] = std::min(a, b);
    }

private:
    std::vector<std::uint32_t> parent;
};

} // namespace

Topology topologyOf(const ComparableMesh& mesh) {
    const std::size_t size = mesh.cornersPerPrimitive;
    const std::vector<std::uint32_t> joined = joinedVertices(mesh);
    Pieces pieces(joined.size());
    std::vector<bool> isDrawn(joined.size());
    std::vector<std::uint64_t> edges;
    if (size == 3) edges.reserve(mesh.corners.size());
    for (std::size_t first = 0; first + size <= mesh.corners.size(); first += size) {
        for (std::size_t c = 0; c < size; ++c) {
            const std::uint32_t a = joined[mesh.corners[first + c]];
            const std::uint32_t b = joined[mesh.corners[first + (c + 1) % size]];
            isDrawn[a] = true;
            pieces.join(a, b);
            if (size == 3 && a != b) edges.push_back(std::uint64_t(std::min(a, b)) << 32 | std::max(a, b));
        }
    }
    Topology topology;
    for (std::uint32_t v = 0; v < joined.size(); ++v)
        topology.components += isDrawn[v] && pieces.of(v) == v;
    std::sort(edges.begin(), edges.end());
    for (std::size_t i = 0; i < edges.size();) {
        std::size_t next = i + 1;
        while (next < edges.size() && edges[next] == edges[i])
            ++next;
        topology.boundaryEdges += next - i == 1;
        i = next;
    }
    return topology;
}

} // namespace kel::convert
