#include <kel/src/SrcStream.h>

#include <kel/src/format/FileLayout.h>
#include <kel/src/reader/FileData_p.h>
#include <kel/src/text/JsonPointer.h>

#include <algorithm>
#include <numeric>
#include <utility>

namespace kel::src {

struct SrcStream::State {
    State(std::istream& in, const ReadLimits& limits)
        : input(detail::inputFrom(in)), limits(limits),
          file(detail::SrcFileAccess::make(detail::loadStreamHeader(input, limits, sink))) {}

    detail::ByteInput input;
    detail::ThrowingSink sink;
    ReadLimits limits;
    SrcFile file;

    /// By their place in the data section; those without bytes are left out.
    std::vector<std::uint32_t> chunksInOrder;
    std::vector<std::uint32_t> meshesInOrder; ///< by their ends
    std::vector<std::uint64_t> ends;          ///< per mesh, where its last byte lies
    /// Per chunk: how many meshes of that order there are up to the last one that uses it; 0 for unused.
    std::vector<std::uint32_t> usesEnd;
    std::vector<std::uint32_t> releases; ///< chunks in the order of usesEnd
    std::size_t nextChunk = 0, nextMesh = 0, nextRelease = 0;
    std::uint64_t position = 0; ///< in the data section
    std::uint64_t held = 0;

    detail::SrcFileData& data() { return detail::SrcFileAccess::data(file); }

    template<typename Use>
    void forEachBuffer(const SrcMesh& mesh, Use&& use) {
        if (mesh.indexView != SRC_NONE) use(file.indexViews()[mesh.indexView].bufferView);
        for (const SrcAttribute& attribute : file.attributes(mesh))
            use(file.attributeViews()[attribute.view].bufferView);
    }

    void plan() {
        const SrcRange<SrcChunk> chunks = file.chunks();
        data().arrived.resize(chunks.size());
        // A view that repeats chunks would be longer than all the data; the true length is not known yet.
        data().dataBytes = data().tables.payloadEnd();
        detail::checkChunks(data().tables, data().dataBytes, sink);

        for (std::uint32_t c = 0; c < chunks.size(); ++c)
            if (chunks[c].byteLength > 0) chunksInOrder.push_back(c);
        std::stable_sort(chunksInOrder.begin(), chunksInOrder.end(), [&](std::uint32_t a, std::uint32_t b) {
            return chunks[a].byteOffset < chunks[b].byteOffset;
        });
        for (std::size_t i = 1; i < chunksInOrder.size(); ++i) {
            const SrcChunk& before = chunks[chunksInOrder[i - 1]];
            const SrcChunk& after = chunks[chunksInOrder[i]];
            if (after.byteOffset < before.byteOffset + before.byteLength)
                refuse(SrcCode::STREAM_OVERLAP, after, {});
        }

        // By buffer view first and by chunk then: going from every mesh to its chunks could be made quadratic.
        const SrcRange<SrcBufferView> buffers = file.bufferViews();
        std::vector<std::uint64_t> bufferEnds(buffers.size(), 0);
        for (std::size_t b = 0; b < buffers.size(); ++b) {
            for (std::uint32_t c = 0; c < buffers[b].chunkCount; ++c) {
                const SrcChunk& chunk = chunks[file.viewChunks()[buffers[b].firstChunk + c]];
                if (chunk.byteLength > 0)
                    bufferEnds[b] = std::max(bufferEnds[b], chunk.byteOffset + chunk.byteLength);
            }
        }
        const SrcRange<SrcMesh> meshes = file.meshes();
        ends.assign(meshes.size(), 0);
        for (std::size_t m = 0; m < meshes.size(); ++m)
            forEachBuffer(meshes[m], [&](std::uint32_t b) { ends[m] = std::max(ends[m], bufferEnds[b]); });
        meshesInOrder.resize(meshes.size());
        std::iota(meshesInOrder.begin(), meshesInOrder.end(), 0u);
        std::stable_sort(meshesInOrder.begin(), meshesInOrder.end(),
                         [&](std::uint32_t a, std::uint32_t b) { return ends[a] < ends[b]; });

        std::vector<std::uint32_t> bufferUsesEnd(buffers.size(), 0);
        for (std::size_t rank = 0; rank < meshesInOrder.size(); ++rank)
            forEachBuffer(meshes[meshesInOrder[rank]],
                          [&](std::uint32_t b) { bufferUsesEnd[b] = static_cast<std::uint32_t>(rank + 1); });
        usesEnd.assign(chunks.size(), 0);
        for (std::size_t b = 0; b < buffers.size(); ++b) {
            for (std::uint32_t c = 0; c < buffers[b].chunkCount; ++c) {
                std::uint32_t& end = usesEnd[file.viewChunks()[buffers[b].firstChunk + c]];
                end = std::max(end, bufferUsesEnd[b]);
            }
        }
        for (const std::uint32_t chunk : chunksInOrder)
            if (usesEnd[chunk] > 0) releases.push_back(chunk);
        std::stable_sort(releases.begin(), releases.end(),
                         [&](std::uint32_t a, std::uint32_t b) { return usesEnd[a] < usesEnd[b]; });
    }

