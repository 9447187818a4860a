#pragma once

#include <string>

namespace kelsrc::cli {

/// Has the desktop's browser open an address, and does not wait for it. Does nothing where there is no
/// desktop (neither DISPLAY nor WAYLAND_DISPLAY is set) or no program xdg-open.
///
/// returns  whether the browser was called
bool openInBrowser(const std::string& address);

} // namespace kelsrc::cli
