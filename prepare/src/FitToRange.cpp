#include <kel/prepare/FitToRange.h>

#include "Buffers.h"
#include "Presets.h"
#include "TextCheck.h"

#include <kel/src/text/JsonWriter.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <unordered_map>

namespace kel::prepare {

namespace {

using detail::AttributePtr;
using detail::PackedFloats;

constexpr std::size_t MAX_COMPONENTS = 3; // the container writer drops wider attributes

/// original = value * scale + offset
struct Inverse {
    double offset = 0.0;
    double scale = 1.0;
};

struct Fit {
    std::size_t components = 0;
    std::array<Inverse, MAX_COMPONENTS> inverse;
};

struct Range {
    double low = std::numeric_limits<double>::infinity();
    double high = -std::numeric_limits<double>::infinity();

    void include(double value) {
        low = std::min(low, value);
        high = std::max(high, value);
    }
};

using Ranges = std::array<Range, MAX_COMPONENTS>;

void requireBox(const FitOptions& options) {
    if (!std::isfinite(options.lower) || !std::isfinite(options.upper) || !(options.lower < options.upper)) {
        throw std::invalid_argument("The box to fit to needs finite bounds, the lower one first.");
    }
}

bool isQuantized(const AttributePtr& buffer) {
    if (!buffer || buffer->getComponentType() != kel::mesh::FLOAT) return false;
    const std::size_t components = buffer->getComponentCountPerElement();
    if (components == 0 || components > MAX_COMPONENTS) return false;
    return detail::isQuantizedByCmp1(buffer->getAttributeName());
}

/// The smallest and largest finite value of every component.
Ranges rangesOf(const PackedFloats& values, std::size_t components) {
    Ranges ranges;
    const float* value = values.data();
    for (std::size_t i = 0; i < values.size(); i += components) {
        for (std::size_t c = 0; c < components; ++c, ++value) {
            if (std::isfinite(*value)) ranges[c].include(static_cast<double>(*value));
        }
    }
    return ranges;
}

/// Which range of an attribute goes onto the box; see fitToRange.
Ranges rangesToFit(const std::string& name, const PackedFloats& values, std::size_t components) {
    Ranges ranges = rangesOf(values, components);
    if (name == "normal") {
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

AttributePtr fitAttribute(const AttributePtr& buffer, const FitOptions& options, Fit& fit) {
    const PackedFloats values(*buffer);
    const std::string name = buffer->getAttributeName();
    fit.components = buffer->getComponentCountPerElement();
    const Ranges ranges = rangesToFit(name, values, fit.components);

    detail::Bytes bytes(values.size() * sizeof(float));
    auto* fitted = reinterpret_cast<float*>(bytes.data());
    for (std::size_t c = 0; c < fit.components; ++c) {
        const Inverse inverse = fit.inverse[c] = inverseOf(ranges[c], options);
        const double low = ranges[c].low;
        for (std::size_t i = c; i < values.size(); i += fit.components) {
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
    return detail::makeAttribute(kel::mesh::FLOAT, fit.components, std::move(bytes), name);
}

// ---- The record in the metadata -------------------------------------------------------------------------

void appendNumbers(std::string& text, const char* key, const Fit& fit, double Inverse::*number) {
    text += '"';
    text += key;
    text += "\":[";
    for (std::size_t c = 0; c < fit.components; ++c) {
        if (c != 0) text += ',';
        kel::src::text::appendJsonNumber(text, fit.inverse[c].*number);
    }
    text += ']';
}

std::string recordOf(const std::map<std::string, Fit>& fits) {
    std::string text = "{";
    for (const auto& [name, fit] : fits) {
        if (text.size() > 1) text += ',';
        kel::src::text::appendJsonString(text, name);
        text += ":{";
        appendNumbers(text, "offset", fit, &Inverse::offset);
        text += ',';
        appendNumbers(text, "scale", fit, &Inverse::scale);
        text += '}';
    }
    return text + '}';
}

/// Reads an earlier record; what is not of our form is left out.
std::map<std::string, Fit> readRecord(const std::string& text) {
    const picojson::value record = detail::parseChecked(text);
    if (!record.is<picojson::object>()) return {};
    std::map<std::string, Fit> fits;
    for (const auto& [name, entry] : record.get<picojson::object>()) {
        const picojson::value& offset = entry.get("offset");
        const picojson::value& scale = entry.get("scale");
        if (!offset.is<picojson::array>() || !scale.is<picojson::array>()) continue;
        const auto& offsets = offset.get<picojson::array>();
        const auto& scales = scale.get<picojson::array>();
        // Far beyond what floats need, and small enough for the combined rule to stay finite.
        const auto isNumber = [](const picojson::value& value) {
            return value.is<double>() && std::fabs(value.get<double>()) <= 1e100;
        };
        if (offsets.size() != scales.size() || offsets.size() > MAX_COMPONENTS ||
            !std::all_of(offsets.begin(), offsets.end(), isNumber) ||
            !std::all_of(scales.begin(), scales.end(), isNumber)) {
            continue;
        }
        Fit& fit = fits[name];
        fit.components = offsets.size();
        for (std::size_t c = 0; c < fit.components; ++c)
            fit.inverse[c] = {offsets[c].get<double>(), scales[c].get<double>()};
    }
    return fits;
}

void record(std::map<std::string, Fit> fits, std::map<std::string, std::string>& metaData) {
    const auto earlier = metaData.find("fit");
    if (earlier != metaData.end()) {
        for (const auto& [name, before] : readRecord(earlier->second)) {
            const auto [entry, isNew] = fits.emplace(name, before);
            if (isNew || entry->second.components != before.components) continue;
            for (std::size_t c = 0; c < before.components; ++c) {
                Inverse& inverse = entry->second.inverse[c];
                inverse.offset = inverse.offset * before.inverse[c].scale + before.inverse[c].offset;
                inverse.scale *= before.inverse[c].scale;
            }
        }
    }
    metaData["fit"] = recordOf(fits);
}

} // namespace

std::vector<ClampCount> countClamped(const kel::src::SrcWriterInput& input, const FitOptions& options) {
    requireBox(options);
    std::vector<ClampCount> counts;
    for (std::size_t m = 0; m < input.meshes.size(); ++m) {
        const auto& mesh = input.meshes[m];
        if (!mesh) continue;
        for (const AttributePtr& buffer : detail::attributesOf(*mesh)) {
            if (!isQuantized(buffer)) continue;
            const PackedFloats values(*buffer);
            // Written so that NaN counts.
            const auto outside = std::count_if(values.begin(), values.end(), [&](float value) {
                return !(value >= options.lower && value <= options.upper);
            });
            if (outside == 0) continue;
            counts.push_back({m, detail::nameOf(input, mesh), buffer->getAttributeName(),
                              static_cast<std::size_t>(outside)});
        }
    }
    return counts;
}

kel::src::SrcWriterInput fitToRange(const kel::src::SrcWriterInput& input, FitReport* report,
                                    const FitOptions& options) {
    requireBox(options);
    kel::src::SrcWriterInput result = input;
    result.metaData = detail::copyMetaData(input);
    FitReport done;

    struct Fitted {
        AttributePtr buffer;
        Fit fit;
    };
    // A buffer that several meshes share stays shared, a mesh that is listed twice stays one mesh.
    std::unordered_map<AttributePtr, Fitted> buffers;
    std::unordered_map<kel::mesh::MeshPtr, kel::mesh::MeshPtr> meshes;
    for (auto& listed : result.meshes) {
        if (!listed) continue;
        const kel::mesh::MeshPtr mesh = listed;
        const auto known = meshes.find(mesh);
        if (known != meshes.end()) {
            listed = known->second;
            continue;
        }

        std::vector<AttributePtr> attributes = detail::attributesOf(*mesh);
        std::map<std::string, Fit> fits;
        for (AttributePtr& buffer : attributes) {
            if (!isQuantized(buffer)) continue;
            auto [entry, isNew] = buffers.try_emplace(buffer);
            if (isNew) entry->second.buffer = fitAttribute(buffer, options, entry->second.fit);
            fits[buffer->getAttributeName()] = entry->second.fit;
            buffer = entry->second.buffer;
        }
        if (fits.empty()) continue;

        ++done.meshes;
        done.attributes += fits.size();
        listed = std::make_shared<detail::AssembledMesh>(mesh->getPrimitiveType(), mesh->getNumPrimitives(),
                                                         mesh->getIndexBuffer(), std::move(attributes));
        meshes.emplace(mesh, listed);
        const kel::src::MetaDataPtr metaData = detail::moveMeshEntries(result, mesh, listed);
        record(std::move(fits), *metaData);
    }
    if (report) *report = done;
    return result;
}

} // namespace kel::prepare
