#pragma once

#include <kel/src/Export.h>

#include <picojson.h>

#include <cstdint>
#include <iosfwd>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kel::src::detail {

/// An SRC document in memory: a JSON header that names every buffer, view, mesh, material and technique by a
/// string ID, and the binary chunks that the header points into. Fill it with the add operations in any
/// order, then write it.
///
/// The container owns a copy of everything added. IDs are stored as given and not checked against other
/// sections, except where an operation says so. Numbers that are NaN or infinite raise picojson's
/// std::overflow_error from the operation that adds them. Not synchronised; use one container from one thread
/// at a time.
///
/// An operation that runs out of memory adds all of its entry or none; the ID that it took is used up, and chunks
/// that it stored remain. The container can be filled further and written as ever.
class KELSRC_EXPORT ShapeResourceContainer {
public:
    /// Element types of index and attribute data.
    enum SRCDataType : std::uint32_t {
        UBYTE = 0,
        BYTE = 1,
        USHORT = 2,
        SHORT = 3,
        UINT = 4,
        INT = 5,
        FLOAT = 6
    };
    /// Primitive types that a container's meshes may have.
    enum SRCPrimitiveType : std::uint32_t { TRIANGLES = 0, LINES = 1, POINTS = 2 };

    /// The WebGL data type code, 5120 to 5126; 5126 (FLOAT) for an unknown value.
    static std::uint32_t getWebGLTypeIdentifier(SRCDataType type);
    /// The WebGL primitive mode: 4 triangles, 1 lines, 0 points; 4 for an unknown value.
    static std::uint32_t getWebGLPrimitiveTypeIdentifier(SRCPrimitiveType type);
    /// "SCALAR", "VEC2", "VEC3" or "VEC4" for 1 to 4 components; "INVALID" for any other count.
    static std::string getComponentTypeString(unsigned int components);

    ShapeResourceContainer();
    ~ShapeResourceContainer();
    ShapeResourceContainer(const ShapeResourceContainer&) = delete;
    ShapeResourceContainer& operator=(const ShapeResourceContainer&) = delete;

    /// A new ID of each kind: a prefix and that kind's own counter, from 0, in decimal. Behind 4294967295 a counter
    /// goes on with 0, and an entry replaces the older one of the same ID. An ID that is not used costs nothing.
    std::string createIndexViewID();
    std::string createAttributeViewID();
    std::string createBufferViewID();
    std::string createBufferChunkID();

    /// Adds one block of `size` bytes and returns its buffer view ID.
    ///
    /// chunkBorders  null stores all bytes as one chunk. Otherwise each border is the end (exclusive) of one
    ///               chunk; borders ascend and lie below `size`. The bytes after the last border are not stored,
    ///               and no border may equal `size`: a border list marks off pieces of a longer block, and null
    ///               is the way to store all of it. A border that is not below `size`, or lies below its
    ///               predecessor, is reported on standard error and ends the walk; chunks made so far stay.
    std::string addBufferView(const unsigned char* data, unsigned long size,
                              const std::vector<unsigned int>* chunkBorders);
    /// The same for bytes that the caller gives away: one chunk, nothing copied.
    std::string addBufferView(std::vector<unsigned char>&& bytes);

    /// Stores one chunk for a buffer view whose JSON object, with an array "chunks", the header lacks yet.
    void appendChunk(const std::string& bufferViewId, picojson::object& bufferViewObject,
                     const std::vector<unsigned char>& bytes);

    /// Adds a typed view of `count` indices and returns its ID.
    std::string addIndexView(const std::string& bufferViewId, unsigned long byteOffset, unsigned long count,
                             SRCDataType dataType);

    /// Adds a typed view of `count` elements of N components (1, 2 or 3) and returns its ID. `decodeOffset`
    /// and `decodeScale` point to N doubles each; a reader computes value = (stored + offset) / scale.
    template<unsigned int N>
    std::string addAttributeView(const std::string& bufferViewId, unsigned long byteOffset,
                                 unsigned long byteStride, unsigned long count, SRCDataType dataType,
                                 const double* decodeOffset, const double* decodeScale);

    /// Adds a mesh, or replaces the one with this ID together with its metadata.
    ///
    /// attributes             attribute name to attribute view ID
    /// bboxCenter, bboxSize   three floats each, or null to leave the entry out
    /// meta                   the mesh's metadata; anything but a JSON object is ignored
    void addMesh(const std::string& id, const std::map<std::string, std::string>& attributes,
                 const std::string& indexViewId, const std::string& materialId,
                 SRCPrimitiveType primitiveType, const float* bboxCenter, const float* bboxSize,
                 picojson::value meta);

    /// Sets one entry of the document's metadata.
    void addMetaData(const std::string& key, const picojson::value& value);

    /// Adds or replaces a technique.
    void addTechnique(const std::string& id, const picojson::value& parameters);

    /// Sets one entry of a mesh's metadata; an unknown mesh is reported on standard error.
    void addMetaDataToMesh(const std::string& key, const picojson::value& value, const std::string& meshId);

    /// Adds or replaces a material.
    void addMaterial(const std::string& id, const std::string& techniqueId, const picojson::value& values);

    /// Sets a mesh's material. An unknown mesh is reported on standard error and nothing changes; a material
    /// that is not there yet is assigned all the same, with a warning on standard output.
    void assignMaterialToMesh(const std::string& materialId, const std::string& meshId);

    /// Writes preamble, header and chunks. The stream is not flushed and its state is not looked at. Writing
    /// changes nothing: a second write gives the same bytes.
    ///
    /// A header longer than 4294967295 bytes does not fit the format; its length is cut to 32 bits.
    void writeToStream(std::ostream& out);

