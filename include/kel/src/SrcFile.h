#pragma once

#include <kel/mesh/ComponentType.h>
#include <kel/mesh/PrimitiveType.h>
#include <kel/src/Export.h>
#include <kel/src/SrcCodes.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kel::src {

/// Bytes that belong to somebody else.
struct ByteView {
    const unsigned char* data = nullptr;
    std::size_t size = 0;

    ByteView() = default;
    ByteView(const void* data, std::size_t size)
        : data(static_cast<const unsigned char*>(data)), size(size) {}
    explicit ByteView(std::string_view text) : ByteView(text.data(), text.size()) {}
};

/// A run of entries that belong to the file they were asked of.
template<typename T>
class SrcRange {
public:
    SrcRange() = default;
    SrcRange(const T* first, std::size_t count) : first(first), count(count) {}
    explicit SrcRange(const std::vector<T>& entries) : SrcRange(entries.data(), entries.size()) {}

    const T* begin() const { return first; }
    const T* end() const { return first + count; }
    std::size_t size() const { return count; }
    bool empty() const { return count == 0; }
    const T& operator[](std::size_t i) const { return first[i]; }

private:
    const T* first = nullptr;
    std::size_t count = 0;
};

/// What a caller is willing to accept. Everything above a limit is refused with LIMIT_EXCEEDED before memory
/// is taken for it. The defaults let any honest file through that a machine of today can show, and keep a
/// malicious one from taking more than about 4 GiB.
struct ReadLimits {
    /// Length of the JSON header.
    std::uint64_t headerBytes = std::uint64_t(512) << 20;
    /// What reading may allocate: the header's tables, and for streams header and data. The bytes of a mapped
    /// file or of a caller's memory block do not count.
    std::uint64_t memoryBytes = std::uint64_t(4) << 30;
    /// Entries of each section: meshes, views of each kind, chunks, materials, techniques.
    std::uint64_t entries = 16u << 20;
    /// Bytes of one ID, key or attribute name.
    std::uint64_t stringBytes = 64u << 10;
    /// Nesting of objects and lists in the header. Writers let metadata nest up to 100 deep.
    std::uint32_t depth = 128;
};

/// A file that cannot be read, or not be trusted.
class KELSRC_EXPORT SrcError : public std::runtime_error {
public:
    static constexpr std::uint64_t NO_OFFSET = ~std::uint64_t(0);

    SrcError(SrcCode code, std::uint64_t byteOffset, std::string path, std::string detail);

    SrcCode code() const { return errorCode; }
    /// Position in the file at fault, from its first byte; NO_OFFSET when there is none.
    std::uint64_t byteOffset() const { return offset; }
    /// The place in the header as a JSON pointer, e.g. "/meshes/0/indices"; empty when there is none.
    const std::string& path() const { return jsonPath; }
    /// What was found there, e.g. "12 of 8 bytes". what() holds everything: place, sentence, detail, remedy.
    const std::string& detail() const { return found; }

private:
    SrcCode errorCode;
    std::uint64_t offset;
    std::string jsonPath;
    std::string found;
};

/// "Nothing": a mesh without indices or material, a material without technique.
constexpr std::uint32_t SRC_NONE = 0xffffffffu;

/// A run of bytes of the data section, which begins right behind the header.
struct SrcChunk {
    std::string_view id;
    std::uint64_t byteOffset = 0;
    std::uint64_t byteLength = 0;
};

/// A block of bytes, made of chunks in order. Most have exactly one.
struct SrcBufferView {
    std::string_view id;
    std::uint64_t byteLength = 0;  ///< as the header says
    std::uint64_t storedBytes = 0; ///< what its chunks hold, at most byteLength; views lie inside this
    std::uint32_t firstChunk = 0;  ///< into SrcFile::viewChunks()
    std::uint32_t chunkCount = 0;
};

struct SrcIndexView {
    std::string_view id;
    std::uint64_t byteOffset = 0; ///< from the start of the buffer view
    std::uint64_t count = 0;
    std::uint32_t bufferView = 0;
    kel::mesh::ComponentType componentType = kel::mesh::UNSIGNED_SHORT; ///< unsigned, 1, 2 or 4 bytes
};

/// Elements of 1 to 4 components. The value of a component is (code + decodeOffset) / decodeScale.
struct SrcAttributeView {
    std::string_view id;
    std::uint64_t byteOffset = 0; ///< from the start of the buffer view
    std::uint64_t byteStride = 0; ///< at least one element; a stride of 0 in the file reads as packed
    std::uint64_t count = 0;      ///< elements
    std::uint32_t bufferView = 0;
    kel::mesh::ComponentType componentType = kel::mesh::FLOAT;
    std::uint8_t components = 1;
    /// Bytes of one stored component. The type's size, except for codes of 17 to 32 bits: they are stored in
    /// slots of 3 bytes, which shows in a component type UNSIGNED_INT whose stride is at least 3 and below 4
    /// bytes per component.
    std::uint8_t componentBytes = 4;
    /// False when decoding changes nothing: no decode vectors in the file, or offsets of 0 and scales of 1.
    bool decoded = false;
    /// The mesh that these elements were written for: the first one that names the view. SRC_NONE when none
    /// does.
    std::uint32_t owner = SRC_NONE;
    std::array<double, 4> decodeOffset{0, 0, 0, 0};
    std::array<double, 4> decodeScale{1, 1, 1, 1};
};

