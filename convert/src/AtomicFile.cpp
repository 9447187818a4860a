#include <kel/convert/AtomicFile.h>

#include <kel/convert/ConvertError.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <streambuf>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kel::convert {

namespace {

constexpr std::size_t BUFFER_SIZE = std::size_t(1) << 18;
// Large enough to cost nothing, small enough to report progress and to stay below what one call takes.
constexpr std::size_t LARGEST_BLOCK = std::size_t(1) << 24;
constexpr int MOST_LINKS = 40;

std::string reason(int error) {
    return std::string(std::strerror(error));
}

struct Remedy {
    int error;
    const char* sentence;
};
constexpr Remedy REMEDIES[] = {
    {ENOSPC, "Make room on the disk, or write to another one."},
    {EDQUOT, "Make room on the disk, or write to another one."},
    {EFBIG, "The file would be larger than the system allows here; raise the limit (ulimit -f)."},
    {EACCES, "Give write permission for the folder and the file, or choose another place."},
    {EPERM, "Give write permission for the folder and the file, or choose another place."},
    {EROFS, "The disk is read-only; choose another place."},
    {ENOENT, "Make the folder first, or choose another one."},
    {ENOTDIR, "A part of the path is a file, not a folder; choose another place."},
    {ENAMETOOLONG, "Choose a shorter name."},
    {EPIPE, "The reader of the pipe has gone away."},
};

std::string remedyFor(int error) {
    for (const Remedy& remedy : REMEDIES) {
        if (remedy.error == error) return remedy.sentence;
    }
    return "";
}

/// Where a chain of symbolic links leads, also when nothing is there yet.
std::filesystem::path followLinks(std::filesystem::path path) {
    for (int i = 0; i < MOST_LINKS; ++i) {
        std::error_code error;
        const auto next = std::filesystem::read_symlink(path, error);
        if (error) return path;
        path = next.is_absolute() ? next : path.parent_path() / next;
    }
    return path; // a circle: opening it says so
}

} // namespace

// ---- The stream buffer --------------------------------------------------------------------------------

/// A stream buffer on a file descriptor that notes the first error of any write; later writes are refused.
class AtomicFile::Buffer final : public std::streambuf {
public:
    explicit Buffer(int descriptor) : descriptor(descriptor), block(BUFFER_SIZE) {
        setp(block.data(), block.data() + block.size());
    }

    int error = 0;           ///< errno of the first write that failed; 0 when all went well
    std::uint64_t bytes = 0; ///< what the descriptor has taken
    std::function<void(std::uint64_t bytes)> onProgress; ///< called after writes with `bytes`; may be empty

protected:
    int_type overflow(int_type character) override {
        if (!flushBuffer()) return traits_type::eof();
        if (!traits_type::eq_int_type(character, traits_type::eof())) {
            *pptr() = traits_type::to_char_type(character);
            pbump(1);
        }
        return traits_type::not_eof(character);
    }
    std::streamsize xsputn(const char* text, std::streamsize size) override {
        if (size > epptr() - pptr()) {
            if (!flushBuffer()) return 0;
            if (size >= static_cast<std::streamsize>(block.size()))
                return writeAll(text, static_cast<std::size_t>(size)) ? size : 0;
        }
        std::memcpy(pptr(), text, static_cast<std::size_t>(size));
        pbump(static_cast<int>(size));
        return size;
    }
    int sync() override { return flushBuffer() ? 0 : -1; }

private:
    bool writeAll(const char* text, std::size_t size) {
        while (size != 0 && error == 0) {
            const ssize_t taken = ::write(descriptor, text, std::min(size, LARGEST_BLOCK));
            if (taken < 0) {
                if (errno != EINTR) error = errno;
                continue;
            }
            text += taken;
            size -= static_cast<std::size_t>(taken);
            bytes += static_cast<std::uint64_t>(taken);
            if (onProgress) onProgress(bytes);
        }
        return error == 0;
    }
    bool flushBuffer() {
        const bool good = writeAll(pbase(), static_cast<std::size_t>(pptr() - pbase()));
        setp(block.data(), block.data() + block.size());
        return good;
    }

