#pragma once

#include <kel/src/Export.h>
#include <kel/src/encoding/DataTypes.h>

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
/// at a time. A container that an exception has left half filled can still be destroyed.
class KELSRC_EXPORT ShapeResourceContainer {
public:
    using SRCDataType = detail::SRCDataType;
    using SRCPrimitiveType = detail::SRCPrimitiveType;

    static constexpr SRCDataType UBYTE = SRCDataType::UBYTE;
    static constexpr SRCDataType BYTE = SRCDataType::BYTE;
    static constexpr SRCDataType USHORT = SRCDataType::USHORT;
    static constexpr SRCDataType SHORT = SRCDataType::SHORT;
    static constexpr SRCDataType UINT = SRCDataType::UINT;
    static constexpr SRCDataType INT = SRCDataType::INT;
    static constexpr SRCDataType FLOAT = SRCDataType::FLOAT;
    static constexpr SRCPrimitiveType TRIANGLES = SRCPrimitiveType::TRIANGLES;
    static constexpr SRCPrimitiveType LINES = SRCPrimitiveType::LINES;
    static constexpr SRCPrimitiveType POINTS = SRCPrimitiveType::POINTS;

    static std::uint32_t getWebGLTypeIdentifier(SRCDataType type) {
        return detail::getWebGLTypeIdentifier(type);
    }
    static std::uint32_t getWebGLPrimitiveTypeIdentifier(SRCPrimitiveType type) {
        return detail::getWebGLPrimitiveTypeIdentifier(type);
    }
    static std::string getComponentTypeString(unsigned int components) {
        return detail::getComponentTypeString(components);
    }

    ShapeResourceContainer();
    ~ShapeResourceContainer();
    ShapeResourceContainer(const ShapeResourceContainer&) = delete;
    ShapeResourceContainer& operator=(const ShapeResourceContainer&) = delete;

    /// A new ID of each kind: a prefix and that kind's own counter, from 0, in decimal.
    std::string createIndexViewID();
    std::string createAttributeViewID();
    std::string createBufferViewID();
    std::string createBufferChunkID();

    /// Adds one block of `size` bytes and returns its buffer view ID.
    ///
    /// chunkBorders  null stores all bytes as one chunk. Otherwise each border is the end (exclusive) of one
    /// chunk;
    ///               borders ascend and lie below `size`. The bytes after the last border are not stored, and
    ///               no border may equal `size`: so a border list always leaves out at least the last byte,
    ///               on purpose. A border that is not below `size`, or lies below its predecessor, is
    ///               reported on standard error and ends the walk; chunks made so far stay.
    std::string addBufferView(const unsigned char* data, unsigned long size,
                              const std::vector<unsigned int>* chunkBorders);
    /// The same for bytes that the caller gives away: one chunk, nothing copied.
    std::string addBufferView(std::vector<unsigned char>&& bytes);

    /// Stores one chunk for a buffer view whose JSON object, with an array "chunks", is not yet in the
    /// header.
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

private:
    // The entries of the large sections are kept as the JSON text that the file will hold, not as a JSON
    // tree: a tree costs some 70 map nodes and 10 KB per mesh, its text 1.4 KB, and the text is needed
    // anyway.

    /// Text that lives as long as the container, in blocks that never move.
    class TextStore {
    public:
        std::string_view keep(std::string_view text);

    private:
        std::vector<std::unique_ptr<char[]>> blocks;
        char* free = nullptr;
        std::size_t freeBytes = 0;
    };

    /// A section keyed by a prefix and a counter: entry i has the ID prefix + i. An empty text is no entry.
    struct NumberedSection {
        const char* prefix;
        std::vector<std::string_view> texts;
        void put(std::uint32_t number, std::string_view text);
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

    struct MeshEntry {
        std::string_view head; ///< from "attributes" up to the material's ID
        std::string material;
        bool hasMeta = false;
        std::map<std::string, std::string_view> meta;
        std::uint32_t primitive = 0;
    };

    std::uint32_t storeChunk(const std::string& bufferViewId, std::vector<unsigned char>&& bytes);
    void storeBufferView(std::uint32_t number, unsigned long size, std::uint32_t firstChunk,
                         std::size_t chunkCount);
    std::string addAttributeView(unsigned int components, const std::string& bufferViewId,
                                 unsigned long byteOffset, unsigned long byteStride, unsigned long count,
                                 SRCDataType dataType, const double* decodeOffset, const double* decodeScale);
    std::string serializeMetaData();
    void writeDocument(std::ostream& out, const std::string& metaText) const;
    template<typename Sink>
    void emitHeader(Sink& sink, std::string_view metaText) const;

    picojson::value header; ///< all sections; the large ones are empty here and kept as text below
    std::uint32_t indexViewCounter = 0;
    std::uint32_t attributeViewCounter = 0;
    std::uint32_t bufferViewCounter = 0;
    std::uint32_t bufferChunkCounter = 0;
    std::vector<std::vector<unsigned char>> chunks;
    std::map<std::string, std::vector<unsigned int>> bufferViewChunkIndices;

    std::map<std::string, std::vector<unsigned int>>::iterator lastViewIndices = bufferViewChunkIndices.end();
    std::uint64_t chunkBytes = 0; ///< the sum of all chunks' lengths: where the next chunk begins
    TextStore store;
    std::string scratch; ///< the entry under construction
    NumberedSection attributeViews{"attributeView", {}};
    NumberedSection indexViews{"indexView", {}};
    NumberedSection bufferChunks{"chunk", {}};
    NumberedSection bufferViews{"bufferView", {}};
    KeyedSection<std::string_view> materials;
    KeyedSection<MeshEntry> meshes;
    KeyedSection<std::string_view> techniques;
};

extern template KELSRC_EXPORT std::string
ShapeResourceContainer::addAttributeView<1>(const std::string&, unsigned long, unsigned long, unsigned long,
                                            SRCDataType, const double*, const double*);
extern template KELSRC_EXPORT std::string
ShapeResourceContainer::addAttributeView<2>(const std::string&, unsigned long, unsigned long, unsigned long,
                                            SRCDataType, const double*, const double*);
extern template KELSRC_EXPORT std::string
ShapeResourceContainer::addAttributeView<3>(const std::string&, unsigned long, unsigned long, unsigned long,
                                            SRCDataType, const double*, const double*);

} // namespace kel::src::detail