/// One attribute of one mesh.
struct SrcAttribute {
    std::string_view name;
    std::uint32_t view = 0;
};

struct SrcMesh {
    std::string_view id;
    kel::mesh::PrimitiveType primitive = kel::mesh::TRIANGLES;
    std::uint32_t indexView = SRC_NONE;
    std::uint32_t material = SRC_NONE;
    std::uint32_t firstAttribute = 0; ///< use SrcFile::attributes
    std::uint32_t attributeCount = 0;
    bool hasBounds = false;
    std::array<double, 3> boundsCenter{};
    std::array<double, 3> boundsSize{};
    /// Valid JSON text as it stands in the file, an object in good files; empty when there is none. Take it
    /// apart with jsonMembers.
    std::string_view metadata;
};

struct SrcMaterial {
    std::string_view id;
    std::uint32_t technique = SRC_NONE;
    std::string_view values; ///< JSON text of an object; empty when there is none
};

struct SrcTechnique {
    std::string_view id;
    std::string_view parameters; ///< JSON text of an object; empty when there is none
};

namespace detail {
struct SrcFileData;
struct SrcFileAccess;
} // namespace detail

/// An SRC file taken apart. Plain data behind const access; everything was checked when it was read: IDs
/// resolve, views lie inside their bytes, counts and offsets fit together. What the bytes of a view say
/// (indices below the vertex count, finite floats) is the validator's business.
///
/// Texts and bytes point into the source. A file read from memory is valid as long as that memory; all others
/// own what they point to. Moving keeps references valid. Several threads may read one file at a time.
///
/// A file on disk must not be cut short while it is mapped: the system then ends the process.
class KELSRC_EXPORT SrcFile {
public:
    SrcFile(SrcFile&&) noexcept;
    SrcFile& operator=(SrcFile&&) noexcept;
    ~SrcFile();

    /// The JSON text.
    std::string_view header() const;
    /// Where the data section begins: 12 + the header's length.
    std::uint64_t dataOffset() const;
    /// Bytes of the data section that the source holds. A stream is read to the end of the last chunk only.
    std::uint64_t dataBytes() const;

    SrcRange<SrcChunk> chunks() const;
    SrcRange<SrcBufferView> bufferViews() const;
    /// Chunks of all buffer views, as positions in chunks().
    SrcRange<std::uint32_t> viewChunks() const;
    SrcRange<SrcIndexView> indexViews() const;
    SrcRange<SrcAttributeView> attributeViews() const;
    /// In the order in which writers wrote them when their IDs are numbered ("0" or "mesh0" upwards), else in
    /// the order of the header.
    SrcRange<SrcMesh> meshes() const;
    /// A mesh's attributes, by name as the header has them. The container writer lets a mesh that lacks an
    /// attribute name an earlier mesh's view: its owner is then another mesh than this one.
    SrcRange<SrcAttribute> attributes(const SrcMesh& mesh) const;
    SrcRange<SrcMaterial> materials() const;
    SrcRange<SrcTechnique> techniques() const;
    /// The document's metadata, as SrcMesh::metadata.
    std::string_view metadata() const;

    /// Lookups by ID or name: nullptr when there is none.
    const SrcMesh* findMesh(std::string_view id) const;
    const SrcMaterial* findMaterial(std::string_view id) const;
    const SrcAttributeView* findAttribute(const SrcMesh& mesh, std::string_view name) const;

    /// The values of a material's parameter, from the material or else from its technique's defaults; a
    /// single number reads as a list of one. Empty when neither has it or it is not made of numbers.
    std::vector<double> materialParameter(const SrcMaterial& material, std::string_view name) const;

    /// The stored bytes of a buffer view without a copy. Its data is null when the chunks do not lie back to
    /// back, or, in a stream, have not arrived; copyBytes then gathers them.
    ByteView bytes(const SrcBufferView& view) const;
    /// Copies `size` bytes from `offset` on, which must lie inside the view's stored bytes.
    ///
    /// returns  false when a stream does not hold all of them now
    bool copyBytes(const SrcBufferView& view, std::uint64_t offset, std::size_t size, void* target) const;

private:
    friend struct detail::SrcFileAccess;
    explicit SrcFile(std::unique_ptr<detail::SrcFileData> data);

    std::unique_ptr<detail::SrcFileData> data;
};

/// Reads one SRC file from memory, of either writer.
///
/// bytes   the whole file; kept, not copied: must outlive the result
/// throws  SrcError; std::bad_alloc
///
/// Never reads outside `bytes`, whatever they hold. Takes time and memory in proportion to the header; the
/// data section is not touched.
///
/// A key that stands twice in the header is no error here: as in most JSON parsers the last one counts. IDs
/// may be any text, the empty one included, but an empty name in a mesh means no indices and no material.
KELSRC_EXPORT SrcFile readSrc(ByteView bytes, const ReadLimits& limits = {});

/// Reads one SRC file from a stream that need not seek, up to the end of its last chunk; owns what it read.
/// Memory is taken as bytes arrive, not as the file claims.
KELSRC_EXPORT SrcFile readSrc(std::istream& in, const ReadLimits& limits = {});

/// Opens a file: a regular one is mapped, a pipe or device is read as a stream, a directory is refused.
KELSRC_EXPORT SrcFile openSrc(const std::string& path, const ReadLimits& limits = {});

} // namespace kel::src
