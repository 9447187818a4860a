#pragma once

#include <cstddef>

namespace kel::prepare {

// clang-format off
/// What an input is going to be written as, each in one row:
///
///     X(ENUMERATOR, name in messages and options, whether its writer is the container writer)
///
/// A container target is written with the encoding preset of its name, which says what is quantized, always in
/// the box -0.5 to 0.5. The others are the modes of the public writer.
#define KEL_PREPARE_TARGETS(X) \
    X(PRESET_DEFAULT, "default", true)       /* every attribute as floats */ \
    X(PRESET_CMP1, "CMP1", true)             /* attributes quantized to 16 and 8 bits */ \
    X(UNCOMPRESSED, "uncompressed", false)   /* every attribute as it is stored */ \
    X(POSITION_COMPRESSED, "position", false) /* positions in 16 bits, the rest as it is stored */ \
    X(POSITION_NORMAL_COMPRESSED, "position-normal", false) /* positions in 16 bits, normals in 2 bytes, nothing else */
// clang-format on

enum class Target {
#define KEL_PREPARE_TARGET(target, name, isContainer) target,
    KEL_PREPARE_TARGETS(KEL_PREPARE_TARGET)
#undef KEL_PREPARE_TARGET
};

/// One row of the table.
struct TargetInfo {
    Target target;
    const char* name;
    bool isContainer;
};

inline constexpr TargetInfo TARGETS[] = {
#define KEL_PREPARE_TARGET(target, name, isContainer) {Target::target, name, isContainer},
    KEL_PREPARE_TARGETS(KEL_PREPARE_TARGET)
#undef KEL_PREPARE_TARGET
};

/// For messages and options: "default", "CMP1", "uncompressed", "position" or "position-normal".
constexpr const char* targetName(Target target) {
    return TARGETS[static_cast<std::size_t>(target)].name;
}

/// True for the presets of the container writer.
constexpr bool isContainerTarget(Target target) {
    return TARGETS[static_cast<std::size_t>(target)].isContainer;
}

} // namespace kel::prepare
