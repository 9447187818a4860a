#pragma once

#include "Signals.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <streambuf>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

namespace kelsrc::cli {

/// A stream buffer on a file descriptor that notes the first error of any write; later writes are refused.
class DescriptorBuffer final : public std::streambuf {
public:
    explicit DescriptorBuffer(int descriptor);

    /// errno of the first write that failed; 0 when all went well.
    int error() const { return firstError; }
    std::uint64_t bytes() const { return written; } ///< what the descriptor has taken

    std::function<void(std::uint64_t bytes)> onProgress; ///< called after writes with bytes(); may be empty

protected:
    int_type overflow(int_type character) override;
    std::streamsize xsputn(const char* text, std::streamsize size) override;
    int sync() override;

private:
    bool writeAll(const char* text, std::size_t size);
    bool flushBuffer();

    int descriptor;
    int firstError = 0;
    std::uint64_t written = 0;
    std::vector<char> buffer;
};

/// A file that appears whole or not at all. What is written goes to a temporary file in the target's folder;
/// commit() brings it to the disk and puts it in the target's place in one step. Without commit() the target
/// stays as it was, whatever happens: an exception, a full disk, a signal, a crash.
///
/// The temporary file has no name where the file system can do that, so that not even SIGKILL leaves one;
/// elsewhere it is called ".kelsrc-*.tmp", and a SignalGuard removes it. A symbolic link is followed and
/// stays. An existing file's permissions are kept, and its owner where that is allowed. A target that is no
/// regular file (a device, a pipe) is written directly.
///
/// Every fault throws a Failure with STATUS_NOT_WRITTEN.
class AtomicFile {
public:
    enum class Naming {
        AUTOMATIC,   ///< nameless where possible
        ALWAYS_NAMED ///< as on file systems that know no nameless files
    };

    explicit AtomicFile(const std::filesystem::path& target, Naming naming = Naming::AUTOMATIC);
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    std::ostream& stream() { return out; }
    /// Has `callback` called after writes with the number of bytes written so far.
    void onProgress(std::function<void(std::uint64_t)> callback) { buffer->onProgress = std::move(callback); }
    /// Flushes the stream and returns how many bytes the file holds.
    std::uint64_t flush();
    /// The first bytes as they lie in the temporary file, for a check before commit(). Fewer when the file is
    /// shorter, none when it is no regular file.
    std::string firstBytes(std::size_t count);
    /// A name under which the temporary file can be opened before commit(); empty when it is no regular file.
    std::string temporaryPath() const;
    void commit();

    /// Throws what the constructor would throw, so that work which takes long need not be done for nothing.
    static void check(const std::filesystem::path& target);

private:
    [[noreturn]] void fail(const std::string& what, int error, const std::string& remedy = "") const;
    void open(Naming naming);
    void openNamed();
    std::string freeName() const;
    void link();

    std::filesystem::path shown;  ///< as the caller named it, for messages
    std::filesystem::path target; ///< with links followed
    std::filesystem::path folder;
    int descriptor = -1;
    bool direct = false;
    bool committed = false;
    std::string temporaryName; ///< empty while the file has no name
    std::optional<ScopedTempFile> note;
    std::unique_ptr<DescriptorBuffer> buffer;
    std::ostream out;
};

/// True when both name one file, also through links.
bool isSameFile(const std::filesystem::path& a, const std::filesystem::path& b);

} // namespace kelsrc::cli
