#include <kel/mesh/AttributeNames.h>
#include <kel/src/reader/FileData_p.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

namespace kel::src {

namespace detail {

namespace {

/// Copies bytes of one buffer view, going forward only: its chunks are passed once, whatever is asked.
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
            const auto part = static_cast<std::size_t>(std::min<std::uint64_t>(length - inside, size));
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

} // namespace

void forEachRun(const SrcFile& file, const ElementPlaces& elements, const ElementRun& run) {
    if (elements.count == 0) return;
    const SrcBufferView& buffer = file.bufferViews()[elements.bufferView];
    const ByteView whole = file.bytes(buffer);
    if (whole.data) return run(whole.data + elements.offset, 0, static_cast<std::size_t>(elements.count));
    // Gathered in pieces that stay in the cache.
    constexpr std::uint64_t PIECE_BYTES = 64 * 1024;
    const std::uint64_t perPiece = std::max<std::uint64_t>(1, PIECE_BYTES / elements.stride);
    std::vector<unsigned char> piece;
    ForwardCopy forward(SrcFileAccess::data(file), buffer);
    for (std::uint64_t first = 0; first < elements.count; first += perPiece) {
        const std::uint64_t count = std::min(perPiece, elements.count - first);
        piece.resize(static_cast<std::size_t>((count - 1) * elements.stride + elements.size));
        if (!forward.copy(elements.offset + first * elements.stride, piece.size(), piece.data()))
            throw std::logic_error("The bytes of buffer view \"" + std::string(buffer.id) +
                                   "\" are not held: they have not arrived yet, or were let go.");
        run(piece.data(), first, static_cast<std::size_t>(count));
    }
}

void copyElements(const SrcFile& file, const ElementPlaces& elements, void* target) {
    const auto size = static_cast<std::size_t>(elements.size);
    forEachRun(file, elements, [&](const unsigned char* source, std::uint64_t first, std::size_t count) {
        unsigned char* const run = static_cast<unsigned char*>(target) + first * size;
        if (elements.stride == size) {
            std::memcpy(run, source, count * size);
            return;
        }
        for (std::size_t e = 0; e < count; ++e)
            std::memcpy(run + e * size, source + e * elements.stride, size);
    });
}

std::vector<SrcAttribute> ownAttributes(const SrcFile& file, const SrcMesh& mesh) {
    const SrcRange<SrcAttribute> all = file.attributes(mesh);
    const auto position = static_cast<std::uint32_t>(&mesh - file.meshes().begin());
    const auto isOwn = [&](const SrcAttribute& attribute) {
        return file.attributeViews()[attribute.view].owner == position;
    };
    bool ownsPositions = false;
    for (const SrcAttribute& attribute : all)
        if (attribute.name == kel::mesh::DEFAULT_POSITIONS_NAME) ownsPositions = isOwn(attribute);
    std::vector<SrcAttribute> own;
    for (const SrcAttribute& attribute : all)
        if (!ownsPositions || isOwn(attribute)) own.push_back(attribute);
    return own;
}

SrcAttributeView positionPart(const SrcAttributeView& combined) {
    SrcAttributeView positions = combined;
    positions.components = 3;
    return positions;
}

} // namespace detail

ByteView SrcFile::bytes(const SrcBufferView& view) const {
    const std::uint32_t* chunks = data->tables.viewChunks.data() + view.firstChunk;
    const unsigned char* first = nullptr;
    const unsigned char* expected = nullptr;
    std::uint64_t covered = 0;
    for (std::uint32_t c = 0; c < view.chunkCount && covered < view.storedBytes; ++c) {
        const std::uint64_t length = data->tables.chunks[chunks[c]].byteLength;
        if (length == 0) continue;
        const unsigned char* begin = data->chunkBytes(chunks[c]);
        if (!begin || (first && (!data->arrived.empty() || begin != expected))) return {};
        if (!first) first = begin;
        expected = begin + length;
        covered += length;
    }
    return {first, static_cast<std::size_t>(view.storedBytes)};
}

bool SrcFile::copyBytes(const SrcBufferView& view, std::uint64_t offset, std::size_t size,
                        void* target) const {
    return detail::ForwardCopy(*data, view).copy(offset, size, static_cast<unsigned char*>(target));
}

} // namespace kel::src
