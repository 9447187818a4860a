#include "ImportLimits.h"

#include <algorithm>
#include <cstdio>
#include <limits>

namespace kel::importer::detail {

namespace {

constexpr double MEBIBYTE = 1024.0 * 1024.0;

} // namespace

double secondsFor(const ImportLimits& limits, std::uint64_t modelBytes) {
    return limits.seconds.value_or(std::max(
        DEFAULT_IMPORT_SECONDS, DEFAULT_IMPORT_SECONDS_PER_MIB * static_cast<double>(modelBytes) / MEBIBYTE));
}

std::uint64_t memoryFor(const ImportLimits& limits, std::uint64_t modelBytes) {
    if (limits.memory) return *limits.memory;
    constexpr std::uint64_t MOST = std::numeric_limits<std::uint64_t>::max() / DEFAULT_IMPORT_MEMORY_PER_BYTE;
    return std::max(DEFAULT_IMPORT_MEMORY, std::min(modelBytes, MOST) * DEFAULT_IMPORT_MEMORY_PER_BYTE);
}

std::string secondsText(double seconds) {
    char text[40];
    std::snprintf(text, sizeof text, "%.6g s", seconds);
    return text;
}

std::string memoryText(std::uint64_t bytes) {
    double number = static_cast<double>(bytes) / MEBIBYTE;
    const char* unit = "MiB";
    if (number >= 1024.0) {
        number /= 1024.0;
        unit = "GiB";
    }
    char text[40];
    std::snprintf(text, sizeof text, "%.1f %s", number, unit);
    return text;
}

} // namespace kel::importer::detail
