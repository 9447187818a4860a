#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kel::src::format {

/// The types of one component of a view.
struct ComponentTypeRow {
    std::uint32_t webGL; ///< the WebGL data type code, which the header holds
    std::uint32_t bytes;
    std::string_view name;
    bool forIndices; ///< whether index views may have it
};

/// In the order of their codes.
inline constexpr ComponentTypeRow COMPONENT_TYPES[] = {
    {5120, 1, "BYTE", false}, {5121, 1, "UBYTE", true}, {5122, 2, "SHORT", false}, {5123, 2, "USHORT", true},
    {5124, 4, "INT", false},  {5125, 4, "UINT", true},  {5126, 4, "FLOAT", false},
};
constexpr std::uint32_t FIRST_COMPONENT_TYPE = COMPONENT_TYPES[0].webGL;
constexpr std::size_t COMPONENT_TYPE_COUNT = sizeof COMPONENT_TYPES / sizeof COMPONENT_TYPES[0];

/// The row of a WebGL code; null for any other number.
constexpr const ComponentTypeRow* componentType(std::uint64_t webGL) {
    return webGL - FIRST_COMPONENT_TYPE < COMPONENT_TYPE_COUNT
               ? &COMPONENT_TYPES[webGL - FIRST_COMPONENT_TYPE]
               : nullptr;
}

/// Codes of 17 to 32 bits are stored in slots of three bytes, although their type says UINT. A stride of
/// less than four bytes per component shows it.
constexpr std::uint32_t WIDE_CODE_BYTES = 3;

/// Bytes of the file that one quantized component of 1 to 32 bits takes.
constexpr std::uint32_t codeBytes(std::size_t bits) {
    return bits <= 8 ? 1 : bits <= 16 ? 2 : WIDE_CODE_BYTES;
}

/// WebGL 2 takes the largest index of 16 bits for the start of a new strip. So indices of 16 bits can name
/// this many vertices, numbered from 0.
constexpr std::size_t SHORT_RESTART_INDEX = 65535;
constexpr std::size_t MAX_SHORT_INDEX_VERTICES = SHORT_RESTART_INDEX;

/// How many components an element has, as the header says it: ELEMENT_TYPES[0] has one.
inline constexpr std::string_view ELEMENT_TYPES[] = {"SCALAR", "VEC2", "VEC3", "VEC4"};
constexpr std::size_t MAX_COMPONENTS = sizeof ELEMENT_TYPES / sizeof ELEMENT_TYPES[0];

} // namespace kel::src::format
