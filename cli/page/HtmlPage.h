#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>

namespace kelsrc::cli {

/// The viewer's one-file page: the one compiled in, or else "viewer.html" beside the command or in
/// ../share/kelsrc.
///
/// throws  Failure with STATUS_NOT_WRITTEN when there is none
std::string viewerPage();

/// A file that a page holds inside.
struct EmbeddedFile {
    std::string name; ///< as the page shows it
    std::string path; ///< where its bytes are
};

/// Writes the viewer's page with a file inside, and its name as the title. The file is read once, a piece at
/// a time; nothing of it is kept in memory. Errors of writing are left to the stream.
///
/// viewer      the page that viewerPage() gives
/// onProgress  called with how many bytes of the file are done; may be empty
/// throws      Failure with STATUS_INPUT when the file cannot be read to its end, with STATUS_NOT_WRITTEN when
///             `viewer` is no page that files can be put into
void writeHtmlPage(std::ostream& out, const std::string& viewer, const EmbeddedFile& file,
                   const std::function<void(std::uint64_t bytes)>& onProgress = {});

} // namespace kelsrc::cli
