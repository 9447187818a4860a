#pragma once

#include <kel/convert/Export.h>
#include <kel/convert/ProcessHooks.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <ostream>
#include <string>

namespace kel::convert {

/// A file that appears whole or not at all. What is written goes to a temporary file in the target's folder;
/// commit() brings it to the disk and puts it in the target's place in one step. Without commit() the target
/// stays as it was, whatever happens: an exception, a full disk, a signal, a crash.
///
/// The temporary file has no name where the file system can do that, so that not even SIGKILL leaves one;
/// elsewhere it is called ".kelsrc-*.tmp", and ProcessHooks::onTemporaryFile is told of it. A symbolic link is
/// followed and stays. An existing file's permissions are kept, and its owner where that is allowed. A target
/// that is no regular file (a device, a pipe) is written directly.
///
/// Every fault throws a ConvertError with OUTPUT_REFUSED, whose subject is the target as the caller named it.
class KEL_CONVERT_EXPORT AtomicFile {
public:
    enum class Naming {
        AUTOMATIC,   ///< nameless where possible
        ALWAYS_NAMED ///< as on file systems that know no nameless files
    };

    explicit AtomicFile(const std::filesystem::path& target, ProcessHooks hooks = {},
                        Naming naming = Naming::AUTOMATIC);
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    std::ostream& stream() { return out; }
    /// Has `callback` called after writes with the number of bytes written so far.
    void onProgress(std::function<void(std::uint64_t)> callback);
    /// Flushes the stream and returns how many bytes the file holds.
    std::uint64_t flush();
    /// The first bytes as they lie in the temporary file, for a check before commit(). Fewer when the file is
    /// shorter, none when it is no regular file.
    std::string firstBytes(std::size_t count);
    /// A name under which the temporary file can be opened before commit(); empty when it is no regular file.
    std::string temporaryPath() const;
    void commit();

    /// Throws what the constructor would throw, so that work which takes long need not be done for nothing.
    static void check(const std::filesystem::path& target, const ProcessHooks& hooks = {});

private:
    class Buffer;

    [[noreturn]] void fail(const std::string& what, int error, const std::string& remedy = "") const;
    void open(Naming naming);
    /// Has `take` make a file of a name in the folder, until one was free. False with errno when none was.
    template<typename Take>
    bool takeFreeName(const Take& take);
    void link();
    void abandon();

    ProcessHooks hooks;
    std::filesystem::path shown;  ///< as the caller named it, for messages
    std::filesystem::path target; ///< with links followed
    std::filesystem::path folder;
    int descriptor = -1;
    bool direct = false;
    std::string temporaryName; ///< empty while the file has no name
    ProcessHooks::Token noted; ///< of the temporary name
    std::unique_ptr<Buffer> buffer;
    std::ostream out;
};

/// True when both name one file, also through links.
KEL_CONVERT_EXPORT bool isSameFile(const std::filesystem::path& a, const std::filesystem::path& b);

} // namespace kel::convert
