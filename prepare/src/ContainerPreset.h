#pragma once

#include <kel/prepare/Target.h>

#include <kel/mesh/AttributeBuffer.h>
#include <kel/src/encoding/EncodingPresets.h>

#include <mutex>
#include <string>

namespace kel::prepare::detail {

/// What a container target's preset says.
inline kel::src::detail::SRCEncodingConfig presetOf(Target target) {
    // The registry makes entries on first request and is not synchronised; the lock keeps calls of this library
    // from several threads apart.
    static std::mutex registry;
    const std::lock_guard<std::mutex> lock(registry);
    return kel::src::detail::getSRCEncodingPreset(targetName(target));
}

/// What a preset of the container writer stores of attributes, and how.
class ContainerPreset {
public:
    /// `target` is a container target.
    explicit ContainerPreset(Target target) : config(presetOf(target)) {}

    bool knows(const std::string& attribute) const { return config.precision.count(attribute) != 0; }
    bool stores(const kel::mesh::AttributeBuffer& buffer) const {
        return fits(buffer.getComponentCountPerElement()) && hasWidthOfFloats(buffer) &&
               knows(buffer.getAttributeName());
    }
    /// Whether it stores codes instead of floats.
    bool quantizes(const std::string& attribute) const {
        const auto found = config.precision.find(attribute);
        return found != config.precision.end() && found->second != 32;
    }
    /// The same for a buffer: whether the codes are those of its floats.
    bool quantizesFloats(const kel::mesh::AttributeBuffer& buffer) const {
        return buffer.getComponentType() == kel::mesh::FLOAT && fits(buffer.getComponentCountPerElement()) &&
               quantizes(buffer.getAttributeName());
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
