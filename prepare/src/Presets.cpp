#include "Presets.h"

#include <kel/src/encoding/EncodingPresets.h>

namespace kel::prepare::detail {

namespace {

/// A copy, so that the registry, which is not synchronised, is asked once. A call from several threads at
/// once needs the first writer's or ours to be over; see getSRCEncodingPreset.
const kel::src::detail::SRCEncodingConfig& cmp1() {
    static const kel::src::detail::SRCEncodingConfig config = kel::src::detail::getSRCEncodingPreset("CMP1");
    return config;
}

} // namespace

bool isInPresets(const std::string& attribute) {
    return cmp1().precision.count(attribute) != 0; // both presets have the same keys
}

bool isQuantizedByCmp1(const std::string& attribute) {
    const auto found = cmp1().precision.find(attribute);
    return found != cmp1().precision.end() && found->second != 32;
}

} // namespace kel::prepare::detail
