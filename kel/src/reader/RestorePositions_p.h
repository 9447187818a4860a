#pragma once

#include <kel/src/SrcFile.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

namespace kel::src::detail {

/// The value nearest to `value` that a quantizer turns back into `code`. Quantizers truncate, so a decoded
/// value, which lies on the lower edge of its code, can fall one code lower; and they subtract the lower end
/// of their range in single precision, so near 0 a next float may be too little. So it is moved by 64ths of a
/// code.
///
/// step     the width of a code
/// codeOf   the quantizer
/// returns  `value` itself when no such value is found
template<typename CodeOf>
float onItsCode(float value, std::uint32_t code, double step, CodeOf&& codeOf) {
    constexpr int MOST_MOVES = 16;
    const auto move = static_cast<float>(step / 64);
    float moved = value;
    for (int i = 0; i < MOST_MOVES; ++i) {
        const std::uint32_t found = codeOf(moved);
        if (found == code) return moved;
        // Far from 0 a 64th of a code may be less than the next float.
        moved = found < code
                    ? std::max(moved + move, std::nextafterf(moved, std::numeric_limits<float>::infinity()))
                    : std::min(moved - move, std::nextafterf(moved, -std::numeric_limits<float>::infinity()));
    }
    return value;
}

/// Moves decoded positions, by less than one code, so that the public writer finds the same box in them and
/// gives them the same codes again. That writer quantizes in the box of the very positions it is given, and a
/// decoded largest position is mostly a little smaller than the original.
///
/// mesh    with the bounds that the writer stored
/// view    three 16-bit codes per element, with decode vectors
/// codes   three per vertex
/// values  the decoded positions, three per vertex
///
/// An axis for which no such positions are found is left as it is.
void restorePositions(const SrcMesh& mesh, const SrcAttributeView& view,
                      const std::vector<std::uint16_t>& codes, std::vector<float>& values);

} // namespace kel::src::detail
