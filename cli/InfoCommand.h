#pragma once

#include "ConvertCommand.h"

namespace kelsrc::cli {

/// Adds "info" with its options to the command line.
Action addInfo(CLI::App& app);

} // namespace kelsrc::cli
