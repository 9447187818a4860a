#include "Signals.h"

#include <array>
#include <atomic>
#include <climits>
#include <csignal>
#include <cstring>
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

constexpr int ENDING[] = {SIGINT, SIGTERM, SIGHUP};
constexpr int CRASHING[] = {SIGQUIT, SIGILL, SIGABRT, SIGFPE, SIGBUS, SIGSEGV};
constexpr int FAILED_WRITES[] = {SIGPIPE, SIGXFSZ};

struct sigaction previous[NSIG];
bool replaced[NSIG];

void removeTempFiles() {
    for (Slot& slot : slots) {
        if (slot.state.load() == 2) unlink(slot.path);
    }
}

void onEnding(int signal) {
    removeTempFiles();
    if (statusLineDrawn.load()) {
        const char erase[] = "\r\x1b[K";
        // Nothing is left to do about an error here.
        if (write(STDERR_FILENO, erase, sizeof erase - 1) < 0) _exit(128 + signal);
    }
    _exit(128 + signal);
}

// Set with SA_RESETHAND: raising it again crashes as it would have.
void onCrash(int signal) {
    removeTempFiles();
    raise(signal);
}

void replace(int signal, void (*handler)(int), int flags) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    sigfillset(&action.sa_mask);
    // Taken over only from the default: an ignored signal stays ignored (nohup), another handler stays in
    // place.
    replaced[signal] = sigaction(signal, nullptr, &previous[signal]) == 0 &&
                       previous[signal].sa_handler == SIG_DFL && sigaction(signal, &action, nullptr) == 0;
}

} // namespace

SignalGuard::SignalGuard() {
    for (const int signal : ENDING)
        replace(signal, onEnding, 0);
    for (const int signal : CRASHING)
        replace(signal, onCrash, static_cast<int>(SA_RESETHAND));
    for (const int signal : FAILED_WRITES)
        replace(signal, SIG_IGN, 0);
}

SignalGuard::~SignalGuard() {
    for (int signal = 1; signal < NSIG; ++signal) {
        if (replaced[signal]) sigaction(signal, &previous[signal], nullptr);
        replaced[signal] = false;
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
