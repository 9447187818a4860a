#include "CopyLimit.h"

#include <algorithm>
#include <cstdio>

namespace kel::importer::detail {

namespace {

/// What a further use takes besides numbers: the mesh itself, its name and its metadata.
constexpr double BYTES_PER_USE = 1024.0;

std::string rounded(double number) {
    char text[320];
    std::snprintf(text, sizeof text, "%.0f", number);
    return text;
}

std::string megabytes(double bytes) {
    return rounded(bytes / 1e6) + " MB";
}

} // namespace

void CopyLimit::add(double uses, double bytes, const std::string& place) {
    const double asked = uses * bytes + std::max(uses - 1.0, 0.0) * BYTES_PER_USE;
    taken += asked;
    if (taken <= limit) return;
    source.refuse(ImportCode::TOO_MANY_COPIES,
                  "it is placed " + rounded(uses) + " times and takes " + megabytes(asked) +
                      ", with what comes before " + megabytes(taken) + "; copies may take " +
                      megabytes(limit),
                  place);
}

} // namespace kel::importer::detail
