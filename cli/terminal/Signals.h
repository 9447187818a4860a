#pragma once

#include <string>

namespace kelsrc::cli {

/// While it lives, SIGINT, SIGTERM and SIGHUP remove the files noted with ScopedTempFile and end the process
/// with 128 + their number. A signal that the process was started to ignore stays ignored. Writing past a size limit or into a closed pipe becomes an error of the
/// write instead of a signal. Restores what was set before; not to be nested.
class SignalGuard {
public:
    SignalGuard();
    ~SignalGuard();
    SignalGuard(const SignalGuard&) = delete;
    SignalGuard& operator=(const SignalGuard&) = delete;
};

/// While it lives, the first SIGINT or SIGTERM only ends wait(); the next one ends the process as ever. Needs
/// a SignalGuard; not to be nested.
class StopRequest {
public:
    /// throws  std::runtime_error when the system has no pipes left
    StopRequest();
    ~StopRequest();
    StopRequest(const StopRequest&) = delete;
    StopRequest& operator=(const StopRequest&) = delete;

    /// Returns when that signal has come.
    void wait() const;

private:
    int readEnd, writeEnd;
};

/// Notes a file that must not outlive the process, until it is destroyed. Does not remove the file itself.
class ScopedTempFile {
public:
    /// throws  std::runtime_error when the path is too long or too many files are noted at once
    explicit ScopedTempFile(const std::string& path);
    ~ScopedTempFile();
    ScopedTempFile(const ScopedTempFile&) = delete;
    ScopedTempFile& operator=(const ScopedTempFile&) = delete;

private:
    int slot;
};

/// Tells the signal handler whether a line on standard error has to be erased before the process ends.
void noteStatusLine(bool drawn);

} // namespace kelsrc::cli
