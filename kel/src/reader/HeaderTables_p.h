#pragma once

#include <kel/src/SrcFile.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// A header as tables, the steps that make and check them, and where these report what they find.
namespace kel::src::detail {

/// Where findings go. The reader throws the first one that it refuses; the validator keeps them all.
class FindingSink {
public:
    virtual ~FindingSink() = default;
    /// offset  from the file's first byte, or SrcError::NO_OFFSET
    /// path    the place in the header as a JSON pointer; may be empty
    /// detail  what was found there; may be empty
    virtual void report(SrcCode code, std::uint64_t offset, std::string path, std::string detail) = 0;
    /// False lets a check leave out what the reader does not need to know.
    virtual bool wantsAll() const = 0;
};

/// The sink of the reader: throws SrcError for what the reader refuses, and drops the rest.
class ThrowingSink final : public FindingSink {
public:
    void report(SrcCode code, std::uint64_t offset, std::string path, std::string detail) override {
        if (infoOf(code).refused) throw SrcError(code, offset, std::move(path), std::move(detail));
    }
    bool wantsAll() const override { return false; }
};

/// A text of the file for a message: in quotes, and cut where it is long.
inline std::string quoted(std::string_view text) {
    constexpr std::size_t LONGEST = 80; // a message is for people
    return '"' + std::string(text.substr(0, LONGEST)) + (text.size() > LONGEST ? "\"..." : "\"");
}

/// Counts, offsets and lengths are below: doubles hold every whole number up to here, and sums of two fit
/// 64 bits.
constexpr std::uint64_t COUNT_END = std::uint64_t(1) << 53;

/// Where the last two numbers of the preamble begin.
constexpr std::size_t LAYOUT_AT = 4, HEADER_BYTES_AT = 8;

/// Where the elements of a view of either kind lie.
struct ElementPlaces {
    ElementPlaces(const SrcIndexView& view)
        : bufferView(view.bufferView), offset(view.byteOffset), count(view.count),
          stride(kel::mesh::getComponentSizeInBytes(view.componentType)), size(stride) {}
    ElementPlaces(const SrcAttributeView& view)
        : bufferView(view.bufferView), offset(view.byteOffset), count(view.count), stride(view.byteStride),
          size(std::uint64_t(view.components) * view.componentBytes) {}

    std::uint32_t bufferView;
    std::uint64_t offset; ///< from the start of the buffer view
    std::uint64_t count;
    std::uint64_t stride; ///< from one element to the next
    std::uint64_t size;   ///< bytes of one element
};

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

/// Takes the entries at these positions, which ascend, out of a list.
template<typename List>
void takeOut(List& list, const std::vector<std::uint32_t>& positions) {
    std::size_t kept = positions[0], next = 0;
    for (std::size_t i = kept; i < list.size(); ++i) {
        if (next < positions.size() && positions[next] == i) {
            ++next;
        } else {
            list[kept++] = list[i];
        }
    }
    list.resize(kept);
}

/// Finds the position of an ID among the IDs of one section.
///
/// Writers number their IDs, "chunk0", "chunk1" and so on: those are looked up by their number, without a
/// comparison of texts, which costs a cache miss each. All others are sorted; a hash table would be no faster
/// for the few of them, and could be driven to quadratic time by a file made for it.
class IdTable {
public:
    static constexpr std::uint32_t NOT_FOUND = SRC_NONE;

    /// Bytes that a table of so many IDs takes at most.
    static std::uint64_t memoryFor(std::uint64_t count) { return count * 32 + 4096; }

    /// Calls `shadowed(position)` for every ID that stands again behind it; the last one is kept.
    template<typename Entries, typename Shadowed>
    void build(const Entries& entries, Shadowed&& shadowed) {
        numbered.clear();
        others.clear();
        prefix = entries.empty() ? std::string_view() : withoutNumber(entries[0].id);
        numbered.assign(entries.size() * 2 + 64, NOT_FOUND);
        for (std::size_t i = 0; i < entries.size(); ++i) {
            const auto position = static_cast<std::uint32_t>(i);
            const std::size_t number = numberOf(entries[i].id);
            if (number < numbered.size()) {
                if (numbered[number] != NOT_FOUND) shadowed(numbered[number]);
                numbered[number] = position;
            } else {
                others.emplace_back(entries[i].id, position);
            }
        }
        std::sort(others.begin(), others.end());
        std::size_t kept = 0;
        for (std::size_t i = 0; i < others.size(); ++i) {
            if (i + 1 < others.size() && others[i].first == others[i + 1].first) {
                shadowed(others[i].second);
            } else {
                others[kept++] = others[i];
            }
        }
        others.resize(kept);
    }

