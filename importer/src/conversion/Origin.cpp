#include "Conversion.h"

#include <glm/common.hpp>
#include <glm/geometric.hpp>

#include <algorithm>
#include <array>
#include <cmath>

namespace kel::importer::detail {

namespace {

/// Of all meshes where they stand. A turned mesh counts with the corners of its own box.
///
/// returns  nothing when every position is a float that stays where it is: floats hold them, however far away
std::optional<ModelBox> boxOfRounded(Model& model, const std::vector<Use>& uses) {
    std::vector<std::optional<ModelBox>> boxes(model.meshes.size());
    ModelBox scene;
    bool rounds = false;
    for (const Use& use : uses) {
        if (!boxes[use.mesh]) boxes[use.mesh] = model.boxOf(use.mesh);
        rounds = rounds || boxes[use.mesh]->hasDoubles || use.world != glm::dmat4(1.0);
        const std::array<glm::dvec3, 2> ends{boxes[use.mesh]->low, boxes[use.mesh]->high};
        if (!(ends[0].x <= ends[1].x)) continue;
        for (unsigned corner = 0; corner < 8; ++corner) {
            const glm::dvec4 p(ends[corner & 1].x, ends[corner >> 1 & 1].y, ends[corner >> 2].z, 1.0);
            scene.add(glm::dvec3(use.world * p));
        }
    }
    return rounds ? std::optional(scene) : std::nullopt;
}

/// What an origin is a multiple of, well below the diagonal: a whole power of ten, which people can read, and for small
/// models a power of two. Both have few bits, so that subtracting them from a coordinate mostly rounds nothing.
double originStep(double diagonal) {
    if (diagonal < 1.0) return std::ldexp(1.0, std::ilogb(diagonal) - 2);
    return std::pow(10.0, std::max(0.0, std::floor(std::log10(diagonal)) - 1.0));
}

} // namespace

glm::dvec3 chooseOrigin(Model& model, const std::vector<Use>& uses, const Origin& origin) {
    if (origin.choice == Origin::KEEP) return glm::dvec3(0.0);
    if (origin.choice == Origin::GIVEN) return {origin.at[0], origin.at[1], origin.at[2]};

    const std::optional<ModelBox> box = boxOfRounded(model, uses);
    if (!box || !isTooFarForFloats(*box)) return glm::dvec3(0.0);

    const double step = originStep(glm::length(box->high - box->low));
    const glm::dvec3 middle = box->low + 0.5 * (box->high - box->low);
    const glm::dvec3 chosen = glm::round(middle / step) * step + 0.0; // not -0
    return isFinite(chosen) ? chosen : glm::dvec3(0.0);
}

} // namespace kel::importer::detail
