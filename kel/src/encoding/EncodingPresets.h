#pragma once

#include <kel/src/Export.h>

#include <cstdint>
#include <map>
#include <string>

namespace kel::src::detail {

/// With how many bits each vertex attribute is stored. A plain value: writers copy it.
struct SRCEncodingConfig {
    /// True in a fresh configuration, false in "CMP1". Part of a preset's identity; nothing tests it.
    bool lossless = true;

    /// Attribute name to bits per component: 32 stores floats as they are, 1 to 31 quantizes, 0 lets the
    /// encoder choose 8, 16 or 32 from the attribute's extent. An attribute without an entry is not written.
    std::map<std::string, std::uint32_t> precision = {
        {"position", 32}, {"normal", 32}, {"texcoord", 32}, {"color", 32}, {"id", 32}};

    /// True in every configuration made here. Part of a preset's identity; nothing tests it.
    bool enabled = true;
};

/// The process-wide configuration named `name`, made on first use: "default" stores everything as floats,
/// "CMP1" quantizes positions and texture coordinates to 16 bits, normals and colours to 8. An unknown name
/// warns once on standard error and is kept as a copy of the default.
///
/// The reference stays valid for the life of the process; a change through it changes the preset. Not
/// synchronised: first requests must not run concurrently.
KELSRC_EXPORT SRCEncodingConfig& getSRCEncodingPreset(const std::string& name);

/// Makes or remakes the registry's entry for `name`; for an unknown name warns on standard error.
KELSRC_EXPORT void createSRCEncodingPreset(const std::string& name);

} // namespace kel::src::detail
