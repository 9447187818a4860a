#pragma once

#include <kel/convert/Compare.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace kel::convert {

/// Many amounts: the largest with its place, and how many are beyond a limit.
struct Tally {
    double largest = 0;
    double limit = 0; ///< of the largest
    std::size_t over = 0;
    std::optional<Point> place;

    void add(double amount, double allowed, const Point& at) {
        const bool isOver = !(amount <= allowed);
        over += isOver;
        if (place && !(amount > largest)) return;
        largest = amount;
        limit = allowed;
        place = at;
    }
};

/// Distances, too: their mean square.
struct DistanceTally : Tally {
    double sum = 0; ///< of squares
    std::size_t samples = 0;

    void add(double distance, double allowed, const Point& at) {
        Tally::add(distance, allowed, at);
        sum += distance * distance;
        ++samples;
    }
};

inline double distanceBetween(const Point& a, const Point& b) {
    double sum = 0;
    for (std::size_t c = 0; c < 3; ++c)
        sum += (a[c] - b[c]) * (a[c] - b[c]);
    if (sum < std::numeric_limits<double>::infinity()) return sum == 0 ? 0.0 : std::sqrt(sum);
    // Numbers that are not finite are equal to themselves.
    for (std::size_t c = 0; c < 3; ++c) {
        if (a[c] != b[c] && !(std::isnan(a[c]) && std::isnan(b[c])))
            return std::numeric_limits<double>::infinity();
    }
    return 0.0;
}

/// As distanceBetween(a, b) <= reach; mostly one coordinate tells that it is not.
inline bool isWithin(const Point& a, const Point& b, double reach) {
    return !(std::abs(a[0] - b[0]) > reach) && !(std::abs(a[1] - b[1]) > reach) &&
           distanceBetween(a, b) <= reach;
}

/// An attribute that two meshes have, and how far it may differ.
class SharedAttribute {
public:
    SharedAttribute(std::string name, const ComparableAttribute& a, const ComparableAttribute& b,
                    const CompareLimits& limits);

    const std::string name;
    DifferenceKind kind = DifferenceKind::ATTRIBUTES;
    Tally tally;
    Tally lengths; ///< of directions, where both sides store some: an angle does not show them

    const ComparableAttribute& ofA() const { return *a; }
    const ComparableAttribute& ofB() const { return *b; }
    /// Between elements of either side: an angle in degrees, or the largest difference of a component.
    double difference(const float* valueA, const float* valueB) const;
    double difference(std::size_t vertexA, std::size_t vertexB) const {
        return difference(&a->values[vertexA * a->components], &b->values[vertexB * b->components]);
    }
    /// How much two that belong together may differ: by the encodings, or by a larger limit.
    bool isWithinReach(double amount, std::size_t vertexA) const {
        return amount <= reach || (amount <= 180.0 && amount <= limitOf(vertexA, true));
    }
    void record(std::size_t vertexA, std::size_t vertexB, const Point& at) {
        const double amount = difference(vertexA, vertexB);
        tally.add(amount, amount <= limit ? limit : limitOf(vertexA, false), at);
        if (comparesLengths) lengths.add(lengthDifference(vertexA, vertexB), std::sqrt(3.0) * loss, at);
    }
    /// For values between vertices.
    void record(double amount, const Point& at) { tally.add(amount, limit, at); }

private:
    double limitOf(std::size_t vertexA, bool asReach) const;
    double lengthDifference(std::size_t vertexA, std::size_t vertexB) const;

    const ComparableAttribute *a, *b;
    bool isDirection = false, isGiven = false, comparesLengths = false;
    double loss = 0; ///< of both encodings together
    double limit = 0, reach = 0;
};

/// How the corners of one primitive meet those of another.
struct Turning {
    std::uint8_t turn = 0;
    bool isReversed = false;
};

/// Two meshes, what of them is compared corner by corner, and what was found.
class CornerComparison {
public:
    /// mostRounding  that is allowed where the origins differ, unless the limits say how much
    CornerComparison(const ComparableMesh& a, const ComparableMesh& b, const CompareLimits& limits,
                     double mostRounding);

    const ComparableMesh &a, &b;
    const std::size_t size; ///< corners per primitive
    double positionLimit = 0;
    double reach = 0; ///< of positions: within it corners belong together
    DistanceTally distances;
    std::vector<SharedAttribute> attributes;

    std::uint32_t cornerOfA(std::size_t primitive, std::size_t corner) const {
        return a.corners[primitive * size + corner];
    }
    std::uint32_t cornerOfB(std::size_t primitive, std::size_t corner, Turning turning) const {
        const std::size_t turn = turning.turn;
        const std::size_t place = turning.isReversed ? turn + size - corner : turn + corner;
        return b.corners[primitive * size + (place < size ? place : place - size)];
    }

    /// The turning that brings all corners within reach; none when there is none.
    ///
    /// withAttributes  and all that belongs to them
    std::optional<Turning> meet(std::size_t primitiveA, std::size_t primitiveB, bool isReversed,
                                bool withAttributes) const;
    /// The sum of the distances of the corners.
    double apart(std::size_t primitiveA, std::size_t primitiveB, Turning turning) const;
    /// Takes two as belonging together: distances and attributes of their corners.
    void record(std::size_t primitiveA, std::size_t primitiveB, Turning turning);
};

} // namespace kel::convert
