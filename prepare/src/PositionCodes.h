#pragma once

#include <kel/mesh/AttributeBuffer.h>
#include <kel/mesh/QuantizeVec3.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>

// What the public writer's 16-bit modes make of positions, in the writer's own arithmetic.
namespace kel::prepare::detail {

using PositionCode = std::uint16_t; // of one component
constexpr PositionCode LAST_CODE = std::numeric_limits<PositionCode>::max();

/// Quantizes and decodes one axis.
class CodeAxis {
public:
    CodeAxis() = default;
    CodeAxis(float center, float size)
        : min(center - size * 0.5f), max(center + size * 0.5f),
          scale(static_cast<double>(static_cast<float>(LAST_CODE) / size)),
          offset(static_cast<double>(min) * scale) {}

    PositionCode code(float value) const {
        return kel::mesh::quantizeComponent<float, PositionCode>(value, min, max);
    }
    /// What a reader makes of the code.
    float decoded(PositionCode code) const {
        return static_cast<float>((static_cast<double>(code) + offset) / scale);
    }
    double error(float value) const {
        return static_cast<double>(decoded(code(value))) - static_cast<double>(value);
    }

protected:
    float min = 0.0f;
    float max = 0.0f;
    double scale = 1.0;
    double offset = 0.0;
};

/// An axis whose values are moved first, so that truncation gives each the code that decodes nearest to it:
/// into the middle of that code's bin.
///
/// What defines the box stays: values at its lower end, and at its upper end, which become `end`. That is the
/// upper end itself, or lies a few roundings beyond it where the writer's own roundings, from the ends to
/// centre and size and back, would otherwise take the last code from it. What lies outside the box, as
/// positions can that come before a NaN, and NaN stay as they are.
class RoundedAxis : public CodeAxis {
public:
    RoundedAxis() = default;
    RoundedAxis(float center, float size, float low, float high, float end)
        : CodeAxis(center, size), low(low), high(high), end(end),
          step(static_cast<double>(max - min) / LAST_CODE) {
        const float outer = std::max(std::fabs(min), std::fabs(max));
        const float spacing = std::nextafterf(outer, std::numeric_limits<float>::infinity()) - outer;
        isUsable = min < max && std::isfinite(scale) && scale > 0.0 && std::isfinite(step);
        isFine = step >= 2.0 * static_cast<double>(spacing) && code(end) == LAST_CODE;
    }

    float moved(float value) const {
        if (!(value > low && value < high)) return value == high ? end : value;
        if (!isUsable) return value;
        const double place = static_cast<double>(value) * scale - offset; // not negative but for roundings
        const auto nearest = static_cast<std::int32_t>(std::max(place, 0.0) + 0.5);
        const float middle = nearest >= LAST_CODE
                                 ? end
                                 : std::clamp(static_cast<float>(min + (nearest + 0.5) * step), low, end);
        // Where floats are hardly closer to each other than codes, the middle may belong to another bin.
        if (isFine) return middle;
        return distance(middle, value) < distance(value, value) ? middle : value;
    }

    /// With the value moved, from what it was.
    double error(float value) const {
        return static_cast<double>(decoded(code(moved(value)))) - static_cast<double>(value);
    }

private:
    double distance(float stored, float value) const {
        return std::fabs(static_cast<double>(decoded(code(stored))) - static_cast<double>(value));
    }

    float low = 0.0f, high = 0.0f, end = 0.0f;
    double step = 0.0;
    bool isUsable = false; ///< whether the box has a side that codes can divide
    bool isFine = false;   ///< whether every middle lies in its bin
};

/// The axes as the writer finds them in three-float positions, of which there is at least one.
std::array<CodeAxis, 3> codeAxesOf(const std::shared_ptr<kel::mesh::AttributeBuffer>& positions);
std::array<RoundedAxis, 3> roundedAxesOf(const std::shared_ptr<kel::mesh::AttributeBuffer>& positions);

} // namespace kel::prepare::detail
