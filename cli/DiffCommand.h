#pragma once

#include "ConvertCommand.h"

namespace kelsrc::cli {

/// Adds "diff" with its options to the command line.
Action addDiff(CLI::App& app);

} // namespace kelsrc::cli
