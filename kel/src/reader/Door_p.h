#pragma once

#include <kel/src/SrcReader.h>
#include <kel/src/reader/HeaderText_p.h>
#include <kel/src/reader/IdTable_p.h>

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace kel::src::detail {

/// Where the door's findings go. The reader throws the first one that it refuses; the validator keeps them
/// all.
class FindingSink {
public:
    virtual ~FindingSink() = default;
    /// offset  from the file's first byte, or SrcError::NO_OFFSET
    virtual void report(SrcCode code, std::uint64_t offset, std::string path, std::string detail) = 0;
    /// False lets the door leave out what the reader does not need to know.
    virtual bool wantsAll() const = 0;
};

/// The sink of the reader.
class ThrowingSink final : public FindingSink {
public:
    void report(SrcCode code, std::uint64_t offset, std::string path, std::string detail) override;
    bool wantsAll() const override { return false; }
};

/// A header as tables. In tables that came past a ThrowingSink every reference resolves and every view lies
/// inside its bytes. Otherwise what is at fault is marked: an unresolved reference is SRC_NONE, an entry that
/// must not be used is in one of the lists of the unusable.
struct HeaderTables {
    std::string_view text;
    std::vector<SrcChunk> chunks;
    std::vector<SrcBufferView> bufferViews;
    std::vector<std::uint32_t> viewChunks;
    std::vector<SrcIndexView> indexViews;
    std::vector<SrcAttributeView> attributeViews;
    std::vector<SrcMesh> meshes;
    std::vector<SrcAttribute> attributes;
    std::vector<SrcMaterial> materials;
    std::vector<SrcTechnique> techniques;
    std::string_view metadata;

    IdTable chunkIds, bufferViewIds, indexViewIds, attributeViewIds, meshIds, materialIds, techniqueIds;
    std::deque<std::string> unescaped; ///< texts that the header holds in another form

    /// Beside the entries; empty when none is unusable.
    std::vector<bool> badChunks, badBufferViews, badIndexViews, badAttributeViews, badMeshes;

    /// Where the last chunk ends.
    std::uint64_t payloadEnd() const;
};

/// The 12 bytes at the front.
struct Preamble {
    static constexpr std::size_t BYTES = 12;
    std::uint32_t headerBytes = 0;
};

/// Checks the preamble of a file of which `bytes` is the beginning.
///
/// returns  false when a finding was reported that makes the rest unreadable
bool readPreamble(ByteView bytes, const ReadLimits& limits, FindingSink& sink, Preamble& preamble);

/// The one door: everything that the header says is checked here, once, in arithmetic that cannot wrap.
/// Counts, offsets and lengths are whole numbers below 2^53; sums of two fit 64 bits, and no product is
/// formed: a count is compared with what a division says there is room for.
///
/// returns  false when the text could not be walked to its end
bool readHeader(std::string_view text, const ReadLimits& limits, FindingSink& sink, HeaderTables& tables);

/// Checks the chunks against the bytes that the data section has.
void checkChunks(HeaderTables& tables, std::uint64_t dataBytes, FindingSink& sink);

} // namespace kel::src::detail
