#pragma once

#include <kel/src/reader/Findings_p.h>

#include <cstddef>
#include <cstdint>

namespace kel::src::detail {

/// What the bytes in front of the header say.
struct Preamble {
    // Where its three numbers begin.
    static constexpr std::size_t SIGNATURE_AT = 0, LAYOUT_AT = 4, HEADER_BYTES_AT = 8;

    std::uint32_t headerBytes = 0;
};

/// Checks the preamble of a file of which `bytes` is the beginning.
///
/// returns  false when a finding was reported that makes the rest unreadable
bool readPreamble(ByteView bytes, const ReadLimits& limits, FindingSink& sink, Preamble& preamble);

} // namespace kel::src::detail
