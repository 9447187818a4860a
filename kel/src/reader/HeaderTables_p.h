#pragma once

#include <kel/src/SrcFile.h>
#include <kel/src/reader/IdTable_p.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace kel::src::detail {

/// Counts, offsets and lengths are below: doubles hold every whole number up to here, and sums of two fit
/// 64 bits.
constexpr std::uint64_t COUNT_END = std::uint64_t(1) << 53;

/// Which entries of a section must not be used. Marks are kept only for a sink that wants all findings:
/// for the reader no entry is unusable, since it refuses the file.
class UnusableEntries {
public:
    bool contains(std::size_t entry) const { return entry < marks.size() && marks[entry]; }
    bool empty() const { return std::find(marks.begin(), marks.end(), true) == marks.end(); }
    /// Does nothing where marks are not kept.
    void mark(std::size_t entry) {
        if (entry < marks.size()) marks[entry] = true;
    }

    std::vector<bool> marks; ///< beside the section's entries, or empty
};

/// A header as tables. In tables that came past a ThrowingSink every reference resolves and every view
/// lies inside its bytes. Otherwise what is at fault is marked: an unresolved reference is SRC_NONE, and
/// an entry that must not be used is in one of the lists of the unusable.
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

    UnusableEntries badChunks, badBufferViews, badIndexViews, badAttributeViews, badMeshes;

    /// Where the last chunk ends.
    std::uint64_t payloadEnd() const {
        std::uint64_t end = 0;
        for (std::size_t i = 0; i < chunks.size(); ++i)
            if (!badChunks.contains(i)) end = std::max(end, chunks[i].byteOffset + chunks[i].byteLength);
        return end;
    }
};

} // namespace kel::src::detail