    [[noreturn]] static void refuse(SrcCode code, const SrcChunk& chunk, std::string detail) {
        throw SrcError(code, SrcError::NO_OFFSET,
                       text::jsonPointer({format::section::BUFFER_CHUNKS, chunk.id}), std::move(detail));
    }

    [[noreturn]] void endedIn(const SrcChunk& chunk) {
        refuse(SrcCode::CHUNK_PAST_END, chunk,
               std::to_string(chunk.byteLength) + " bytes from byte " + std::to_string(chunk.byteOffset) +
                   "; the stream ends at " + std::to_string(position));
    }

    void skipTo(std::uint64_t offset) {
        unsigned char scrap[4096];
        while (position < offset) {
            const std::size_t got = input(
                scrap, static_cast<std::size_t>(std::min<std::uint64_t>(sizeof scrap, offset - position)));
            if (got == 0) return; // the chunk behind the gap tells
            position += got;
        }
    }

    void readChunk(std::uint32_t chunk) {
        const SrcChunk& entry = file.chunks()[chunk];
        if (usesEnd[chunk] == 0) {
            skipTo(entry.byteOffset + entry.byteLength);
            if (position < entry.byteOffset + entry.byteLength) endedIn(entry);
            return;
        }
        skipTo(entry.byteOffset);
        if (entry.byteLength > limits.memoryBytes - held)
            refuse(SrcCode::LIMIT_EXCEEDED, entry, "memoryBytes is " + std::to_string(limits.memoryBytes));
        // In steps, so that a claim takes no memory before its bytes come.
        detail::GrowingBytes bytes;
        bytes.fill(position < entry.byteOffset ? 0 : entry.byteLength, input);
        position += bytes.size();
        if (bytes.size() < entry.byteLength) endedIn(entry);
        data().arrived[chunk] = std::move(bytes);
        held += entry.byteLength;
    }
};

SrcStream::SrcStream(std::istream& in, const ReadLimits& limits)
    : state(std::make_unique<State>(in, limits)) {
    state->plan();
}
SrcStream::SrcStream(SrcStream&&) noexcept = default;
SrcStream::~SrcStream() = default;

const SrcFile& SrcStream::file() const {
    return state->file;
}

std::uint64_t SrcStream::heldBytes() const {
    return state->held;
}

const SrcMesh* SrcStream::next() {
    State& s = *state;
    // What only meshes before this one used goes now.
    while (s.nextRelease < s.releases.size()) {
        const std::uint32_t chunk = s.releases[s.nextRelease];
        if (s.usesEnd[chunk] > s.nextMesh) break;
        s.held -= s.data().arrived[chunk].size();
        s.data().arrived[chunk] = {};
        ++s.nextRelease;
    }
    if (s.nextMesh == s.meshesInOrder.size()) return nullptr;
    const std::uint64_t end = s.ends[s.meshesInOrder[s.nextMesh]];
    while (s.nextChunk < s.chunksInOrder.size()) {
        const std::uint32_t chunk = s.chunksInOrder[s.nextChunk];
        if (s.file.chunks()[chunk].byteOffset >= end) break;
        s.readChunk(chunk);
        ++s.nextChunk;
    }
    return &s.file.meshes()[s.meshesInOrder[s.nextMesh++]];
}

} // namespace kel::src