    std::uint32_t find(std::string_view id) const {
        const std::size_t number = numberOf(id);
        if (number < numbered.size()) return numbered[number];
        const auto found =
            std::lower_bound(others.begin(), others.end(), std::make_pair(id, std::uint32_t(0)));
        return found != others.end() && found->first == id ? found->second : NOT_FOUND;
    }

    /// Positions in the order of the IDs' numbers; empty when any ID has none.
    std::vector<std::uint32_t> byNumber() const {
        std::vector<std::uint32_t> positions;
        if (!others.empty()) return positions;
        for (const std::uint32_t position : numbered)
            if (position != NOT_FOUND) positions.push_back(position);
        return positions;
    }

    /// What stands before the digits at the end of an ID.
    static std::string_view withoutNumber(std::string_view id) {
        std::size_t last = id.size();
        while (last > 0 && id[last - 1] >= '0' && id[last - 1] <= '9')
            --last;
        return id.substr(0, last);
    }

private:
    /// The number behind the prefix, written without leading zeros; NOT_FOUND for an ID of another form.
    std::size_t numberOf(std::string_view id) const {
        if (id.size() <= prefix.size() || id.size() > prefix.size() + 9 ||
            id.substr(0, prefix.size()) != prefix)
            return NOT_FOUND;
        const std::string_view digits = id.substr(prefix.size());
        if (digits[0] == '0' && digits.size() > 1) return NOT_FOUND;
        std::size_t number = 0;
        for (const char digit : digits) {
            if (digit < '0' || digit > '9') return NOT_FOUND;
            number = number * 10 + static_cast<std::size_t>(digit - '0');
        }
        return number;
    }

    std::string_view prefix;
    std::vector<std::uint32_t> numbered;
    std::vector<std::pair<std::string_view, std::uint32_t>> others;
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

/// What a mesh names besides its attributes.
struct MeshReferences {
    std::string_view indices;
    std::string_view material;
};

/// The references of a header by name, kept until all sections are read.
struct HeaderReferences {
    std::vector<std::string_view> chunks;           ///< of all buffer views, in order
    std::vector<std::string_view> indexBuffers;     ///< beside HeaderTables::indexViews
    std::vector<std::string_view> attributeBuffers; ///< beside HeaderTables::attributeViews
    std::vector<std::string_view> attributeViews;   ///< beside HeaderTables::attributes
    std::vector<std::string_view> techniques;       ///< beside HeaderTables::materials
    std::vector<MeshReferences> meshes;             ///< beside HeaderTables::meshes

    // What names an entry of a section that is missing is not told on top.
    bool hasChunks = false, hasBufferViews = false, hasIndexViews = false, hasAttributeViews = false;
};

/// Checks the preamble of a file of which `bytes` is the beginning.
///
/// returns  the length of the header; 0 when a finding was reported that makes the rest unreadable
std::uint32_t readPreamble(ByteView bytes, const ReadLimits& limits, FindingSink& sink);

/// Reads a header into tables and resolves its references. Everything that it says is checked here, once,
/// in arithmetic that cannot wrap: counts, offsets and lengths are whole numbers below 2^53, sums of two
/// of them fit 64 bits, and no product is formed: a count is compared with what a division says there is
/// room for.
///
/// text     must outlive `tables`
/// returns  false when the text could not be walked to its end
bool readHeader(std::string_view text, const ReadLimits& limits, FindingSink& sink, HeaderTables& tables);

/// Turns names into positions, takes out entries that a later one of the same ID replaces, puts meshes into
/// writing order, and checks that every view lies inside the bytes of its buffer view.
void resolveReferences(HeaderTables& tables, HeaderReferences& references, FindingSink& sink);

/// Checks the chunks, and what buffer views make of them, against the bytes that the data section has.
void checkChunks(HeaderTables& tables, std::uint64_t dataBytes, FindingSink& sink);

} // namespace kel::src::detail
