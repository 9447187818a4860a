#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

// How finely each of several meshes is divided, so that positions which they share are the same after it.
namespace kel::prepare::detail {

using LatticePoint = std::array<float, 3>;

/// Along a side of the cube that 16-bit codes divide.
constexpr double LATTICE_CELLS = 65535.0;
/// Of steps: the cube's diagonal has a square that is a float, and its side is not one that the writer
/// widens.
constexpr int LOWEST_EXPONENT = -64;
constexpr int HIGHEST_EXPONENT = 46;

inline double stepOf(int exponent) {
    return std::ldexp(1.0, exponent);
}

/// The exponent of the smallest power of two with which a mesh of this size, moved to the nearest multiples,
/// has a place in the cube; above HIGHEST_EXPONENT when there is none.
int exponentFor(double side);

struct LatticeBox {
    std::array<double, 3> low, high;

    LatticeBox() {
        low.fill(std::numeric_limits<double>::infinity());
        high.fill(-std::numeric_limits<double>::infinity());
    }
    void include(const LatticePoint& at, double margin = 0.0) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            low[axis] = std::min(low[axis], static_cast<double>(at[axis]) - margin);
            high[axis] = std::max(high[axis], static_cast<double>(at[axis]) + margin);
        }
    }
    void include(const LatticeBox& other) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            low[axis] = std::min(low[axis], other.low[axis]);
            high[axis] = std::max(high[axis], other.high[axis]);
        }
    }
    LatticeBox widened(double margin) const {
        LatticeBox wide = *this;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            wide.low[axis] -= margin;
            wide.high[axis] += margin;
        }
        return wide;
    }
    double longestSide() const { return std::max({high[0] - low[0], high[1] - low[1], high[2] - low[2]}); }
    /// The largest distance of its lower corner from 0 along an axis.
    double offset() const { return std::max({std::fabs(low[0]), std::fabs(low[1]), std::fabs(low[2])}); }
};

/// Packed positions of one mesh, all finite.
struct LatticeMesh {
    const float* positions = nullptr;
    std::size_t count = 0; ///< of vertices; at least one
    int exponent = 0;      ///< of the smallest step that it may have; its size fits with it
};

/// Steps, and the positions that meshes share.
class LatticeSteps {
public:
    /// Takes time in proportion to the vertices, and some more for each mesh whose neighbours make its step
    /// larger.
    explicit LatticeSteps(const std::vector<LatticeMesh>& sources);

    /// Of a mesh's step.
    int exponentOf(std::size_t mesh) const { return meshes[mesh].exponent; }
    /// Of the step whose multiple a vertex is moved to: its mesh's, or a larger one of a neighbour.
    int exponentOf(std::size_t mesh, std::size_t vertex) const {
        return positions[meshes[mesh].positionOf[vertex]].exponent;
    }
    /// How many positions several meshes have.
    std::size_t shared() const { return sharedPositions; }

private:
    struct Position {
        LatticePoint at;
        int exponent;
        std::uint32_t firstMember; ///< for a position of several meshes
        std::uint32_t meshCount;
    };
    struct Mesh {
        int exponent = 0;
        LatticeBox box;
        LatticeBox reach;                      ///< no vertex is moved out of it
        std::vector<std::uint32_t> positionOf; ///< by vertex
    };

    void findPositions(const std::vector<LatticeMesh>& sources);
    void listMembers();
    void settle();
    static bool fits(const Mesh& mesh);

    std::vector<Mesh> meshes;
    std::vector<Position> positions;
    std::vector<std::uint32_t> members; ///< the meshes of each position that several have
    std::size_t sharedPositions = 0;
};

} // namespace kel::prepare::detail
