#include <kel/src/reader/ByteSources_p.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <istream>
#include <new>
#include <system_error>
#include <utility>

namespace kel::src::detail {

namespace {

[[noreturn]] void unreadable(const std::string& path) {
    throw SrcError(SrcCode::UNREADABLE, SrcError::NO_OFFSET, {},
                   "\"" + path + "\": " + std::generic_category().message(errno));
}

class Descriptor {
public:
    explicit Descriptor(int number) : number(number) {}
    ~Descriptor() {
        if (number >= 0) ::close(number);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return number; }

private:
    int number;
};

class DescriptorInput final : public ByteInput {
public:
    DescriptorInput(int descriptor, std::string path) : descriptor(descriptor), path(std::move(path)) {}

    std::size_t read(unsigned char* target, std::size_t size) override {
        for (;;) {
            const ssize_t got = ::read(descriptor, target, std::min(size, std::size_t(1) << 30));
            if (got >= 0) return static_cast<std::size_t>(got);
            if (errno != EINTR) unreadable(path);
        }
    }

private:
    int descriptor;
    std::string path;
};

} // namespace

GrowingBytes::GrowingBytes(GrowingBytes&& other) noexcept
    : bytes(std::exchange(other.bytes, nullptr)), used(std::exchange(other.used, 0)),
      capacity(std::exchange(other.capacity, 0)) {}

GrowingBytes& GrowingBytes::operator=(GrowingBytes&& other) noexcept {
    std::swap(bytes, other.bytes);
    std::swap(used, other.used);
    std::swap(capacity, other.capacity);
    return *this;
}

void GrowingBytes::grow(std::uint64_t wanted) {
    constexpr std::size_t FIRST_STEP = std::size_t(1) << 20;
    const std::uint64_t larger = std::min<std::uint64_t>(wanted, std::max(FIRST_STEP, capacity * 2));
    void* moved = std::realloc(bytes, static_cast<std::size_t>(larger));
    if (!moved) throw std::bad_alloc();
    bytes = static_cast<unsigned char*>(moved);
    capacity = static_cast<std::size_t>(larger);
}

Mapping::Mapping(int descriptor, std::size_t size) : size(size) {
    void* mapped = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor, 0);
    if (mapped != MAP_FAILED) address = mapped;
}

Mapping::Mapping(Mapping&& other) noexcept
    : address(std::exchange(other.address, nullptr)), size(std::exchange(other.size, 0)) {}

Mapping& Mapping::operator=(Mapping&& other) noexcept {
    std::swap(address, other.address);
    std::swap(size, other.size);
    return *this;
}

Mapping::~Mapping() {
    if (address) ::munmap(address, size);
}

std::size_t StreamInput::read(unsigned char* target, std::size_t size) {
    in.read(reinterpret_cast<char*>(target), static_cast<std::streamsize>(size));
    return static_cast<std::size_t>(in.gcount());
}

void openFile(const std::string& path, const std::function<void(Mapping&&)>& mapped,
              const std::function<void(ByteInput&)>& streamed) {
    const Descriptor descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (descriptor.get() < 0) unreadable(path);
    struct ::stat status {};
    if (::fstat(descriptor.get(), &status) != 0) unreadable(path);
    if (S_ISDIR(status.st_mode))
        throw SrcError(SrcCode::NOT_A_FILE, SrcError::NO_OFFSET, {}, "\"" + path + "\" is a directory");
    // Some systems call files regular and empty whose bytes are made up while one reads; so empty ones are
    // read.
    if (S_ISREG(status.st_mode) && status.st_size > 0) {
        Mapping mapping(descriptor.get(), static_cast<std::size_t>(status.st_size));
        if (mapping.isMapped()) return mapped(std::move(mapping));
    }
    DescriptorInput input(descriptor.get(), path);
    streamed(input);
}

} // namespace kel::src::detail
