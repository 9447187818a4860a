#pragma once

#include <kel/src/SrcFile.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <iosfwd>
#include <string>

namespace kel::src::detail {

/// Bytes that grow as they are read. Not a vector: a vector writes zeros before it is read into.
class GrowingBytes {
public:
    GrowingBytes() = default;
    GrowingBytes(GrowingBytes&& other) noexcept;
    GrowingBytes& operator=(GrowingBytes&& other) noexcept;
    ~GrowingBytes() { std::free(bytes); }

    const unsigned char* data() const { return bytes; }
    std::size_t size() const { return used; }

    /// Calls `read(target, n)`, which says how many bytes it got, until `wanted` bytes are there or none
    /// come. Takes memory in steps that double, so that a claim costs nothing that is not kept.
    template<typename Read>
    void fill(std::uint64_t wanted, Read&& read) {
        while (used < wanted) {
            if (used == capacity) grow(wanted);
            const std::size_t room = capacity - used;
            const std::size_t got =
                read(bytes + used, room < wanted - used ? room : static_cast<std::size_t>(wanted - used));
            if (got == 0) return;
            used += got;
        }
    }

private:
    void grow(std::uint64_t wanted);

    unsigned char* bytes = nullptr;
    std::size_t used = 0;
    std::size_t capacity = 0;
};

/// A file mapped for reading.
class Mapping {
public:
    Mapping() = default;
    Mapping(int descriptor, std::size_t size);
    Mapping(Mapping&& other) noexcept;
    Mapping& operator=(Mapping&& other) noexcept;
    ~Mapping();

    bool isMapped() const { return address != nullptr; }
    ByteView bytes() const { return {address, size}; }

private:
    void* address = nullptr;
    std::size_t size = 0;
};

/// Where streamed bytes come from.
class ByteInput {
public:
    virtual ~ByteInput() = default;
    /// Up to `size` bytes; 0 at the end.
    virtual std::size_t read(unsigned char* target, std::size_t size) = 0;
};

class StreamInput final : public ByteInput {
public:
    explicit StreamInput(std::istream& in) : in(in) {}
    std::size_t read(unsigned char* target, std::size_t size) override;

private:
    std::istream& in;
};

/// Opens a file and hands it to one of the two: a regular file as a mapping, a pipe or device as a stream.
///
/// throws  SrcError when it cannot be opened, or is a directory
void openFile(const std::string& path, const std::function<void(Mapping&&)>& mapped,
              const std::function<void(ByteInput&)>& streamed);

} // namespace kel::src::detail
