#include <kel/importer/detail/ServeImports.h>

#include "Fields.h"
#include "Message.h"
#include "ReadHere.h"
#include "Transfer.h"

#include <assimp/Importer.hpp>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <limits>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <system_error>

namespace kel::importer::detail {

namespace {

// A sanitizer reserves terabytes of addresses, so what is resident has to be watched there.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool LIMITS_ADDRESSES = false;
#else
constexpr bool LIMITS_ADDRESSES = true;
#endif
constexpr int WATCH_MILLISECONDS = 20;

struct MemoryUse {
    std::uint64_t addresses = 0, resident = 0; ///< bytes
};

MemoryUse memoryOf(pid_t process) {
    char path[40];
    std::snprintf(path, sizeof path, "/proc/%d/statm", static_cast<int>(process));
    MemoryUse use;
    if (std::FILE* file = std::fopen(path, "re")) {
        unsigned long addresses = 0, resident = 0;
        if (std::fscanf(file, "%lu %lu", &addresses, &resident) == 2) {
            const auto page = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
            use = {addresses * page, resident * page};
        }
        std::fclose(file);
    }
    return use;
}

void limit(int resource, std::uint64_t most) {
    rlimit known{};
    ::getrlimit(static_cast<__rlimit_resource>(resource), &known);
    known.rlim_cur = std::min<rlim_t>({known.rlim_cur, known.rlim_max, most});
    ::setrlimit(static_cast<__rlimit_resource>(resource), &known);
}

// ---- The child ------------------------------------------------------------------------------------------

/// Limits what this process may take from now on.
void limitMemory(std::uint64_t bytes) {
    if (bytes == 0) return;
    const std::uint64_t used = memoryOf(::getpid()).addresses;
    if (LIMITS_ADDRESSES && bytes <= std::numeric_limits<std::uint64_t>::max() - used)
        limit(RLIMIT_AS, used + bytes);
    limit(RLIMIT_FSIZE, bytes); // files in memory count as files
}

/// Whether no lower limit on the size of files was there before.
bool isFileLimitOurs(std::uint64_t memory) {
    rlimit known{};
    return ::getrlimit(RLIMIT_FSIZE, &known) == 0 && memory > 0 && known.rlim_cur == memory;
}

std::string remedyOf(ImportCode code) {
    return std::string(infoOf(code).remedy);
}

Refusal refusalOf(const ImportError& error) {
    // "file: what (place); remedy"
    std::string what = error.what();
    const std::size_t tail =
        2 + error.remedy().size() + (error.place().empty() ? 0 : error.place().size() + 3);
    what = what.substr(error.file().size() + 2, what.size() - error.file().size() - 2 - tail);
    constexpr std::size_t LONGEST = LONGEST_TEXT / 8;
    return {error.code(), what.substr(0, LONGEST), error.place().substr(0, LONGEST),
            error.remedy().substr(0, LONGEST)};
}

/// Reads one model and answers.
void readModel(const ReadRequest& request, const std::vector<FileDescriptor>& files) {
    const FileDescriptor& answers = files[0];
    const auto refuse = [&](ImportCode code, const std::string& what, const std::string& remedy) {
        send(answers, Message::REFUSED, 0.0, packed(Refusal{code, what, "", remedy}));
    };
    const auto refuseMemory = [&] {
        if (request.memory > 0) {
            send(answers, Message::TOO_LARGE);
        } else {
            refuse(ImportCode::OUT_OF_MEMORY, "the model does not fit into memory",
                   remedyOf(ImportCode::OUT_OF_MEMORY));
        }
    };
    try {
        if (::fchdir(files[1].get()) != 0) throw std::system_error(errno, std::generic_category(), "fchdir");
        ModelSource source;
        source.name = request.name;
        source.disk = request.disk;
        source.path = request.path;
        source.guess = request.guess;
        std::optional<SealedMemory> content;
        if (request.isInMemory) {
            content.emplace(files.at(2), std::numeric_limits<std::uint64_t>::max());
            source.bytes = content->bytes().data();
            source.size = content->bytes().size();
        }
        limitMemory(request.memory);
        ImportOptions options;
        options.onBadGeometry = request.onBadGeometry;
        options.origin = request.origin;
        options.scene = request.scene;
        options.maxCopiedBytes = request.maxCopiedBytes;
        options.progress = [&](const char* stage, double done) {
            send(answers, Message::PROGRESS, done, stage);
            return true;
        };
        ProgressReporter progress(options.progress, source);
        const std::unique_ptr<Model> model = readHere(request.reader, source, options, progress);
        MemoryFile file;
        writeModel(*model, file);
        const FileDescriptor sealed = file.seal();
        send(answers, Message::MODEL, 0.0, "", {sealed.get()});
    } catch (const ImportError& error) {
        if (error.code() == ImportCode::OUT_OF_MEMORY) {
            refuseMemory();
        } else {
            send(answers, Message::REFUSED, 0.0, packed(refusalOf(error)));
        }
    } catch (const std::bad_alloc&) {
        refuseMemory();
    } catch (const std::system_error& error) {
        if (error.code().value() == EFBIG && isFileLimitOurs(request.memory)) {
            refuseMemory();
        } else if (error.code().value() == EFBIG) {
            refuse(ImportCode::OUT_OF_MEMORY, "it is larger than files may be",
                   "raise that limit (ulimit -f)");
        } else {
            refuse(ImportCode::OUT_OF_MEMORY, error.code().message(), remedyOf(ImportCode::OUT_OF_MEMORY));
        }
    } catch (const std::exception& error) {
        refuse(ImportCode::INVALID_MODEL, std::string("the reader gave up: ") + error.what(),
               remedyOf(ImportCode::INVALID_MODEL));
    }
}

// ---- The helper -----------------------------------------------------------------------------------------

struct Job {
    pid_t child;
    FileDescriptor answers; ///< its end of the caller's socket
    std::uint64_t memory;
    std::uint64_t residentAtStart;
    bool killed = false;
};

class Server {
public:
    Server() : socket(HELPER_SOCKET), self(::getpid()) {
        sigset_t child;
        sigemptyset(&child);
        sigaddset(&child, SIGCHLD);
        ::sigprocmask(SIG_BLOCK, &child, nullptr);
        endings = FileDescriptor(::signalfd(-1, &child, SFD_CLOEXEC | SFD_NONBLOCK));
    }

