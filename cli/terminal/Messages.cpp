#include "terminal/Messages.h"

#include "terminal/Signals.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sys/ioctl.h>
#include <unistd.h>

namespace kelsrc::cli {

namespace {

constexpr const char* ERASE_LINE = "\r\x1b[K";

} // namespace

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

std::string printable(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        // C1 controls are two bytes in UTF-8: C2 80 to C2 9F.
        const bool c1 =
            byte == 0xc2 && i + 1 < text.size() && (static_cast<unsigned char>(text[i + 1]) & 0xe0u) == 0x80;
        if (byte >= 0x20 && byte != 0x7f && !c1) {
            result += text[i];
            continue;
        }
        char escaped[8];
        const unsigned value = c1 ? static_cast<unsigned char>(text[++i]) : byte;
        std::snprintf(escaped, sizeof escaped, "\\x%02x", value);
        result += escaped;
    }
    return result;
}

std::string Messages::label(const char* word, const char* ansiColour) const {
    return colour ? std::string("\x1b[") + ansiColour + 'm' + word + "\x1b[0m" : word;
}

void Messages::error(const Failure& failure) {
    std::string text = "kelsrc: " + label("error:", "1;31") + ' ';
    if (!failure.subject().empty()) text += printable(failure.subject()) + ": ";
    text += printable(failure.what());
    if (!failure.remedy().empty()) text += "\n  " + printable(failure.remedy());
    print(text);
}

void Messages::warning(const std::string& text) {
    if (level != QUIET) print("kelsrc: " + label("warning:", "1;33") + ' ' + text);
}

void Messages::info(const std::string& text) {
    if (level != QUIET) print(text);
}

void Messages::detail(const std::string& text) {
    if (level == VERBOSE) print(text);
}

void Messages::print(const std::string& text) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (!statusLine.empty()) err << ERASE_LINE;
    err << text << '\n' << statusLine << std::flush;
}

void Messages::setStatusLine(const std::string& text) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (statusLine == text) return;
    err << ERASE_LINE << text << std::flush;
    statusLine = text;
    noteStatusLine(!text.empty());
}

} // namespace kelsrc::cli
