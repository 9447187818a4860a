#pragma once

#include <kel/prepare/Target.h>

#include <kel/mesh/AttributeBuffer.h>
#include <kel/src/encoding/EncodingPresets.h>

#include <string>

namespace kel::prepare::detail {

/// What a preset of the container writer stores of attributes, and how.
class ContainerPreset {
public:
    /// `target` is one of the two presets.
    explicit ContainerPreset(Target target);

    bool knows(const std::string& attribute) const { return config.precision.count(attribute) != 0; }
    /// Whether it stores codes instead of floats.
    bool quantizes(const std::string& attribute) const {
        const auto found = config.precision.find(attribute);
        return found != config.precision.end() && found->second != 32;
    }
    /// Whether it has a place for so many components. It drops others, whatever their name.
    static bool fits(std::size_t components) { return components >= 1 && components <= 3; }
    /// It reads every attribute as floats, so all others have to be as wide.
    static bool hasWidthOfFloats(const kel::mesh::AttributeBuffer& buffer) {
        return buffer.getElementSizeInBytes() == buffer.getComponentCountPerElement() * sizeof(float);
    }

private:
    kel::src::detail::SRCEncodingConfig config;
};

} // namespace kel::prepare::detail
