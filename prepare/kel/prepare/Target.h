#pragma once

#include <kel/prepare/Export.h>

namespace kel::prepare {

/// What an input is going to be written as: a preset of the container writer or a mode of the public writer.
enum class Target {
    PRESET_DEFAULT,            ///< container writer, every attribute as floats
    PRESET_CMP1,               ///< container writer, attributes quantized in the box -0.5 to 0.5
    UNCOMPRESSED,              ///< public writer, every attribute as it is stored
    POSITION_COMPRESSED,       ///< public writer, positions in 16 bits, the rest as it is stored
    POSITION_NORMAL_COMPRESSED ///< public writer, positions in 16 bits and normals in 2 bytes, nothing else
};

/// For messages and options: "default", "CMP1", "uncompressed", "position" or "position-normal".
KEL_PREPARE_EXPORT const char* targetName(Target target);

/// True for the two presets.
constexpr bool isContainerTarget(Target target) {
    return target == Target::PRESET_DEFAULT || target == Target::PRESET_CMP1;
}

} // namespace kel::prepare