    /// Writes to a file, truncating it. A file that cannot be opened is reported on standard error; write
    /// errors are not reported. Says on standard output where it writes.
    void writeToFile(const char* path);

    /// The document's metadata, to read or change in place.
    picojson::object& getMetaData();

protected:
    // The next number of each kind of ID. Open to derived classes, so that a test can stand close to the largest.
    std::uint32_t indexViewCounter = 0;
    std::uint32_t attributeViewCounter = 0;
    std::uint32_t bufferViewCounter = 0;
    std::uint32_t bufferChunkCounter = 0;

private:
    // The entries of the large sections are kept as small records and as the text that the file will hold,
    // not as a JSON tree: a tree costs some 70 map nodes and 10 KB per mesh, the records half a kilobyte.
    // With many small meshes memory touched for the first time is most of the cost of an export, and freeing
    // it node by node much of the rest.

    /// Bytes that live as long as the container, in blocks that never move.
    class BlockStore {
    public:
        const char* keep(const void* bytes, std::size_t size);
        std::string_view keep(std::string_view text) { return {keep(text.data(), text.size()), text.size()}; }

    private:
        std::vector<std::unique_ptr<char[]>> blocks;
        char* free = nullptr;
        std::size_t freeBytes = 0;
    };

    // Entries of IDs that we make begin with the number in the ID.
    struct ChunkEntry {
        std::uint32_t number;
        const char* data;
        std::uint64_t byteLength, byteOffset;
    };
    struct BufferViewEntry {
        std::uint32_t number, firstChunk, chunkCount;
        std::uint64_t byteLength;
    };
    struct IndexViewEntry {
        std::uint32_t number, componentType;
        std::string_view bufferView; ///< as JSON text, like all texts in entries
        std::uint64_t byteOffset, count;
    };
    struct AttributeViewEntry {
        std::uint32_t number;
        std::uint16_t componentType, components;
        std::string_view bufferView, decode; ///< decode holds both decode vectors with their keys
        std::uint64_t byteOffset, byteStride, count;
    };

    /// A section keyed by a prefix and a counter. Its size is that of its entries, whatever their numbers are.
    template<typename Entry>
    class NumberedSection {
    public:
        void put(const Entry& entry);
        /// Calls visit(number, entry) in the byte order of the numbers' decimal texts. Of entries with one number
        /// the last added counts.
        template<typename Visit>
        void inTextOrder(const Visit& visit) const;

        std::vector<Entry> entries; ///< in the order in which they were added

    private:
        bool consecutive = true; ///< from 0: no ID was left unused, and the counter has not started over
    };

    /// A section keyed by the caller's IDs. Remembers the last entry touched: the next is most often that one
    /// again, or the one behind it.
    template<typename Entry>
    class KeyedSection {
    public:
        Entry& put(const std::string& id, Entry entry);
        Entry* find(const std::string& id);
        const std::map<std::string, Entry>& all() const { return entries; }

    private:
        std::map<std::string, Entry> entries;
        typename std::map<std::string, Entry>::iterator last = entries.end();
    };

    static constexpr std::uint32_t NO_MEMBER = 0xffffffff;

    /// One member of a mesh's metadata; a mesh's members form a list.
    struct MetaMember {
        std::string_view key, text; ///< text holds the key as JSON, a colon and the value
        std::uint32_t next = NO_MEMBER;
    };
    struct MeshEntry {
        std::string_view head; ///< from "attributes" up to the material's ID
        std::string_view material;
        std::uint32_t primitive;
        std::uint32_t firstMember = NO_MEMBER, lastMember = NO_MEMBER;
        bool hasMeta = false;
        bool membersInOrder = true; ///< ascending keys, each once
    };

    std::string_view keepJson(std::string_view string);
    MeshEntry* findMesh(const std::string& id, const char* purpose);
    std::uint32_t storeMember(const std::string& key, const picojson::value& value);
    void attachMember(MeshEntry& mesh, std::uint32_t number);
    void storeChunk(const char* keptData, std::uint64_t size);
    void copyChunk(const unsigned char* data, std::uint64_t size);
    void storeChunk(std::vector<unsigned char>&& bytes);
    static void sortMembers(std::vector<const MetaMember*>& members);
    std::string addAttributeView(unsigned int components, const std::string& bufferViewId,
                                 unsigned long byteOffset, unsigned long byteStride, unsigned long count,
                                 SRCDataType dataType, const double* decodeOffset, const double* decodeScale);
    std::string metaDataText() const;
    std::uint64_t headerBytes(const std::string& metaText) const;
    void writeDocument(std::ostream& out, const std::string& metaText, std::uint64_t headerBytes) const;
    template<typename Sink>
    void emitHeader(Sink& sink, std::string_view metaText) const;

    picojson::value documentMeta; ///< always an object
    std::vector<std::vector<unsigned char>> ownedChunks;
    std::uint64_t chunkBytes = 0; ///< the sum of all chunks' lengths: where the next chunk begins
    BlockStore store;             ///< small chunks and all texts
    std::string scratch;          ///< the text under construction
    NumberedSection<AttributeViewEntry> attributeViews;
    NumberedSection<IndexViewEntry> indexViews;
    NumberedSection<ChunkEntry> bufferChunks;
    NumberedSection<BufferViewEntry> bufferViews;
    std::string_view lastDecode; ///< most views repeat the decode vectors of an earlier one
    KeyedSection<std::string_view> materials;
    KeyedSection<MeshEntry> meshes;
    std::vector<MetaMember> metaMembers;
    KeyedSection<std::string_view> techniques;
};

} // namespace kel::src::detail
