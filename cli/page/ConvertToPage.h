#pragma once

#include <kel/convert/Convert.h>

#include <cstdint>
#include <optional>
#include <utility>

namespace kelsrc::cli {

/// What became of one model, in a file or in a page.
struct FileReport : kel::convert::ConvertReport {
    FileReport() = default;
    FileReport(kel::convert::ConvertReport report) : ConvertReport(std::move(report)) {}

    bool takenAsIs = false; ///< an SRC file that went into a page: `target` says nothing about it
    std::optional<std::uint64_t> bytesSrc; ///< size of the SRC file inside a page
};

/// Converts one model into a page with viewer and SRC file inside. An SRC file goes into it as it is.
///
/// throws  Failure; kel::convert::ConvertError
FileReport convertToPage(const kel::convert::Source& source, const kel::convert::Recipe& recipe,
                         const kel::convert::Destination& destination,
                         const kel::convert::ConvertOptions& options);

} // namespace kelsrc::cli
