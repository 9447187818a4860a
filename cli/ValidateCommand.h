#pragma once

#include "ConvertCommand.h"

namespace kelsrc::cli {

/// Adds "validate" with its options to the command line.
Action addValidate(CLI::App& app);

} // namespace kelsrc::cli