    const int descriptor;
    std::vector<char> block;
};

// ---- AtomicFile -----------------------------------------------------------------------------------------

AtomicFile::AtomicFile(const std::filesystem::path& wanted, ProcessHooks processHooks, Naming naming)
    : hooks(std::move(processHooks)), shown(wanted), target(followLinks(wanted)),
      folder(target.parent_path()), out(nullptr) {
    if (folder.empty()) folder = ".";
    try {
        open(naming);
        buffer = std::make_unique<Buffer>(descriptor);
        out.rdbuf(buffer.get());
    } catch (...) {
        abandon();
        throw;
    }
}

AtomicFile::~AtomicFile() {
    abandon();
}

void AtomicFile::abandon() {
    if (descriptor >= 0) ::close(descriptor);
    if (!temporaryName.empty()) ::unlink(temporaryName.c_str());
}

void AtomicFile::check(const std::filesystem::path& target, const ProcessHooks& hooks) {
    struct stat existing {};
    // Opening a pipe would wait for its reader, and closing it again would be all that the reader gets.
    if (::stat(target.c_str(), &existing) == 0 && !S_ISREG(existing.st_mode) && !S_ISDIR(existing.st_mode)) {
        if (::access(target.c_str(), W_OK) == 0) return;
        const int error = errno;
        throw ConvertError(ConvertCode::OUTPUT_REFUSED, target.string(),
                           "cannot be written: " + reason(error), remedyFor(error));
    }
    const AtomicFile probe(target, hooks);
}

void AtomicFile::fail(const std::string& what, int error, const std::string& remedy) const {
    throw ConvertError(ConvertCode::OUTPUT_REFUSED, shown.string(),
                       what + (error ? ": " + reason(error) : ""),
                       remedy.empty() ? remedyFor(error) : remedy);
}

void AtomicFile::open(Naming naming) {
    if (target.filename().empty() || target.filename() == "." || target.filename() == "..")
        fail("names a folder, not a file", 0, "Add a file name.");
    struct stat existing {};
    const bool exists = ::stat(target.c_str(), &existing) == 0;
    if (!exists && errno != ENOENT) fail("cannot be written", errno);
    if (exists && S_ISDIR(existing.st_mode)) fail("is a folder, not a file", 0, "Add a file name.");

    if (exists && !S_ISREG(existing.st_mode)) {
        direct = true;
        descriptor = ::open(target.c_str(), O_WRONLY | O_CLOEXEC);
        if (descriptor < 0) fail("cannot be opened for writing", errno);
        return;
    }

    struct stat parent {};
    if (::stat(folder.c_str(), &parent) != 0)
        fail("the folder \"" + folder.string() + "\" cannot be used", errno);
    if (!S_ISDIR(parent.st_mode)) fail("\"" + folder.string() + "\" is no folder", 0, remedyFor(ENOTDIR));
    // Replacing needs no permission on the old file, but taking it away from a file is a wish to keep it.
    if (exists && ::access(target.c_str(), W_OK) != 0) fail("the existing file is write-protected", errno);
    if (!exists && target.filename().string().size() > 255) fail("cannot be written", ENAMETOOLONG);

    if (naming == Naming::AUTOMATIC && ::access("/proc/self/fd", X_OK) == 0)
        descriptor = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666);
    if (descriptor < 0 && !takeFreeName([this](const char* name) {
            descriptor = ::open(name, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
            return descriptor >= 0;
        }))
        fail("no file can be made in the folder \"" + folder.string() + "\"", errno);

    if (exists) {
        // The owner first: a change of owner takes the set-id bits away. Only root may do it, others need
        // not.
        const bool sameOwner = ::fchown(descriptor, existing.st_uid, existing.st_gid) == 0;
        const mode_t mode = existing.st_mode & (sameOwner ? 07777u : 0777u);
        if (::fchmod(descriptor, mode) != 0) fail("the file's permissions cannot be kept", errno);
    }
}

