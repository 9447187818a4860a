#include "ReadHere.h"

#include "../assimp/AssimpReader.h"
#include "../gltf/GltfReader.h"
#include "ImportHelper.h"
#include "ImportLimits.h"
#include "Transfer.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <sys/wait.h>
#include <system_error>

namespace kel::importer::detail {

namespace {

/// How often a caller is asked whether to go on while a reader is silent.
constexpr std::chrono::milliseconds QUESTION{200};
/// How long a helper may take to start a child.
constexpr std::chrono::seconds START{30};
constexpr std::size_t LONGEST_STAGE = 40;

Clock::time_point after(double seconds) {
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

/// Waits for the answers of a reader.
class Answers {
public:
    Answers(const ModelSource& source, const FileDescriptor& socket, ProgressReporter& progress,
            double seconds, std::uint64_t memory)
        : source(source), socket(socket), progress(progress), seconds(seconds), memory(memory) {}

    /// throws  ImportError
    std::unique_ptr<Model> wait() {
        std::optional<Clock::time_point> deadline = Clock::now() + START;
        bool started = false;
        for (;;) {
            const Clock::time_point now = Clock::now();
            if (deadline && now >= *deadline) {
                if (started) refuseTime();
                ImportHelper::ofThisProcess().discard();
                fail("did not start");
            }
            const Received received =
                receive(socket, deadline ? std::min(*deadline, now + QUESTION) : now + QUESTION);
            const Message& message = received.message;
            if (received.state == Received::NOTHING) {
                progress.ask();
                continue;
            }
            if (received.state == Received::CLOSED) fail("ended without an answer");
            if (received.state == Received::BROKEN) refuseAnswer("no message can be read");
            switch (message.kind) {
            case Message::STARTED:
                if (std::exchange(started, true)) refuseAnswer("it starts twice");
                deadline.reset();
                if (seconds > 0.0 && seconds < FOREVER) deadline = after(seconds);
                break;
            case Message::PROGRESS:
                report(message);
                break;
            case Message::MODEL:
                return open(message);
            case Message::REFUSED:
                refuse(message);
            case Message::TOO_LARGE:
                source.refuse(ImportCode::MEMORY_LIMIT,
                              "the reader needed more than " + memoryText(memory) + " of memory");
            case Message::ENDED:
                refuseEnd(message.number);
            case Message::READY:
            case Message::READ:
                refuseAnswer("it has no sense here");
            }
        }
    }

private:
    /// A hundred years; more would not fit the clock.
    static constexpr double FOREVER = 3e9;

    const ModelSource& source;
    const FileDescriptor& socket;
    ProgressReporter& progress;
    double seconds;
    std::uint64_t memory;

    [[noreturn]] void fail(const std::string& what) const {
        source.refuse(ImportCode::READER_FAILED, "the reader " + what);
    }
    [[noreturn]] void refuseAnswer(const std::string& why) const {
        fail("gave an answer that cannot be used: " + why);
    }
    [[noreturn]] void refuseTime() const {
        source.refuse(ImportCode::TIME_LIMIT, "the reader did not finish within " + secondsText(seconds));
    }
    [[noreturn]] void refuseEnd(double number) const {
        if (!(number >= 0.0 && number <= 0xFFFF)) refuseAnswer("it has no status");
        const int status = static_cast<int>(number);
        if (status == 0) fail("ended without an answer");
        if (!WIFSIGNALED(status)) fail("crashed (status " + std::to_string(WEXITSTATUS(status)) + ")");
        const int signal = WTERMSIG(status);
        if (signal == SIGKILL) fail("was killed, perhaps for want of memory (SIGKILL)");
        const char* const name = ::sigabbrev_np(signal);
        fail("crashed (" + (name ? "SIG" + std::string(name) : "signal " + std::to_string(signal)) + ")");
    }

    void report(const Message& message) const {
        const bool isWord = message.text.size() <= LONGEST_STAGE &&
                            std::all_of(message.text.begin(), message.text.end(),
                                        [](char c) { return (c >= 'a' && c <= 'z') || c == ' '; });
        if (!isWord || !(message.number >= 0.0 && message.number <= 1.0)) refuseAnswer("it is no progress");
        progress.report(message.text.c_str(), message.number);
    }

    std::unique_ptr<Model> open(const Message& message) const {
        if (message.files.size() != 1) refuseAnswer("a model is missing");
        try {
            const SealedMemory content(message.files[0],
                                       memory > 0 ? memory : std::numeric_limits<std::uint64_t>::max());
            return readModel(content.bytes());
        } catch (const std::bad_alloc&) {
            throw;
        } catch (const std::runtime_error& error) {
            refuseAnswer(error.what());
        }
    }

    [[noreturn]] void refuse(const Message& message) const {
        Refusal refusal;
        try {
            ArchiveReader reader(message.text);
            reader(refusal);
            reader.finish();
        } catch (const BrokenArchive& error) {
            refuseAnswer(error.what());
        }
        // Only this side cancels.
        if (refusal.code == ImportCode::CANCELLED) refuseAnswer("it is cancelled");
        source.refuse(refusal.code, refusal.what, refusal.place, refusal.remedy);
    }
};

std::uint64_t sizeOf(const ModelSource& source) {
    if (source.bytes) return source.size;
    std::error_code ignored;
    const auto size = std::filesystem::file_size(source.disk, ignored);
    return ignored ? 0 : size;
}

/// Null where there is no helper.
std::unique_ptr<Model> readByHelper(ReaderKind reader, const ModelSource& source,
                                    const ImportOptions& options, ProgressReporter& progress,
                                    std::string& obstacle) {
    const std::uint64_t size = sizeOf(source);
    const double seconds = secondsFor(options.limits, size);
    const std::uint64_t memory = memoryFor(options.limits, size);
    const std::string request = packed(
        ReadRequest{reader, source.name, source.disk, source.path, source.guess, source.bytes != nullptr,
                    options.onBadGeometry, options.origin, options.scene, options.maxCopiedBytes, memory});
    if (request.size() > LONGEST_TEXT)
        source.refuse(ImportCode::FILE_UNREADABLE, "its name is too long", "", "rename it");
    try {
        FileDescriptor content;
        if (source.bytes) {
            MemoryFile file;
            file.write(source.bytes, source.size);
            content = file.seal();
        }
        const auto socket = ImportHelper::ofThisProcess().read(request, content.get(), obstacle);
        if (!socket) return nullptr;
        content = FileDescriptor();
        return Answers(source, *socket, progress, seconds, memory).wait();
    } catch (const std::system_error& error) {
        obstacle = error.code().message();
        return nullptr;
    }
}

} // namespace

std::unique_ptr<Model> readHere(ReaderKind reader, const ModelSource& source, const ImportOptions& options,
                                ProgressReporter& progress) {
    if (reader == ReaderKind::ASSIMP) return readWithAssimp(source, options, progress);
    std::unique_ptr<Model> model = openGltf(source, options, progress);
    if (!model) source.refuse(ImportCode::INVALID_MODEL, "it changed while it was read", "", "try again");
    return model;
}

std::unique_ptr<Model> readApart(ReaderKind reader, const ModelSource& source, const ImportOptions& options,
                                 ProgressReporter& progress) {
    std::string obstacle;
    if (!options.inProcess) {
        if (auto model = readByHelper(reader, source, options, progress, obstacle)) return model;
    }
    std::unique_ptr<Model> model = readHere(reader, source, options, progress);
    if (!obstacle.empty())
        model->notes.push_back(
            "The reader ran without limits on time and memory, in the process of the caller (" + obstacle +
            ")");
    return model;
}

} // namespace kel::importer::detail
