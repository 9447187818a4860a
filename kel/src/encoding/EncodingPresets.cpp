#include <kel/src/encoding/EncodingPresets.h>

#include <algorithm>
#include <iostream>
#include <iterator>

namespace kel::src::detail {

namespace {

/// Bits per attribute; everything that makes a preset.
struct PresetRow {
    const char* name;
    bool lossless;
    std::uint32_t position, normal, texcoord, color, id;
};

constexpr PresetRow PRESETS[] = {
    {"default", true, 32, 32, 32, 32, 32},
    {"CMP1", false, 16, 8, 16, 8, 32},
};

std::map<std::string, SRCEncodingConfig>& registry() {
    static std::map<std::string, SRCEncodingConfig> presets;
    return presets;
}

} // namespace

SRCEncodingConfig& getSRCEncodingPreset(const std::string& name) {
    const auto found = registry().find(name);
    if (found != registry().end()) return found->second;
    createSRCEncodingPreset(name);
    return registry()[name];
}

void createSRCEncodingPreset(const std::string& name) {
    SRCEncodingConfig& config = registry()[name];
    const auto row = std::find_if(std::begin(PRESETS), std::end(PRESETS),
                                  [&](const PresetRow& preset) { return name == preset.name; });
    if (row == std::end(PRESETS)) {
        std::cerr << "Unable to find SRC encoding preset with name \"" << name
                  << "\". Using default preset instead.\n";
    } else if (!row->lossless) { // the entry of a lossless one is left as it is
        config.lossless = false;
        config.precision["position"] = row->position;
        config.precision["normal"] = row->normal;
        config.precision["texcoord"] = row->texcoord;
        config.precision["color"] = row->color;
        config.precision["id"] = row->id;
    }
}

} // namespace kel::src::detail
