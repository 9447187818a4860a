#include <kel/src/reader/ElementRuns_p.h>

#include <kel/src/reader/FileData_p.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

namespace kel::src::detail {

void forEachRun(
    const SrcFile& file, const SrcBufferView& buffer, std::uint64_t byteOffset, std::uint64_t stride,
    std::uint64_t element, std::uint64_t count,
    const std::function<void(const unsigned char* source, std::uint64_t first, std::size_t count)>& run) {
    if (count == 0) return;
    const ByteView whole = file.bytes(buffer);
    if (whole.data) {
        run(whole.data + byteOffset, 0, static_cast<std::size_t>(count));
        return;
    }
    // Gathered in pieces that stay in the cache.
    constexpr std::uint64_t PIECE_BYTES = 64 * 1024;
    const std::uint64_t perPiece = std::max<std::uint64_t>(1, PIECE_BYTES / stride);
    std::vector<unsigned char> piece;
    ForwardCopy forward(SrcFileAccess::data(file), buffer);
    for (std::uint64_t first = 0; first < count; first += perPiece) {
        const std::uint64_t elements = std::min(perPiece, count - first);
        piece.resize(static_cast<std::size_t>((elements - 1) * stride + element));
        if (!forward.copy(byteOffset + first * stride, piece.size(), piece.data()))
            throw std::logic_error("The bytes of buffer view \"" + std::string(buffer.id) +
                                   "\" are not held: they have not arrived yet, or were let go.");
        run(piece.data(), first, static_cast<std::size_t>(elements));
    }
}

const SrcBufferView& bufferOf(const SrcFile& file, const SrcAttributeView& view) {
    return file.bufferViews()[view.bufferView];
}

} // namespace kel::src::detail