    int run() {
        if (!endings || !send(socket, Message::READY, 0.0, HELPER_VERSION)) return 1;
        for (;;) {
            std::vector<pollfd> waiting{{socket.get(), POLLIN, 0}, {endings.get(), POLLIN, 0}};
            bool watches = false;
            for (const Job& job : jobs) {
                waiting.push_back({job.killed ? -1 : job.answers.get(), 0, 0});
                watches = watches || (!LIMITS_ADDRESSES && job.memory > 0);
            }
            if (::poll(waiting.data(), waiting.size(), watches ? WATCH_MILLISECONDS : -1) < 0 &&
                errno != EINTR)
                break;
            for (std::size_t j = 0; j < jobs.size(); ++j) {
                if (waiting[j + 2].revents != 0) kill(jobs[j]); // nobody waits for the answer
                if (watches) watch(jobs[j]);
            }
            if (waiting[1].revents != 0) collect();
            if (waiting[0].revents != 0 && !serve()) break;
        }
        for (Job& job : jobs)
            kill(job);
        for (const Job& job : jobs)
            ::waitpid(job.child, nullptr, 0);
        return 0;
    }

private:
    FileDescriptor socket, endings;
    pid_t self;
    std::vector<Job> jobs;

    static void kill(Job& job) {
        // Not collected yet, so the number is still its own.
        if (!std::exchange(job.killed, true)) ::kill(job.child, SIGKILL);
    }

    void watch(Job& job) {
        if (job.killed || job.memory == 0) return;
        const std::uint64_t resident = memoryOf(job.child).resident;
        if (resident < job.residentAtStart || resident - job.residentAtStart <= job.memory) return;
        send(job.answers, Message::TOO_LARGE);
        kill(job);
    }

    void collect() {
        signalfd_siginfo ignored{};
        while (::read(endings.get(), &ignored, sizeof ignored) > 0) {
        }
        int status = 0;
        for (pid_t child; (child = ::waitpid(-1, &status, WNOHANG)) > 0;) {
            const auto job = std::find_if(jobs.begin(), jobs.end(),
                                          [&](const Job& known) { return known.child == child; });
            if (job == jobs.end()) continue;
            send(job->answers, Message::ENDED, status);
            jobs.erase(job);
        }
    }

    /// returns  whether there is anybody left to serve
    bool serve() {
        Received received = receive(socket, Clock::now());
        if (received.state == Received::NOTHING) return true;
        Message& message = received.message;
        if (received.state != Received::MESSAGE || message.kind != Message::READ || message.files.size() < 2)
            return false;
        ReadRequest request;
        try {
            ArchiveReader reader(message.text);
            reader(request);
            reader.finish();
        } catch (const BrokenArchive&) {
            return false;
        }
        const pid_t child = ::fork();
        if (child == 0) {
            becomeChild();
            readModel(request, message.files);
            ::_exit(0); // nothing of what the reader left behind is worth tidying up
        }
        if (child < 0) {
            send(message.files[0], Message::REFUSED, 0.0,
                 packed(Refusal{ImportCode::OUT_OF_MEMORY, "no process can be started for the reader", "",
                                remedyOf(ImportCode::OUT_OF_MEMORY)}));
            return true;
        }
        send(message.files[0], Message::STARTED);
        // A fork begins with less than what it shares.
        const std::uint64_t resident = LIMITS_ADDRESSES ? 0 : memoryOf(child).resident;
        jobs.push_back({child, std::move(message.files[0]), request.memory, resident});
        return true;
    }

    void becomeChild() {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != self) ::_exit(1);
        socket = FileDescriptor();
        endings = FileDescriptor();
        jobs.clear();
        ::prctl(PR_SET_DUMPABLE, 0); // a crash is an answer, not an accident
        ::signal(SIGXFSZ, SIG_IGN);
        sigset_t none;
        sigemptyset(&none);
        ::sigprocmask(SIG_SETMASK, &none, nullptr);
    }
};

} // namespace

int serveImports() {
    // What the starting process has open is not for readers.
    ::close_range(HELPER_SOCKET + 1, ~0U, 0);
    limit(RLIMIT_CORE, 0);
    Assimp::Importer().GetImporterCount(); // so that children find it loaded
    return Server().run();
}

} // namespace kel::importer::detail
