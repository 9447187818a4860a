#include <kel/src/reader/FileData_p.h>

#include <sys/mman.h>

#include <algorithm>
#include <istream>
#include <new>
#include <utility>

namespace kel::src::detail {

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

std::unique_ptr<SrcFileData> readStreamHeader(ByteInput& in, const ReadLimits& limits) {
    ThrowingSink sink;
    const auto read = [&](unsigned char* target, std::size_t size) { return in.read(target, size); };
    GrowingBytes front;
    front.fill(Preamble::BYTES, read);
    Preamble preamble;
    readPreamble({front.data(), front.size()}, limits, sink, preamble);

    auto file = std::make_unique<SrcFileData>();
    file->headerStore.fill(preamble.headerBytes, read);
    if (file->headerStore.size() < preamble.headerBytes) {
        throw SrcError(SrcCode::HEADER_TRUNCATED, Preamble::BYTES + file->headerStore.size(), {},
                       std::to_string(preamble.headerBytes) + " bytes, " +
                           std::to_string(file->headerStore.size()) + " are there");
    }
    ReadLimits rest = limits;
    if (preamble.headerBytes > limits.memoryBytes) {
        throw SrcError(SrcCode::LIMIT_EXCEEDED, 8, {},
                       "memoryBytes is " + std::to_string(limits.memoryBytes));
    }
    rest.memoryBytes -= preamble.headerBytes;
    readHeader({reinterpret_cast<const char*>(file->headerStore.data()), file->headerStore.size()}, rest,
               sink, file->tables);
    return file;
}

} // namespace kel::src::detail
