#pragma once

#include <kel/importer/Importer.h>

#include <cstdint>
#include <string>

namespace kel::importer::detail {

/// The limits that hold for a model of this size. 0 for none.
double secondsFor(const ImportLimits& limits, std::uint64_t modelBytes);
std::uint64_t memoryFor(const ImportLimits& limits, std::uint64_t modelBytes);

/// "60 s", "0.5 s"
std::string secondsText(double seconds);
/// "2.0 GiB", "512.0 MiB"
std::string memoryText(std::uint64_t bytes);

} // namespace kel::importer::detail
