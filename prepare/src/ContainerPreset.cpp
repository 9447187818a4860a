#include "ContainerPreset.h"

#include <mutex>

namespace kel::prepare::detail {

namespace {

/// A copy of the registry's entry. The registry makes entries on first request and is not synchronised; the
/// lock keeps calls of this library from several threads apart.
kel::src::detail::SRCEncodingConfig configOf(Target target) {
    static std::mutex registry;
    const std::lock_guard<std::mutex> lock(registry);
    return kel::src::detail::getSRCEncodingPreset(targetName(target));
}

} // namespace

ContainerPreset::ContainerPreset(Target target) : config(configOf(target)) {}

} // namespace kel::prepare::detail
