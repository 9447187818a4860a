#include "terminal/Signals.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>

namespace kelsrc::cli {

namespace {

// A handler may only touch memory that never moves, so the paths lie in fixed slots.
struct Slot {
    std::atomic<int> state{0}; // 0 free, 1 being filled or cleared, 2 holds a path
    char path[PATH_MAX];
};
std::array<Slot, 128> slots;
std::atomic<bool> statusLineDrawn{false};
std::atomic<int> stopDescriptor{-1};

constexpr int ENDING[] = {SIGINT, SIGTERM, SIGHUP};
constexpr int FAILED_WRITES[] = {SIGPIPE, SIGXFSZ};

struct sigaction previous[NSIG];
bool replaced[NSIG];

void removeTempFiles() {
    for (Slot& slot : slots) {
        if (slot.state.load() == 2) unlink(slot.path);
    }
}

[[noreturn]] void end(int status) {
    const char erase[] = "\r\x1b[K";
    // Nothing is left to do about errors of write here.
    if (statusLineDrawn.load() && write(STDERR_FILENO, erase, sizeof erase - 1) < 0) _exit(status);
    _exit(status);
}

void onEnding(int signal) {
    if (signal != SIGHUP) {
        const int saved = errno;
        const int stop = stopDescriptor.exchange(-1);
        const bool told = stop >= 0 && write(stop, "", 1) == 1;
        errno = saved;
        if (told) return;
    }
    removeTempFiles();
    end(128 + signal);
}

void replace(int signal, void (*handler)(int), int flags) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    sigfillset(&action.sa_mask);
    // Taken over only from the default: an ignored signal stays ignored (nohup), another handler stays.
    replaced[signal] = sigaction(signal, nullptr, &previous[signal]) == 0 &&
                       previous[signal].sa_handler == SIG_DFL && sigaction(signal, &action, nullptr) == 0;
}

} // namespace

SignalGuard::SignalGuard() {
    for (const int signal : ENDING)
        replace(signal, onEnding, SA_RESTART);
    for (const int signal : FAILED_WRITES)
        replace(signal, SIG_IGN, 0);
}

SignalGuard::~SignalGuard() {
    for (int signal = 1; signal < NSIG; ++signal) {
        if (replaced[signal]) sigaction(signal, &previous[signal], nullptr);
        replaced[signal] = false;
    }
}

StopRequest::StopRequest() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe can be made");
    readEnd = ends[0];
    writeEnd = ends[1];
    stopDescriptor.store(writeEnd);
}

StopRequest::~StopRequest() {
    stopDescriptor.store(-1);
    ::close(readEnd);
    ::close(writeEnd);
}

void StopRequest::wait() const {
    char byte = 0;
    while (::read(readEnd, &byte, 1) < 0 && errno == EINTR) {
    }
}

ScopedTempFile::ScopedTempFile(const std::string& path) : slot(0) {
    if (path.size() >= PATH_MAX) throw std::runtime_error("the path of the temporary file is too long");
    for (Slot& candidate : slots) {
        int free = 0;
        if (candidate.state.compare_exchange_strong(free, 1)) {
            std::memcpy(candidate.path, path.c_str(), path.size() + 1);
            candidate.state.store(2);
            return;
        }
        ++slot;
    }
    throw std::runtime_error("too many temporary files at once");
}

ScopedTempFile::~ScopedTempFile() {
    slots[static_cast<std::size_t>(slot)].state.store(0);
}

void noteStatusLine(bool drawn) {
    statusLineDrawn.store(drawn);
}

} // namespace kelsrc::cli
