#pragma once

#include <iosfwd>

namespace kelsrc::cli {

/// What a stream can show.
struct Terminal {
    bool isTerminal = false; ///< moving the cursor works
    bool colour = false;
    int width = 80; ///< columns
};

/// Only std::cout and std::cerr can be terminals. NO_COLOR, when set and not empty, takes the colours away;
/// TERM=dumb and a missing TERM make a terminal as good as a file.
Terminal terminalOf(const std::ostream& stream);

} // namespace kelsrc::cli
