#include "page/Browser.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

namespace kelsrc::cli {

namespace {

bool isSet(const char* name) {
    const char* value = std::getenv(name);
    return value && *value;
}

} // namespace

bool openInBrowser(const std::string& address) {
    if (!isSet("DISPLAY") && !isSet("WAYLAND_DISPLAY")) return false;
    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    if (::posix_spawn_file_actions_init(&files) != 0) return false;
    if (::posix_spawnattr_init(&attributes) != 0) {
        ::posix_spawn_file_actions_destroy(&files);
        return false;
    }
    // What it says is not for this terminal, nor is standard output: that is data.
    ::posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    // A session of its own: Ctrl-C here is not for a browser that began with this page. Signals that the
    // command ignores would stay ignored there.
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    sigaddset(&defaults, SIGXFSZ);
    ::posix_spawnattr_setsigdefault(&attributes, &defaults);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF);
    char program[] = "xdg-open";
    std::string argument = address;
    char* const arguments[] = {program, argument.data(), nullptr};
    pid_t child = 0;
    const int error = ::posix_spawnp(&child, program, &files, &attributes, arguments, environ);
    ::posix_spawn_file_actions_destroy(&files);
    ::posix_spawnattr_destroy(&attributes);
    return error == 0;
}

} // namespace kelsrc::cli
