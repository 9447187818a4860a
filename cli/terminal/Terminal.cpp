#include "terminal/Terminal.h"

#include <cstdlib>
#include <iostream>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

namespace kelsrc::cli {

Terminal terminalOf(const std::ostream& stream) {
    Terminal terminal;
    const int descriptor = &stream == &std::cout ? STDOUT_FILENO : &stream == &std::cerr ? STDERR_FILENO : -1;
    const char* type = std::getenv("TERM");
    if (descriptor < 0 || ::isatty(descriptor) == 0 || !type || *type == '\0' ||
        std::string_view(type) == "dumb")
        return terminal;
    terminal.isTerminal = true;
    const char* noColour = std::getenv("NO_COLOR");
    terminal.colour = !noColour || *noColour == '\0';
    winsize size{};
    if (::ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col >= 20) terminal.width = size.ws_col;
    return terminal;
}

} // namespace kelsrc::cli
