#pragma once

#include <kel/prepare/FitToRange.h>

#include "AssembledMesh.h"
#include "ContainerPreset.h"

#include <cmath>
#include <stdexcept>

namespace kel::prepare::detail {

/// The attributes that "CMP1" quantizes, as floats of a number that it has a place for.
class QuantizedAttributes {
public:
    /// throws  std::invalid_argument for a box that is not one
    explicit QuantizedAttributes(const FitOptions& box) : preset(Target::PRESET_CMP1) {
        if (!std::isfinite(box.lower) || !std::isfinite(box.upper) || !(box.lower < box.upper))
            throw std::invalid_argument("The box to fit to needs finite bounds, the lower one first.");
    }

    bool contain(const AttributePtr& buffer) const {
        return buffer && buffer->getComponentType() == kel::mesh::FLOAT &&
               ContainerPreset::fits(buffer->getComponentCountPerElement()) &&
               preset.quantizes(buffer->getAttributeName());
    }

private:
    ContainerPreset preset;
};

} // namespace kel::prepare::detail
