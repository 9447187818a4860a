#include <kel/src/encoding/EncodingPresets.h>

#include <iostream>

namespace kel::src::detail {

namespace {

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
    if (name == "CMP1") {
        config.lossless = false;
        config.precision["position"] = 16;
        config.precision["normal"] = 8;
        config.precision["texcoord"] = 16;
        config.precision["color"] = 8;
        config.precision["id"] = 32;
    } else if (name != "default") {
        std::cerr << "Unable to find SRC encoding preset with name \"" << name
                  << "\". Using default preset instead.\n";
    }
}

} // namespace kel::src::detail
