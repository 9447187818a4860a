#pragma once

#include <memory>
#include <string>

namespace kelsrc::cli {

/// While it lives, SIGINT, SIGTERM and SIGHUP remove the files noted with ScopedTempFile and end the process
/// with 128 + their number; a crash removes them too and goes on crashing. A signal that the process was
/// started to ignore stays ignored. Writing past a size limit or into a closed pipe becomes an error of the
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

/// While it lives, a crash of this thread is told as what it is: the message goes to standard error, and the
/// process ends with `status`. For code of others that bad input can crash. Works below a SignalGuard; runs
/// on a stack of its own, so that also endless recursion is told. Not to be nested in one thread.
class CrashMessage {
public:
    CrashMessage(std::string message, int status);
    ~CrashMessage();
    CrashMessage(const CrashMessage&) = delete;
    CrashMessage& operator=(const CrashMessage&) = delete;

private:
    struct Stack;

    std::string message;
    std::unique_ptr<Stack> stack;
};

/// Tells the signal handler whether a line on standard error has to be erased before the process ends.
void noteStatusLine(bool drawn);

} // namespace kelsrc::cli
