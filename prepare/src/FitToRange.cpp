#include <kel/prepare/detail/Steps.h>

#include "MeshBuffers.h"

#include <kel/mesh/AttributeNames.h>
#include <kel/src/format/MetadataKeys.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <stdexcept>

namespace kel::prepare {

namespace {

using detail::AttributePtr;
namespace format = kel::src::format;

struct Range {
    double low = std::numeric_limits<double>::infinity();
    double high = -std::numeric_limits<double>::infinity();

    void include(double value) {
        low = std::min(low, value);
        high = std::max(high, value);
    }
};

using Ranges = std::array<Range, 3>; // the container writer drops wider attributes

/// Which range of an attribute goes onto the box; see fitToRange. NaN and infinities take no part.
Ranges rangesToFit(const std::string& name, const detail::PackedFloats& values, std::size_t components) {
    Ranges ranges;
    for (std::size_t i = 0; i < values.size(); i += components) {
        for (std::size_t c = 0; c < components; ++c) {
            const float value = values.data()[i + c];
            if (std::isfinite(value)) ranges[c].include(static_cast<double>(value));
        }
    }
    if (name == kel::mesh::DEFAULT_NORMALS_NAME) {
        double largest = 1.0;
        for (const Range& range : ranges) {
            if (range.low <= range.high) largest = std::max({largest, -range.low, range.high});
        }
        ranges.fill({-largest, largest});
    } else if (name == "color") {
        for (Range& range : ranges) {
            range.include(0.0);
            range.include(1.0);
        }
    }
    return ranges;
}

/// original = value * scale + offset
struct Inverse {
    double offset = 0.0;
    double scale = 1.0;
};

Inverse inverseOf(const Range& range, const FitOptions& options) {
    const double lower = static_cast<double>(options.lower);
    const double width = static_cast<double>(options.upper) - lower;
    if (!(range.low <= range.high)) return {}; // not one finite value
    double extent = range.high - range.low;
    if (extent == 0.0) {
        // Any extent serves for a single value; with a power of two of about its size nothing is rounded.
        extent = range.low == 0.0 ? 1.0 : std::exp2(std::floor(std::log2(std::fabs(range.low))));
    }
    const double scale = extent / width;
    return {range.low - lower * scale, scale};
}

struct FittedAttribute {
    AttributePtr buffer;
    format::Fit fit;
};

/// cube  the range of positions on a lattice; a side of 0 where there is none
FittedAttribute fitAttribute(const AttributePtr& buffer, const FitOptions& options,
                             const steps::PositionBox& cube) {
    const detail::PackedFloats values(*buffer);
    const std::size_t components = buffer->getComponentCountPerElement();
    FittedAttribute result;
    result.fit.attribute = buffer->getAttributeName();
    Ranges ranges = rangesToFit(result.fit.attribute, values, components);
    for (std::size_t axis = 0; axis < 3 && cube.side > 0.0; ++axis)
        ranges[axis] = {cube.low[axis], cube.low[axis] + cube.side};

    detail::Bytes bytes(values.size() * sizeof(float));
    auto* fitted = reinterpret_cast<float*>(bytes.data());
    for (std::size_t c = 0; c < components; ++c) {
        const Inverse inverse = inverseOf(ranges[c], options);
        result.fit.offset.push_back(inverse.offset);
        result.fit.scale.push_back(inverse.scale);
        const double low = ranges[c].low;
        for (std::size_t i = c; i < values.size(); i += components) {
            const float value = values.data()[i];
            if (!std::isfinite(value)) {
                fitted[i] = value;
                continue;
            }
            const double moved =
                static_cast<double>(options.lower) + (static_cast<double>(value) - low) / inverse.scale;
            // The last bit of the division may lie outside; nothing more than that is cut here.
            fitted[i] = std::min(std::max(static_cast<float>(moved), options.lower), options.upper);
        }
    }
    result.buffer =
        detail::makeAttribute(kel::mesh::FLOAT, components, std::move(bytes), result.fit.attribute);
    return result;
}

using FitsByName = std::map<std::string, format::Fit>;

/// Adds the rules of an earlier record, so that each leads back to the first values. Rules that are so large
/// that a combined one may not stay finite are left out; floats need less.
void record(FitsByName fits, kel::scene::SceneMesh& entry) {
    const std::string* earlier = entry.find(format::metadata::FIT);
    const auto isSmall = [](double number) { return std::fabs(number) <= 1e100; };
    for (const format::Fit& before : format::readFit(earlier ? *earlier : "")) {
        if (!std::all_of(before.offset.begin(), before.offset.end(), isSmall) ||
            !std::all_of(before.scale.begin(), before.scale.end(), isSmall)) {
            continue;
        }
        const auto [known, isNew] = fits.emplace(before.attribute, before);
        format::Fit& fit = known->second;
        if (isNew || fit.scale.size() != before.scale.size()) continue;
        for (std::size_t c = 0; c < before.scale.size(); ++c) {
            fit.offset[c] = fit.offset[c] * before.scale[c] + before.offset[c];
            fit.scale[c] *= before.scale[c];
        }
    }
    std::vector<format::Fit> list;
    for (auto& [name, fit] : fits)
        list.push_back(std::move(fit));
    entry.setMetaData(format::metadata::FIT, format::fitText(list));
}

void requireBox(const FitOptions& box) {
    if (!std::isfinite(box.lower) || !std::isfinite(box.upper) || !(box.lower < box.upper))
        throw std::invalid_argument("The box to fit to needs finite bounds, the lower one first.");
}

} // namespace

std::vector<ClampCount> steps::countClamped(const Scene& scene, const FitOptions& options) {
    requireBox(options);
    const detail::ContainerPreset preset(options.target);
    std::vector<ClampCount> counts;
    for (std::size_t m = 0; m < scene.meshes.size(); ++m) {
        const kel::scene::SceneMesh& entry = scene.meshes[m];
        for (const AttributePtr& buffer : detail::attributesOf(entry.mesh)) {
            if (!buffer || !preset.quantizesFloats(*buffer)) continue;
            const detail::PackedFloats values(*buffer);
            // Written so that NaN counts.
            const auto outside = std::count_if(values.begin(), values.end(), [&](float value) {
                return !(value >= options.lower && value <= options.upper);
            });
            if (outside == 0) continue;
            counts.push_back(
                {m, nameOfMesh(entry), buffer->getAttributeName(), static_cast<std::size_t>(outside)});
        }
    }
    return counts;
}

void steps::fitToRange(Scene& scene, FitReport* report, const FitOptions& options,
                       const std::vector<PositionBox>& boxes) {
    requireBox(options);
    const detail::ContainerPreset preset(options.target);
    FitReport done;
    detail::SharedBuffers<FittedAttribute> shared;
    detail::changeAttributes(scene, [&](std::size_t m, std::vector<AttributePtr>& attributes) {
        FitsByName fits;
        for (AttributePtr& buffer : attributes) {
            if (!buffer || !preset.quantizesFloats(*buffer)) continue;
            const bool isPosition = buffer->getAttributeName() == kel::mesh::DEFAULT_POSITIONS_NAME;
            const PositionBox cube =
                isPosition && !boxes.empty() && buffer->isVec3f() ? boxes.at(m) : PositionBox();
            FittedAttribute fitted =
                shared.of(buffer, [&](const AttributePtr& old) { return fitAttribute(old, options, cube); });
            buffer = std::move(fitted.buffer);
            fits[fitted.fit.attribute] = std::move(fitted.fit);
        }
        if (fits.empty()) return false;
        ++done.meshes;
        done.attributes += fits.size();
        record(std::move(fits), scene.meshes[m]);
        return true;
    });
    if (report) *report = done;
}

} // namespace kel::prepare
