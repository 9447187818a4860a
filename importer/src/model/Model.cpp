#include "Model.h"

#include <kel/mesh/AttributeNames.h>

#include <glm/common.hpp>
#include <glm/geometric.hpp>

#include <algorithm>
#include <utility>

namespace kel::importer::detail {

namespace {

/// How much of the scene's diagonal rounding a position to a float may cost.
constexpr double LARGEST_LOSS = 1e-6;
constexpr int FLOAT_DIGITS = std::numeric_limits<float>::digits;

/// The farthest that the nearest float can be from a number up to this large.
double largestRounding(double number) {
    return number > 0.0 ? std::ldexp(1.0, std::ilogb(number) - FLOAT_DIGITS) : 0.0;
}

bool isFloat(double number) {
    return static_cast<double>(static_cast<float>(number)) == number || !std::isfinite(number);
}

} // namespace

void ModelBox::add(const glm::dvec3& point) {
    if (!isFinite(point)) return;
    low = glm::min(low, point);
    high = glm::max(high, point);
}

bool isTooFarForFloats(const ModelBox& box) {
    const glm::dvec3 farthest = glm::max(glm::abs(box.low), glm::abs(box.high));
    const double diagonal = glm::length(box.high - box.low);
    if (!isFinite(farthest) || !(diagonal > 0.0) || !std::isfinite(diagonal)) return false;
    const double loss = glm::length(
        glm::dvec3(largestRounding(farthest.x), largestRounding(farthest.y), largestRounding(farthest.z)));
    return loss > LARGEST_LOSS * diagonal;
}

ModelAttribute makePositions(std::vector<double> numbers) {
    ModelAttribute positions{kel::mesh::DEFAULT_POSITIONS_NAME, 3, {}, {}};
    if (std::all_of(numbers.begin(), numbers.end(), isFloat)) {
        positions.values.assign(numbers.begin(), numbers.end());
    } else {
        positions.doubles = std::move(numbers);
    }
    return positions;
}

ModelAttribute makePositionsOfText(std::vector<double> numbers, const std::vector<bool>& isUsed,
                                   const Origin& origin) {
    if (origin.choice == Origin::GIVEN) return makePositions(std::move(numbers));
    ModelBox box;
    for (std::size_t v = 0; v < isUsed.size(); ++v) {
        if (isUsed[v]) box.add({numbers[3 * v], numbers[3 * v + 1], numbers[3 * v + 2]});
    }
    // What overflows a float is to be told as such, which takes the double.
    constexpr double LARGEST = std::numeric_limits<float>::max();
    const glm::dvec3 farthest = glm::max(glm::abs(box.low), glm::abs(box.high));
    const bool overflows =
        box.low.x <= box.high.x && !(std::max({farthest.x, farthest.y, farthest.z}) <= LARGEST);
    if (overflows || isTooFarForFloats(box)) return makePositions(std::move(numbers));
    ModelAttribute positions{kel::mesh::DEFAULT_POSITIONS_NAME, 3, {}, {}};
    positions.values.assign(numbers.begin(), numbers.end());
    return positions;
}

ModelAttribute* ModelPart::normals() {
    const bool there = attributes.size() > 1 && attributes[1].name == kel::mesh::DEFAULT_NORMALS_NAME;
    return there ? &attributes[1] : nullptr;
}

} // namespace kel::importer::detail
