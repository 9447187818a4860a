#include "CornerComparison.h"

#include "MeshFacts.h"

#include <kel/mesh/AttributeNames.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

namespace kel::convert {

namespace {

constexpr double DEGREES = 180.0 / 3.14159265358979323846;
/// Codes of directions decode in single precision.
constexpr double ANGLE_ROUNDING = 0.01;

bool startsWith(const std::string& text, const char* beginning) {
    return text.compare(0, std::strlen(beginning), beginning) == 0;
}

double lengthOf(const float* v) {
    return std::hypot(static_cast<double>(v[0]), static_cast<double>(v[1]), static_cast<double>(v[2]));
}

} // namespace

SharedAttribute::SharedAttribute(std::string name, const ComparableAttribute& a, const ComparableAttribute& b,
                                 const CompareLimits& limits)
    : name(std::move(name)), a(&a), b(&b), loss(a.loss + b.loss) {
    std::optional<double> given;
    if (this->name == kel::mesh::DEFAULT_NORMALS_NAME && a.components == 3) {
        kind = DifferenceKind::NORMALS;
        isDirection = true;
        given = limits.normalDegrees;
        // A component's loss turns a unit vector by this.
        reach = a.lossDegrees + b.lossDegrees;
        if (loss > 0) reach += std::asin(std::min(1.0, std::sqrt(3.0) * loss)) * DEGREES;
        if (reach > 0) reach += ANGLE_ROUNDING;
    } else {
        if (startsWith(this->name, "color")) {
            kind = DifferenceKind::COLORS;
            given = limits.color;
        } else if (startsWith(this->name, "texcoord")) {
            kind = DifferenceKind::TEXCOORDS;
            given = limits.texcoord;
        }
        reach = loss;
    }
    isGiven = given.has_value();
    comparesLengths = isDirection && !isGiven && a.lossDegrees + b.lossDegrees == 0.0;
    limit = given.value_or(reach);
    reach = std::max(reach, limit);
}

double SharedAttribute::limitOf(std::size_t vertexA, bool asReach) const {
    const double plain = asReach ? reach : limit;
    if (!isDirection || !(loss > 0) || (isGiven && !asReach)) return plain;
    // A component's loss turns a short vector farther.
    const double length = lengthOf(&a->values[vertexA * a->components]);
    if (length >= 1.0) return plain;
    const double sine = length > 0 ? std::min(1.0, std::sqrt(3.0) * loss / length) : 1.0;
    return std::max(plain, a->lossDegrees + b->lossDegrees + std::asin(sine) * DEGREES + ANGLE_ROUNDING);
}

double SharedAttribute::lengthDifference(std::size_t vertexA, std::size_t vertexB) const {
    const float *valueA = &a->values[vertexA * 3], *valueB = &b->values[vertexB * 3];
    if (std::memcmp(valueA, valueB, 3 * sizeof(float)) == 0) return 0.0;
    const double off = std::abs(lengthOf(valueA) - lengthOf(valueB));
    return std::isfinite(off) ? off : 0.0; // not a direction on one side, which the angle tells
}

double SharedAttribute::difference(const float* valueA, const float* valueB) const {
    if (std::memcmp(valueA, valueB, a->components * sizeof(float)) == 0) return 0.0;
    if (isDirection) {
        const double lengthA = lengthOf(valueA), lengthB = lengthOf(valueB);
        if (lengthA == 0 || lengthB == 0) // an encoding of directions has none for no direction
            return lengthA == lengthB || loss > 0 || a->lossDegrees + b->lossDegrees > 0 ? 0.0 : 180.0;
        const double angle = degreesBetween(valueA, valueB);
        return std::isnan(angle) ? 180.0 : angle;
    }
    double largest = 0;
    for (std::size_t c = 0; c < a->components; ++c) {
        const double part = std::abs(static_cast<double>(valueA[c]) - static_cast<double>(valueB[c]));
        if (std::isnan(part)) return std::numeric_limits<double>::infinity();
        largest = std::max(largest, part);
    }
    return largest;
}

CornerComparison::CornerComparison(const ComparableMesh& a, const ComparableMesh& b,
                                   const CompareLimits& limits, double mostRounding)
    : a(a), b(b), size(a.cornersPerPrimitive) {
    const double loss = a.positionLoss + b.positionLoss;
    const double rounding = a.origin != b.origin ? a.positionRounding + b.positionRounding : 0.0;
    positionLimit = limits.position.value_or(loss + std::min(rounding, mostRounding));
    reach = std::max(loss + rounding, positionLimit);
    for (const auto& [name, attribute] : a.attributes) {
        const auto other = b.attributes.find(name);
        if (other != b.attributes.end() && other->second.components == attribute.components)
            attributes.emplace_back(name, attribute, other->second, limits);
    }
}

std::optional<Turning> CornerComparison::meet(std::size_t primitiveA, std::size_t primitiveB, bool isReversed,
                                              bool withAttributes) const {
    for (std::uint8_t turn = 0; turn < size; ++turn) {
        const Turning turning{turn, isReversed};
        bool meets = true;
        for (std::size_t c = 0; c < size && meets; ++c)
            meets = isWithin(a.positions[cornerOfA(primitiveA, c)],
                             b.positions[cornerOfB(primitiveB, c, turning)], reach);
        if (!meets) continue;
        for (auto attribute = attributes.begin(); withAttributes && meets && attribute != attributes.end();
             ++attribute) {
            for (std::size_t c = 0; c < size && meets; ++c) {
                const std::uint32_t vertexA = cornerOfA(primitiveA, c);
                const double amount = attribute->difference(vertexA, cornerOfB(primitiveB, c, turning));
                meets = attribute->isWithinReach(amount, vertexA);
            }
        }
        if (meets) return turning;
    }
    return std::nullopt;
}

double CornerComparison::apart(std::size_t primitiveA, std::size_t primitiveB, Turning turning) const {
    double sum = 0;
    for (std::size_t c = 0; c < size; ++c)
        sum += distanceBetween(a.positions[cornerOfA(primitiveA, c)],
                               b.positions[cornerOfB(primitiveB, c, turning)]);
    return sum;
}

void CornerComparison::record(std::size_t primitiveA, std::size_t primitiveB, Turning turning) {
    for (std::size_t c = 0; c < size; ++c) {
        const std::uint32_t vertexA = cornerOfA(primitiveA, c), vertexB = cornerOfB(primitiveB, c, turning);
        const Point& at = a.positions[vertexA];
        distances.add(distanceBetween(at, b.positions[vertexB]), positionLimit, at);
        for (SharedAttribute& attribute : attributes)
            attribute.record(vertexA, vertexB, at);
    }
}

} // namespace kel::convert
