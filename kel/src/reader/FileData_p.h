#pragma once

#include <kel/src/SrcFile.h>
#include <kel/src/reader/ByteSources_p.h>
#include <kel/src/reader/HeaderTables_p.h>

#include <cstring>
#include <memory>
#include <utility>
#include <vector>

namespace kel::src::detail {

/// What a SrcFile points to.
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

} // namespace kel::src::detail
