#pragma once

#include "ConvertCommand.h"

namespace kelsrc::cli {

/// Adds "export" with its options to the command line.
Action addExport(CLI::App& app);

} // namespace kelsrc::cli
