#include "ImportHelper.h"

#include <kel/importer/detail/ServeImports.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <system_error>

// The header of glibc 2.36 does not say that it is C.
extern "C" {
#include <sys/pidfd.h>
}

namespace kel::importer::detail {

namespace {

/// How long a helper may take to start; on a busy machine loading its libraries takes seconds.
constexpr std::chrono::seconds START{30};
/// How long it may take to end.
constexpr int STOP_MILLISECONDS = 1000;

/// The helper beside this library, or where it is installed, seen from there.
std::string findProgram() {
    if (const char* given = ::secure_getenv(HELPER_VARIABLE)) return given;
    static const std::string found = [] {
        Dl_info library{};
        std::error_code ignored;
        if (::dladdr(reinterpret_cast<const void*>(&ImportHelper::ofThisProcess), &library) == 0)
            return std::string();
        const std::filesystem::path folder =
            std::filesystem::canonical(library.dli_fname, ignored).parent_path();
        const std::filesystem::path beside = folder / HELPER_NAME;
        if (std::filesystem::exists(beside, ignored)) return beside.string();
        return (folder / KELSRC_HELPER_FROM_LIBRARY).lexically_normal().string();
    }();
    return found;
}

struct SpawnActions {
    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    SpawnActions() {
        ::posix_spawn_file_actions_init(&files);
        ::posix_spawnattr_init(&attributes);
    }
    ~SpawnActions() {
        ::posix_spawn_file_actions_destroy(&files);
        ::posix_spawnattr_destroy(&attributes);
    }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;
};

/// returns  0, or the number of the error
int spawn(const std::string& program, int socket, pid_t& process) {
    SpawnActions actions;
    // First, because the socket may have one of the numbers that follow.
    ::posix_spawn_file_actions_adddup2(&actions.files, socket, HELPER_SOCKET);
    // Readers print what they like; that is not for this process's streams.
    ::posix_spawn_file_actions_addopen(&actions.files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions.files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions.files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    // A group of its own: Ctrl-C is for the caller, and when that ends the helper ends, too.
    ::posix_spawnattr_setpgroup(&actions.attributes, 0);
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    ::posix_spawnattr_setsigmask(&actions.attributes, &none);
    ::posix_spawnattr_setsigdefault(&actions.attributes, &all);
    ::posix_spawnattr_setflags(&actions.attributes,
                               POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    std::string path = program;
    char* const arguments[] = {path.data(), nullptr};
    return ::posix_spawn(&process, path.c_str(), &actions.files, &actions.attributes, arguments, environ);
}

} // namespace

ImportHelper& ImportHelper::ofThisProcess() {
    static ImportHelper helper;
    return helper;
}

ImportHelper::~ImportHelper() {
    stop();
}

std::optional<FileDescriptor> ImportHelper::read(const std::string& request, int content,
                                                 std::string& obstacle) {
    const std::lock_guard<std::mutex> lock(mutex);
    const FileDescriptor folder(::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!folder) {
        obstacle = "the working directory cannot be opened";
        return std::nullopt;
    }
    // A helper that ended after its last model is noticed here.
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (!start()) {
            obstacle = failure;
            return std::nullopt;
        }
        auto [here, there] = socketPair();
        const bool sent =
            content < 0 ? send(socket, Message::READ, 0.0, request, {there.get(), folder.get()})
                        : send(socket, Message::READ, 0.0, request, {there.get(), folder.get(), content});
        if (sent) return std::move(here);
        stop();
    }
    obstacle = "it ends at once";
    return std::nullopt;
}

void ImportHelper::discard() {
    const std::lock_guard<std::mutex> lock(mutex);
    stop();
}

/// returns  whether there is a helper, or `failure` says why not
bool ImportHelper::start() {
    const std::string wanted = findProgram();
    if (owner != ::getpid() || wanted != program) {
        stop();
        failure.clear();
        program = wanted;
        owner = ::getpid();
    }
    if (socket || !failure.empty()) return failure.empty();
    auto [here, there] = socketPair();
    if (const int error = spawn(program, there.get(), process)) {
        process = -1;
        failure = program + ": " + std::strerror(error);
        return false;
    }
    handle = FileDescriptor(::pidfd_open(process, 0));
    there = FileDescriptor();
    socket = std::move(here);
    const Received ready = receive(socket, Clock::now() + START);
    if (ready.state == Received::MESSAGE && ready.message.kind == Message::READY &&
        ready.message.text == HELPER_VERSION)
        return true;
    stop();
    failure = program + ": it is no helper of this version";
    return false;
}

void ImportHelper::stop() {
    socket = FileDescriptor(); // which ends the helper, when it has collected its children
    if (process > 0 && owner == ::getpid() && handle) {
        pollfd end{handle.get(), POLLIN, 0};
        if (::poll(&end, 1, STOP_MILLISECONDS) <= 0) ::pidfd_send_signal(handle.get(), SIGKILL, nullptr, 0);
        int status = 0;
        while (::waitpid(process, &status, 0) < 0 && errno == EINTR) {
        }
    }
    handle = FileDescriptor();
    process = -1;
}

} // namespace kel::importer::detail
