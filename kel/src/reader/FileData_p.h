#pragma once

#include <kel/src/SrcReader.h>
#include <kel/src/reader/Door_p.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

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

struct SrcFileData {
    HeaderTables tables;
    ByteView data; ///< the data section; null in a stream that is read mesh by mesh
    std::uint64_t dataBytes = 0;
    /// In a stream that is read mesh by mesh: what has arrived, one buffer per chunk.
    std::vector<GrowingBytes> arrived;

    Mapping mapping;
    GrowingBytes headerStore;
    GrowingBytes dataStore;

    /// A chunk's bytes; null when they have not arrived.
    const unsigned char* chunkBytes(std::uint32_t chunk) const {
        return arrived.empty() ? data.data + tables.chunks[chunk].byteOffset : arrived[chunk].data();
    }
};

/// Copies bytes of one buffer view, going forward only: its chunks are passed once, however often it is
/// asked.
class ForwardCopy {
public:
    ForwardCopy(const SrcFileData& file, const SrcBufferView& view)
        : file(file), chunks(file.tables.viewChunks.data() + view.firstChunk) {}

    /// `offset` is not below the end of the last copy; the bytes lie inside the view.
    ///
    /// returns  false when some have not arrived; nothing can be copied after that
    bool copy(std::uint64_t offset, std::size_t size, unsigned char* target) {
        while (size > 0) {
            const std::uint64_t length = file.tables.chunks[*chunks].byteLength;
            if (offset >= chunkBegin + length) {
                chunkBegin += length;
                ++chunks;
                continue;
            }
            const unsigned char* bytes = file.chunkBytes(*chunks);
            if (!bytes) return false;
            const std::uint64_t inside = offset - chunkBegin;
            const std::size_t part =
                length - inside < size ? static_cast<std::size_t>(length - inside) : size;
            std::memcpy(target, bytes + inside, part);
            target += part;
            offset += part;
            size -= part;
        }
        return true;
    }

private:
    const SrcFileData& file;
    const std::uint32_t* chunks;
    std::uint64_t chunkBegin = 0;
};

/// Opens what SrcFile closes off.
struct SrcFileAccess {
    static SrcFile make(std::unique_ptr<SrcFileData> data) { return SrcFile(std::move(data)); }
    static const SrcFileData& data(const SrcFile& file) { return *file.data; }
    static SrcFileData& data(SrcFile& file) { return *file.data; }
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

/// Reads preamble and header from a stream, and past the door.
std::unique_ptr<SrcFileData> readStreamHeader(ByteInput& in, const ReadLimits& limits);

} // namespace kel::src::detail