template<typename Take>
bool AtomicFile::takeFreeName(const Take& take) {
    static std::atomic<unsigned> counter{0};
    // A name that is taken belongs to somebody else: take the next.
    for (int attempt = 0; attempt < 1000; ++attempt) {
        const std::string number = std::to_string(::getpid()) + "-" + std::to_string(counter++);
        std::string name = (folder / (".kelsrc-" + number + ".tmp")).string();
        // Noted first: a signal between the two would leave the file.
        if (hooks.onTemporaryFile) noted = hooks.onTemporaryFile(name);
        if (take(name.c_str())) {
            temporaryName = std::move(name);
            return true;
        }
        noted.reset();
        if (errno != EEXIST) break;
    }
    return false;
}

void AtomicFile::onProgress(std::function<void(std::uint64_t)> callback) {
    buffer->onProgress = std::move(callback);
}

std::uint64_t AtomicFile::flush() {
    out.flush();
    if (buffer->error != 0)
        fail("writing failed after " + std::to_string(buffer->bytes) + " bytes", buffer->error);
    if (!out) fail("writing failed", 0);
    if (!direct) {
        struct stat state {};
        if (::fstat(descriptor, &state) != 0) fail("cannot be checked", errno);
        if (static_cast<std::uint64_t>(state.st_size) != buffer->bytes)
            fail("the disk holds " + std::to_string(state.st_size) + " of " + std::to_string(buffer->bytes) +
                     " bytes",
                 0, "Write to another disk.");
    }
    return buffer->bytes;
}

std::string AtomicFile::firstBytes(std::size_t count) {
    flush();
    if (direct) return "";
    std::string bytes(count, '\0');
    const ssize_t got = ::pread(descriptor, bytes.data(), count, 0);
    if (got < 0) fail("cannot be read back", errno);
    bytes.resize(static_cast<std::size_t>(got));
    return bytes;
}

std::string AtomicFile::temporaryPath() const {
    if (direct) return "";
    return temporaryName.empty() ? "/proc/self/fd/" + std::to_string(descriptor) : temporaryName;
}

void AtomicFile::commit() {
    flush();
    // Devices and pipes have nothing to sync.
    if (::fsync(descriptor) != 0 && !(direct && (errno == EINVAL || errno == ENOTSUP)))
        fail("cannot be brought to the disk", errno);
    if (!direct) link();
    const int closing = descriptor;
    descriptor = -1;
    if (::close(closing) != 0 && errno != EINTR) fail("closing failed", errno);
    if (direct) return;
    // The folder's entry is data, too. A folder that may be written but not read cannot be opened for this.
    const int opened = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (opened < 0) return;
    const bool synced = ::fsync(opened) == 0 || errno == EINVAL || errno == ENOTSUP;
    const int error = errno;
    ::close(opened);
    if (!synced) fail("was written, but the folder cannot be brought to the disk", error);
}

void AtomicFile::link() {
    if (temporaryName.empty()) {
        const std::string open = temporaryPath();
        // A new name needs no detour; only an existing file has to be replaced by a rename.
        if (::linkat(AT_FDCWD, open.c_str(), AT_FDCWD, target.c_str(), AT_SYMLINK_FOLLOW) == 0) return;
        if (errno != EEXIST) fail("cannot be put in place", errno);
        if (!takeFreeName([&](const char* name) {
                return ::linkat(AT_FDCWD, open.c_str(), AT_FDCWD, name, AT_SYMLINK_FOLLOW) == 0;
            }))
            fail("cannot be put in place", errno);
    }
    if (::rename(temporaryName.c_str(), target.c_str()) != 0) fail("cannot be put in place", errno);
    temporaryName.clear();
    noted.reset();
}

bool isSameFile(const std::filesystem::path& a, const std::filesystem::path& b) {
    struct stat first {
    }, second{};
    return ::stat(a.c_str(), &first) == 0 && ::stat(b.c_str(), &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

} // namespace kel::convert
