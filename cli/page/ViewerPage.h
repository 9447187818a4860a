#pragma once

#include <string>

namespace kelsrc::cli {

/// The viewer's one-file page: the one compiled in, or else "viewer.html" beside the command or in
/// ../share/kelsrc.
///
/// throws  Failure with STATUS_NOT_WRITTEN when there is none
std::string viewerPage();

} // namespace kelsrc::cli
