#pragma once

#include <kel/convert/ComparableScene.h>
#include <kel/convert/Export.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kel::convert {

/// What is compared. Each kind can be left out.
enum class DifferenceKind : std::uint8_t {
    MESHES,      ///< which meshes there are
    NAMES,       ///< what they are called
    POSITIONS,   ///< distance of the surfaces, lines or points, and of vertices that belong together
    ORIENTATION, ///< triangles that face the other way
    TOPOLOGY,    ///< which triangles, lines or points there are, and what they join
    NORMALS,     ///< angles
    COLORS,
    TEXCOORDS,
    ATTRIBUTES, ///< all others, and which there are
    MATERIALS,
    METADATA,
    TEXTURES ///< how many the models name
};

/// For messages and options: "meshes", "names", "positions" and so on.
KEL_CONVERT_EXPORT const char* kindName(DifferenceKind kind);
/// All kinds, in the order of the enumeration.
KEL_CONVERT_EXPORT const std::vector<DifferenceKind>& allDifferenceKinds();

/// How much may differ. Without a number it is what the encodings of the two sides may lose: nothing where
/// both store floats, a step where one stores codes.
struct CompareLimits {
    std::optional<double> position;      ///< in units of the files
    std::optional<double> normalDegrees; ///< between normals
    std::optional<double> color;         ///< in a component
    std::optional<double> texcoord;      ///< in a component
    std::vector<DifferenceKind> ignored; ///< kinds that are no differences
};

/// One thing that differs by more than its limit.
struct Difference {
    DifferenceKind kind = DifferenceKind::MESHES;
    /// Its name in A, or in B where A lacks it; where it has none its node, or "#" and its position from 0.
    /// Empty for the file as a whole.
    std::string mesh;
    std::string what;      ///< the attribute, material parameter or key of metadata; else empty
    std::string detail;    ///< what was found, for people, without the mesh
    double amount = 0;     ///< the largest: a distance, an angle in degrees, a difference of numbers, a count
    double limit = 0;      ///< that the amount was compared with; 0 for counts
    std::size_t count = 0; ///< corners, primitives or meshes that differ
    std::optional<Point> place; ///< where the largest is, or the first; in A where A has it
};

/// A sentence for people: mesh, kind, amount, place.
KEL_CONVERT_EXPORT std::string describe(const Difference& difference);

/// How the primitives of two meshes were brought together.
enum class ComparedBy : std::uint8_t {
    ORDER,  ///< each with the one at its place in the list
    MATCH,  ///< each with an equal one, wherever it stands
    SURFACE ///< some have no equal one: points of each side with the surface of the other
};

/// Edges of primitives, after vertices at equal positions were joined.
struct Topology {
    std::size_t boundaryEdges = 0; ///< of triangles: used by exactly one of them
    std::size_t components = 0;    ///< pieces that share no vertex

    Topology& operator+=(const Topology& other) {
        boundaryEdges += other.boundaryEdges;
        components += other.components;
        return *this;
    }
};

/// Meshes of both sides that were compared with each other.
struct ComparedPair {
    std::string name;
    std::size_t meshesA = 1, meshesB = 1; ///< several are compared as one
    ComparedBy by = ComparedBy::ORDER;
    double maxDistance = 0, rmsDistance = 0; ///< in units of the model; infinite where values are not finite
    double maxAngle = 0;                     ///< between normals, in degrees; 0 where a side has none
    double maxColor = 0, maxTexcoord = 0;    ///< differences of a component
    std::size_t samples = 0;                 ///< how many distances there are
};

struct ComparedSide {
    GeometryCounts counts;
    Bounds bounds; ///< of the vertices that are drawn
    Topology topology;
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
    double maxDistance = 0, rmsDistance = 0, maxAngle = 0, maxColor = 0, maxTexcoord = 0;
    std::size_t worst = 0;                             ///< the pair with the largest distance
    std::map<std::string, DifferenceCount> attributes; ///< that not both have
    std::map<std::string, DifferenceCount>
        materials; ///< parameters that differ; "" stands for a whole material
    std::map<std::string, DifferenceCount> metadata; ///< keys that differ
    bool isExact = true;                             ///< no position, attribute or primitive differs at all
    /// Beyond the limits, pair by pair. What an encoding has no place for is counted above and is none.
    std::vector<Difference> differences;

    bool sameMeshes() const { return missing.empty() && added.empty(); }
    bool same() const { return differences.empty(); }
};

/// Compares two scenes.
///
/// **Meshes** belong together by name and kind of primitive. The pieces of a mesh that was cut are joined by
/// their "part" and "parts" before. Of one name, meshes with equal box, number of primitives and attributes
/// meet, then those of one node, then in order. Where a name stands for different numbers of meshes, all that
/// have it are compared as one. Meshes whose name only one side has are paired likewise when both sides have
/// equally many of them; when not a single name is on both sides, each side's meshes are compared as one. All
/// that is left is missing or added.
///
/// **Primitives** belong together when their corners do within the limits, in the order of the lists first,
/// wherever they stand then; a triangle may begin at another corner. Of those that are left, triangles that
/// fit with their corners turned round face the other way. What is left then has no equal on the other side:
/// its vertices, and points on it by area, are measured to the surface of the other side, both ways. A
/// primitive that is smaller than what an encoding may move its corners by is only measured.
///
/// All in doubles. Takes n log n time at most, and gives the same result for the same scenes.
KEL_CONVERT_EXPORT CompareReport compare(const ComparableScene& a, const ComparableScene& b,
                                         const CompareLimits& limits = {});

} // namespace kel::convert
