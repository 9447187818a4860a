#include "MemoryFile.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/magic.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <system_error>

namespace kel::importer::detail {

namespace {

constexpr std::size_t BLOCK = 65536;
constexpr int SEALS = F_SEAL_WRITE | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

} // namespace

MemoryFile::MemoryFile() : file(::memfd_create("kelsrc", MFD_CLOEXEC | MFD_ALLOW_SEALING)) {
    if (!file) fail("memfd_create");
}

void MemoryFile::write(const void* bytes, std::size_t size) {
    const char* const first = static_cast<const char*>(bytes);
    if (waiting.size() + size > BLOCK) writeWaiting();
    if (size > BLOCK) {
        writeAll(first, size);
    } else {
        waiting.insert(waiting.end(), first, first + size);
    }
}

FileDescriptor MemoryFile::seal() {
    writeWaiting();
    if (::fcntl(file.get(), F_ADD_SEALS, SEALS) != 0) fail("F_ADD_SEALS");
    return std::move(file);
}

void MemoryFile::writeWaiting() {
    writeAll(waiting.data(), waiting.size());
    waiting.clear();
}

void MemoryFile::writeAll(const char* bytes, std::size_t size) {
    while (size > 0) {
        const ssize_t written = ::write(file.get(), bytes, size);
        if (written < 0 && errno != EINTR) fail("write");
        if (written <= 0) continue;
        bytes += written;
        size -= static_cast<std::size_t>(written);
    }
}

SealedMemory::SealedMemory(const FileDescriptor& file, std::uint64_t most) {
    const int seals = ::fcntl(file.get(), F_GET_SEALS);
    if (seals < 0 || (seals & SEALS) != SEALS) throw std::runtime_error("it is not sealed");
    // Pages of other kinds than these may be missing when they are read.
    struct statfs system {};
    struct stat status {};
    if (::fstatfs(file.get(), &system) != 0 || system.f_type != TMPFS_MAGIC ||
        ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size < 0)
        throw std::runtime_error("it is no memory");
    const auto size = static_cast<std::uint64_t>(status.st_size);
    if (size > most) throw std::runtime_error("it is larger than allowed");
    if (size == 0) return;
    void* const place = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, file.get(), 0);
    if (place == MAP_FAILED) throw std::bad_alloc();
    content = {static_cast<const char*>(place), size};
}

SealedMemory::~SealedMemory() {
    if (!content.empty()) ::munmap(const_cast<char*>(content.data()), content.size());
}

} // namespace kel::importer::detail
