#pragma once

#include <kel/convert/ComparableScene.h>
#include <kel/convert/Export.h>

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace kel::convert {

/// Meshes of both sides that were compared with each other.
struct ComparedPair {
    std::string name;
    std::size_t meshesA = 1, meshesB = 1; ///< several are compared as one
    /// True: corner by corner, in the order of the primitives. False: each vertex with the nearest one of the
    /// other side, both ways.
    bool byOrder = true;
    double maxDistance = 0, rmsDistance = 0; ///< in units of the model; infinite where values are not finite
    double maxAngle = 0;                     ///< between normals, in degrees; 0 where a side has none
    std::size_t samples = 0;                 ///< how many distances there are
};

struct ComparedSide {
    GeometryCounts counts;
    Bounds bounds; ///< of the vertices that are drawn
};

/// How many pairs of meshes differ in one thing.
struct DifferenceCount {
    std::size_t onlyA = 0, onlyB = 0, differ = 0;
    double largest = 0; ///< difference of numbers
};

struct CompareReport {
    ComparedSide a, b;
    std::vector<ComparedPair> pairs;
    std::vector<std::string> missing; ///< names of meshes that only A has
    std::vector<std::string> added;   ///< names of meshes that only B has
    double maxDistance = 0, rmsDistance = 0, maxAngle = 0;
    std::size_t worst = 0;                             ///< the pair with the largest distance
    std::map<std::string, DifferenceCount> attributes; ///< that not both have
    std::map<std::string, DifferenceCount>
        materials; ///< parameters that differ; "" stands for a whole material
    std::map<std::string, DifferenceCount> metadata; ///< keys that differ

    bool sameMeshes() const { return missing.empty() && added.empty(); }
};

/// Compares two scenes as geometry.
///
/// Meshes belong together by name and kind of primitive, and those of one name in their order. Where a name
/// stands for different numbers of meshes, all that have it are compared as one, so that a mesh which was cut
/// into parts meets its parts. Meshes whose name only one side has are paired in their order when both sides
/// have equally many of them; when not a single name is on both sides, each side's meshes are compared as
/// one. All that is left is missing or added.
///
/// Two meshes of equally many primitives are compared corner by corner; a triangle may begin at another
/// corner. When that gives more than a fiftieth of the diagonal, or the primitives are of another number,
/// each vertex is compared with the nearest one of the other side, and the other way round; of equally near
/// ones the normal that fits best counts. Takes n log n time at most.
KEL_CONVERT_EXPORT CompareReport compare(const ComparableScene& a, const ComparableScene& b);

} // namespace kel::convert
