#pragma once

#include <cstdint>

/// The SRC builder library: src::builder assembles a document from arrays, views, meshes and materials, and
/// src::SrcWriter writes it.
namespace src {

// These enums repeat what kel/src/format/ElementTypes.h and kel/mesh/PrimitiveType.h state, because a pipeline may have
// a builder library of its own, whose headers then stand in the place of these. A test holds them equal.

/// Type of one component of a view. The values are the WebGL data type codes.
enum ComponentType : std::uint32_t {
    BYTE = 5120,
    UNSIGNED_BYTE = 5121,
    SHORT = 5122,
    UNSIGNED_SHORT = 5123,
    INT = 5124,
    UNSIGNED_INT = 5125,
    FLOAT = 5126
};

/// How indices form primitives. The values are the WebGL primitive modes.
enum PrimitiveType : std::uint32_t {
    POINTS = 0,
    LINES = 1,
    LINE_LOOP = 2,
    LINE_STRIP = 3,
    TRIANGLES = 4,
    TRIANGLE_STRIP = 5,
    TRIANGLE_FAN = 6
};

// What the builders make. Callers only hand them on.
struct BufferView;
struct AttributeView;
struct IndexView;
struct Material;
struct Mesh;
struct Src;
class Technique;

} // namespace src
