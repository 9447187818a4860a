#include <kel/src/reader/FileData_p.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <istream>
#include <new>
#include <system_error>

namespace kel::src::detail {

namespace {

[[noreturn]] void unreadable(const std::string& path) {
    throw SrcError(SrcCode::UNREADABLE, SrcError::NO_OFFSET, {},
                   "\"" + path + "\": " + std::generic_category().message(errno));
}

} // namespace

ByteInput inputFrom(std::istream& in) {
    return [&in](unsigned char* target, std::size_t size) {
        in.read(reinterpret_cast<char*>(target), static_cast<std::streamsize>(size));
        return static_cast<std::size_t>(in.gcount());
    };
}

void GrowingBytes::fill(std::uint64_t wanted, const ByteInput& in) {
    constexpr std::size_t FIRST_STEP = std::size_t(1) << 20;
    while (used < wanted) {
        if (used == capacity) {
            const auto larger =
                static_cast<std::size_t>(std::min<std::uint64_t>(wanted, std::max(FIRST_STEP, capacity * 2)));
            void* const moved = std::realloc(bytes.get(), larger);
            if (!moved) throw std::bad_alloc();
            static_cast<void>(bytes.release()); // realloc has freed it
            bytes.reset(static_cast<unsigned char*>(moved));
            capacity = larger;
        }
        const std::size_t got = in(
            bytes.get() + used, static_cast<std::size_t>(std::min<std::uint64_t>(capacity, wanted) - used));
        if (got == 0) return;
        used += got;
    }
}

OpenedFile openFile(const std::string& path) {
    const int number = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (number < 0) unreadable(path);
    const std::shared_ptr<void> closed(nullptr, [number](void*) { ::close(number); });
    struct ::stat status {};
    if (::fstat(number, &status) != 0) unreadable(path);
    if (S_ISDIR(status.st_mode))
        throw SrcError(SrcCode::NOT_A_FILE, SrcError::NO_OFFSET, {}, "\"" + path + "\" is a directory");
    // Some systems call files regular and empty whose bytes are made up while one reads; so empty ones are read.
    if (S_ISREG(status.st_mode) && status.st_size > 0) {
        const auto size = static_cast<std::size_t>(status.st_size);
        void* const address = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, number, 0);
        if (address != MAP_FAILED) {
            const auto unmap = [size](void* mapped) { ::munmap(mapped, size); };
            return {{address, size}, std::shared_ptr<void>(address, unmap), {}};
        }
    }
    return {{}, {}, [number, closed, path](unsigned char* target, std::size_t size) {
                for (;;) {
                    const ssize_t got = ::read(number, target, std::min(size, std::size_t(1) << 30));
                    if (got >= 0) return static_cast<std::size_t>(got);
                    if (errno != EINTR) unreadable(path);
                }
            }};
}

} // namespace kel::src::detail
