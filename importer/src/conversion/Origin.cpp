#include "Conversion.h"

#include <glm/common.hpp>
#include <glm/geometric.hpp>

#include <algorithm>
#include <array>
#include <cmath>

namespace kel::importer::detail {

namespace {

/// How much of the scene's diagonal rounding a position to a float may cost.
constexpr double LARGEST_LOSS = 1e-6;
constexpr int FLOAT_DIGITS = std::numeric_limits<float>::digits;

void add(ModelBox& box, const glm::dvec3& point) {
    box.low = glm::min(box.low, point);
    box.high = glm::max(box.high, point);
}

/// Of all meshes where they stand. A turned mesh counts with the corners of its own box.
ModelBox boxOfScene(Model& model, const std::vector<Use>& uses) {
    std::vector<std::optional<ModelBox>> boxes(model.meshes.size());
    ModelBox scene;
    for (const Use& use : uses) {
        if (!boxes[use.mesh]) boxes[use.mesh] = model.boxOf(use.mesh);
        const std::array<glm::dvec3, 2> ends{boxes[use.mesh]->low, boxes[use.mesh]->high};
        if (!(ends[0].x <= ends[1].x)) continue;
        for (unsigned corner = 0; corner < 8; ++corner) {
            const glm::dvec4 p(ends[corner & 1].x, ends[corner >> 1 & 1].y, ends[corner >> 2].z, 1.0);
            add(scene, glm::dvec3(use.world * p));
        }
    }
    return scene;
}

/// The farthest that the nearest float can be from a number up to this large.
double largestRounding(double number) {
    return number > 0.0 ? std::ldexp(1.0, std::ilogb(number) - FLOAT_DIGITS) : 0.0;
}

/// The multiple of 10^exponent nearest to the number, as the double nearest to its decimal text.
double rounded(double number, int exponent) {
    const double power = std::pow(10.0, std::abs(exponent));
    const double result =
        exponent < 0 ? std::round(number * power) / power : std::round(number / power) * power;
    return result + 0.0; // not -0
}

} // namespace

glm::dvec3 chooseOrigin(Model& model, const std::vector<Use>& uses, const Origin& origin) {
    if (origin.choice == Origin::KEEP) return glm::dvec3(0.0);
    if (origin.choice == Origin::GIVEN) return {origin.at[0], origin.at[1], origin.at[2]};

    const ModelBox box = boxOfScene(model, uses);
    const glm::dvec3 farthest = glm::max(glm::abs(box.low), glm::abs(box.high));
    const double diagonal = glm::length(box.high - box.low);
    if (!isFinite(farthest) || !(diagonal > 0.0) || !std::isfinite(diagonal)) return glm::dvec3(0.0);
    const double loss = glm::length(
        glm::dvec3(largestRounding(farthest.x), largestRounding(farthest.y), largestRounding(farthest.z)));
    if (loss <= LARGEST_LOSS * diagonal) return glm::dvec3(0.0);

    // Between a hundredth and a tenth of the diagonal: round for people, and near enough to the middle.
    const int exponent = static_cast<int>(std::floor(std::log10(diagonal))) - 1;
    const glm::dvec3 middle = box.low + 0.5 * (box.high - box.low);
    const glm::dvec3 chosen(rounded(middle.x, exponent), rounded(middle.y, exponent),
                            rounded(middle.z, exponent));
    return isFinite(chosen) ? chosen : glm::dvec3(0.0);
}

} // namespace kel::importer::detail
