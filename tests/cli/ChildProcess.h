#pragma once

// The real command, or a piece of test code, in a process of its own.

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <poll.h>
#include <pty.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace kel::tests {

/// A child of this process; killed and collected by the destructor at the latest.
class ChildProcess {
public:
    /// Runs `body` in a fork of this process, which ends with the status that `body` returns.
    explicit ChildProcess(const std::function<int()>& body) : id(::fork()) {
        if (id < 0) throw std::runtime_error("fork failed");
        if (id == 0) ::_exit(body());
    }
    ~ChildProcess() {
        if (collected) return;
        signal(SIGKILL);
        ::waitpid(id, nullptr, 0);
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const { return id; }
    void signal(int number) const { ::kill(id, number); }

    /// Exit status; -n when signal n ended it.
    int wait() {
        int status = 0;
        while (::waitpid(id, &status, 0) < 0) {
            if (errno != EINTR) throw std::runtime_error("waitpid failed");
        }
        collected = true;
        return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
    }

private:
    pid_t id;
    bool collected = false;
};

/// Replaces this process by the command, which lies beside the test program; only in a child.
inline int execCommand(const std::vector<std::string>& args) {
    std::string command = std::filesystem::read_symlink("/proc/self/exe").replace_filename("kelsrc").string();
    std::vector<char*> pointers{command.data()};
    for (const auto& arg : args)
        pointers.push_back(const_cast<char*>(arg.c_str()));
    pointers.push_back(nullptr);
    ::execv(command.c_str(), pointers.data());
    return 127;
}

/// A pipe whose ends are closed when it goes.
class Pipe {
public:
    Pipe() {
        if (::pipe(ends) != 0) throw std::runtime_error("pipe failed");
    }
    ~Pipe() {
        closeEnd(0);
        closeEnd(1);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int readEnd() const { return ends[0]; }
    int writeEnd() const { return ends[1]; }
    void closeEnd(int end) {
        if (ends[end] >= 0) ::close(ends[end]);
        ends[end] = -1;
    }

private:
    int ends[2];
};

struct ProcessResult {
    int status = -1;
    std::string out, err;
};

/// Runs the real command to its end.
///
/// prepare   called in the child just before it becomes the command
/// seconds   the command gets SIGALRM after that time, so a hang shows as status -14
inline ProcessResult runProcess(const std::vector<std::string>& args,
                                const std::function<void()>& prepare = {}, unsigned seconds = 120) {
    Pipe out, err;
    ChildProcess child([&] {
        ::dup2(out.writeEnd(), STDOUT_FILENO);
        ::dup2(err.writeEnd(), STDERR_FILENO);
        ::alarm(seconds);
        if (prepare) prepare();
        return execCommand(args);
    });
    out.closeEnd(1);
    err.closeEnd(1);
    ProcessResult result;
    pollfd ends[2] = {{out.readEnd(), POLLIN, 0}, {err.readEnd(), POLLIN, 0}};
    std::string* texts[2] = {&result.out, &result.err};
    while (ends[0].fd >= 0 || ends[1].fd >= 0) {
        if (::poll(ends, 2, -1) < 0) break;
        for (int i = 0; i < 2; ++i) {
            if (ends[i].fd < 0 || ends[i].revents == 0) continue;
            char bytes[4096];
            const ssize_t got = ::read(ends[i].fd, bytes, sizeof bytes);
            if (got <= 0) {
                ends[i].fd = -1;
            } else {
                texts[i]->append(bytes, static_cast<std::size_t>(got));
            }
        }
    }
    result.status = child.wait();
    return result;
}

/// What the command writes to a terminal: standard output and error together.
inline std::string runOnTerminal(const std::vector<std::string>& args,
                                 const std::function<void()>& prepare = {}) {
    int terminal = -1;
    const pid_t id = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    if (id < 0) throw std::runtime_error("forkpty failed");
    if (id == 0) {
        ::alarm(120);
        ::setenv("TERM", "xterm", 1);
        if (prepare) prepare();
        ::_exit(execCommand(args));
    }
    std::string text;
    char bytes[4096];
    for (ssize_t got; (got = ::read(terminal, bytes, sizeof bytes)) > 0;)
        text.append(bytes, static_cast<std::size_t>(got));
    ::close(terminal);
    ::waitpid(id, nullptr, 0);
    return text;
}

} // namespace kel::tests
