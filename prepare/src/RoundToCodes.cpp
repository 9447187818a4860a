#include <kel/prepare/detail/Steps.h>

#include "MeshBuffers.h"
#include "PositionCodes.h"

#include <kel/mesh/AttributeNames.h>
#include <kel/mesh/detail/AttributeBufferDataView.h>
#include <kel/src/MeshUtils.h>
#include <kel/src/encoding/Quantization.h>
#include <kel/src/format/MetadataKeys.h>

#include <glm/vec3.hpp>

#include <optional>

namespace kel::prepare {

namespace detail {

namespace {

struct Box {
    glm::vec3 center, size;
};

Box boxOf(const AttributePtr& positions) {
    Box box{};
    kel::src::detail::computeBoundingBoxCenterSize(positions, box.center, box.size);
    return box;
}

/// The box that the writer finds in positions that reach from one corner to the other.
Box boxOf(const glm::vec3& low, const glm::vec3& high) {
    const auto corners =
        std::make_shared<kel::mesh::detail::TypedBufferData<glm::vec3>>(std::vector<glm::vec3>{low, high});
    return boxOf(std::make_shared<kel::mesh::detail::AttributeBufferDataView>(
        kel::mesh::FLOAT, 3, sizeof(glm::vec3), 0, corners, kel::mesh::DEFAULT_POSITIONS_NAME));
}

/// The upper end of an axis, or the first place beyond it that gets the last code.
float endOf(const glm::vec3& low, const glm::vec3& high, int axis) {
    constexpr int MOST_MOVES = 16; // in quarters of a rounding of the larger end
    const Box box = boxOf(low, high);
    // A side that the writer widened does not depend on where its end lies.
    if (box.size[axis] != high[axis] - low[axis]) return high[axis];
    const float outer = std::max(std::fabs(low[axis]), std::fabs(high[axis]));
    const float quarter = 0.25f * (std::nextafterf(outer, std::numeric_limits<float>::infinity()) - outer);
    glm::vec3 end = high;
    for (int i = 0; i <= MOST_MOVES; ++i) {
        end[axis] = high[axis] + static_cast<float>(i) * quarter;
        const Box moved = boxOf(low, end);
        if (CodeAxis(moved.center[axis], moved.size[axis]).code(end[axis]) == LAST_CODE) return end[axis];
    }
    return high[axis];
}

} // namespace

std::array<CodeAxis, 3> codeAxesOf(const AttributePtr& positions) {
    const auto [center, size] = boxOf(positions);
    return {CodeAxis(center.x, size.x), CodeAxis(center.y, size.y), CodeAxis(center.z, size.z)};
}

std::array<RoundedAxis, 3> roundedAxesOf(const AttributePtr& positions) {
    glm::vec3 low, high;
    kel::src::detail::computeBoundingBoxMinMax(positions, low, high);
    const glm::vec3 end(endOf(low, high, 0), endOf(low, high, 1), endOf(low, high, 2));
    const Box box = boxOf(low, end);
    const auto axis = [&](int a) { return RoundedAxis(box.center[a], box.size[a], low[a], high[a], end[a]); };
    return {axis(0), axis(1), axis(2)};
}

} // namespace detail

namespace {

using detail::AttributePtr;

/// A copy of a buffer of floats with each moved by move(value, component).
template<typename Move>
AttributePtr movedValues(const AttributePtr& buffer, const Move& move) {
    const detail::PackedFloats values(*buffer);
    const std::size_t components = buffer->getComponentCountPerElement();
    detail::Bytes bytes(values.size() * sizeof(float));
    auto* moved = reinterpret_cast<float*>(bytes.data());
    for (std::size_t i = 0; i < values.size(); i += components) {
        for (std::size_t c = 0; c < components; ++c)
            moved[i + c] = move(values.data()[i + c], c);
    }
    return detail::makeAttribute(kel::mesh::FLOAT, components, std::move(bytes), buffer->getAttributeName());
}

AttributePtr movedPositions(const AttributePtr& positions) {
    const auto axes = detail::roundedAxesOf(positions);
    return movedValues(positions, [&](float value, std::size_t axis) { return axes[axis].moved(value); });
}

/// Into the middles of the bins of a preset that quantizes, whose box reaches from -0.5 to 0.5.
AttributePtr movedInBox(const AttributePtr& buffer, unsigned int bits) {
    constexpr double LOWER = -0.5, UPPER = 0.5;
    const double last = kel::src::detail::getMaxCode(bits);
    return movedValues(buffer, [&](float value, std::size_t) {
        const auto exact = static_cast<double>(value);
        if (!(exact > LOWER && exact < UPPER)) return value;
        const double nearest = static_cast<std::int32_t>((exact - LOWER) * last + 0.5);
        return static_cast<float>(nearest >= last ? UPPER : LOWER + (nearest + 0.5) / last);
    });
}

} // namespace

void steps::roundToCodes(Scene& scene, Target target, RoundReport* report) {
    RoundReport done;
    if (report) *report = done;
    if (target == Target::UNCOMPRESSED) return;
    std::optional<detail::ContainerPreset> preset;
    if (isContainerTarget(target)) preset.emplace(target);

    detail::SharedBuffers<AttributePtr> shared;
    detail::changeAttributes(scene, [&](std::size_t m, std::vector<AttributePtr>& attributes) {
        // Every position is on a code of its own already.
        if (!preset && scene.meshes[m].find(kel::src::format::metadata::BOUNDS)) return false;
        std::size_t moved = 0;
        for (AttributePtr& buffer : attributes) {
            if (!buffer || buffer->getElementCount() == 0) continue;
            if (preset) {
                if (!preset->quantizesFloats(*buffer)) continue;
                const unsigned int bits = preset->bitsOf(buffer->getAttributeName());
                buffer = shared.of(buffer, [&](const AttributePtr& old) { return movedInBox(old, bits); });
            } else {
                if (buffer->getAttributeName() != kel::mesh::DEFAULT_POSITIONS_NAME ||
                    !kel::src::detail::isAttributeVec3f(buffer))
                    continue;
                buffer = shared.of(buffer, movedPositions);
            }
            ++moved;
        }
        done.meshes += moved != 0;
        done.attributes += moved;
        return moved != 0;
    });
    if (report) *report = done;
}

} // namespace kel::prepare
