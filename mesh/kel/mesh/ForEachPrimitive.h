#pragma once

#include <kel/mesh/PrimitiveType.h>

#include <array>
#include <cstddef>

namespace kel::mesh {

/// How many corners a primitive has: 1 for points, 2 for lines of all kinds, 3 for triangles of all kinds.
constexpr std::size_t cornersPerPrimitive(PrimitiveType type) {
    return type == POINTS ? 1 : type == LINES || type == LINE_LOOP || type == LINE_STRIP ? 2 : 3;
}

/// How many points, lines or triangles `corners` indices form.
template<typename Count>
constexpr Count primitiveCount(PrimitiveType type, Count corners) {
    switch (type) {
    case LINES:
        return corners / 2;
    case LINE_LOOP:
        return corners < 2 ? 0 : corners;
    case LINE_STRIP:
        return corners < 2 ? 0 : corners - 1;
    case TRIANGLES:
        return corners / 3;
    case TRIANGLE_STRIP:
    case TRIANGLE_FAN:
        return corners < 3 ? 0 : corners - 2;
    case POINTS:
        break;
    }
    return corners;
}

/// How many of `corners` indices these are made of; the others are left over.
template<typename Count>
constexpr Count usedCorners(PrimitiveType type, Count corners) {
    const Count primitives = primitiveCount(type, corners);
    return type == LINES       ? 2 * primitives
           : type == TRIANGLES ? 3 * primitives
           : primitives == 0   ? 0
                               : corners;
}

/// Takes strips, fans and loops apart: calls `primitive` with the positions of its corners in the index list,
/// and how many of the three count, for every point, line or triangle that `corners` indices form. Triangles
/// keep their facing; indices that are left over are ignored.
template<typename Primitive>
void forEachPrimitive(PrimitiveType type, std::size_t corners, const Primitive& primitive) {
    const auto call = [&](std::size_t count, std::size_t a, std::size_t b = 0, std::size_t c = 0) {
        primitive(std::array<std::size_t, 3>{a, b, c}, count);
    };
    switch (type) {
    case POINTS:
        for (std::size_t i = 0; i < corners; ++i)
            call(1, i);
        break;
    case LINES:
        for (std::size_t i = 0; i + 1 < corners; i += 2)
            call(2, i, i + 1);
        break;
    case LINE_LOOP:
    case LINE_STRIP:
        for (std::size_t i = 0; i + 1 < corners; ++i)
            call(2, i, i + 1);
        if (type == LINE_LOOP && corners > 1) call(2, corners - 1, 0);
        break;
    case TRIANGLES:
        for (std::size_t i = 0; i + 2 < corners; i += 3)
            call(3, i, i + 1, i + 2);
        break;
    case TRIANGLE_STRIP:
        for (std::size_t i = 0; i + 2 < corners; ++i)
            call(3, i % 2 == 0 ? i : i + 1, i % 2 == 0 ? i + 1 : i, i + 2);
        break;
    case TRIANGLE_FAN:
        for (std::size_t i = 0; i + 2 < corners; ++i)
            call(3, 0, i + 1, i + 2);
        break;
    }
}

} // namespace kel::mesh
