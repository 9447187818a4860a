#pragma once

#include "ConvertCommand.h"

namespace kelsrc::cli {

/// Adds "view" with its options to the command line.
Action addView(CLI::App& app);

} // namespace kelsrc::cli
