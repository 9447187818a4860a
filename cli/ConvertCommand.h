#pragma once

#include <CLI/App.hpp>

#include <functional>
#include <iosfwd>

namespace kelsrc::cli {

/// What a verb works with.
struct Streams {
    std::istream& in;
    std::ostream& out;
    std::ostream& err;
};

/// Runs a verb after the command line was read; returns the exit status.
using Action = std::function<int(const Streams&)>;

/// Adds "convert" with its options to the command line.
Action addConvert(CLI::App& app);

} // namespace kelsrc::cli
