#pragma once

#include <kel/src/reader/HeaderTables_p.h>

#include <cstdlib>
#include <functional>
#include <iosfwd>
#include <memory>

namespace kel::src::detail {

/// Where streamed bytes come from: writes up to `size` bytes and says how many; 0 at the end.
using ByteInput = std::function<std::size_t(unsigned char* target, std::size_t size)>;

/// The stream must outlive the result.
ByteInput inputFrom(std::istream& in);

/// Bytes that grow as they are read. Not a vector: a vector writes zeros before it is read into.
class GrowingBytes {
public:
    const unsigned char* data() const { return bytes.get(); }
    std::size_t size() const { return used; }

    /// Reads until `wanted` bytes are there or none come. Takes memory in steps that double, so that a claim
    /// costs nothing that is not kept.
    KELSRC_EXPORT void fill(std::uint64_t wanted, const ByteInput& in);

private:
    struct Free {
        void operator()(unsigned char* memory) const { std::free(memory); }
    };

    std::unique_ptr<unsigned char, Free> bytes;
    std::size_t used = 0;
    std::size_t capacity = 0;
};

/// A regular file is mapped, a pipe or device is a stream.
struct OpenedFile {
    ByteView bytes;
    std::shared_ptr<const void> mapping; ///< keeps `bytes` alive; null for a stream
    ByteInput input;                     ///< of a stream
};

/// throws  SrcError when the file cannot be opened, or is a directory; so does reading it, when that fails
KELSRC_EXPORT OpenedFile openFile(const std::string& path);

/// What a SrcFile points to.
struct SrcFileData {
    HeaderTables tables;
    ByteView data; ///< the data section; null in a stream that is read mesh by mesh
    std::uint64_t dataBytes = 0;
    /// In a stream that is read mesh by mesh: what has arrived, one buffer per chunk.
    std::vector<GrowingBytes> arrived;

    std::shared_ptr<const void> mapping;
    GrowingBytes headerStore;
    GrowingBytes dataStore;

    /// A chunk's bytes; null when they have not arrived.
    const unsigned char* chunkBytes(std::uint32_t chunk) const {
        return arrived.empty() ? data.data + tables.chunks[chunk].byteOffset : arrived[chunk].data();
    }
};

/// Opens what SrcFile closes off.
struct SrcFileAccess {
    static SrcFile make(std::unique_ptr<SrcFileData> data) { return SrcFile(std::move(data)); }
    static SrcFileData& data(const SrcFile& file) { return *file.data; }
};

// The one loader, of the reader and the validator: preamble, header, references and the chunks' places are
// checked here, against the same limits whoever asks. All of these return nothing after a finding that makes
// the rest unreadable; a ThrowingSink has thrown by then.

/// A file in memory. `mapping` is what keeps `bytes` alive, unless the caller does.
std::unique_ptr<SrcFileData> loadBytes(ByteView bytes, const ReadLimits& limits, FindingSink& sink,
                                       std::shared_ptr<const void> mapping = {});
/// A stream, up to the end of its last chunk; a sink that wants all findings has it read one byte further,
/// which shows whether there is more.
std::unique_ptr<SrcFileData> loadStream(const ByteInput& in, const ReadLimits& limits, FindingSink& sink);
/// A file by name, mapped or read as a stream.
///
/// throws  SrcError when it cannot be opened or read, or is a directory
std::unique_ptr<SrcFileData> loadPath(const std::string& path, const ReadLimits& limits, FindingSink& sink);

/// Preamble and header of a stream, which is left at the data section. Chunks are not checked yet.
std::unique_ptr<SrcFileData> loadStreamHeader(const ByteInput& in, const ReadLimits& limits,
                                              FindingSink& sink);

/// Takes `count` elements, of which the first is number `first` of its view.
using ElementRun = std::function<void(const unsigned char* source, std::uint64_t first, std::size_t count)>;

/// Calls `run` with the elements of a view: once where its bytes lie in one piece, else piece by piece from
/// copies. Element i of a run begins at source + i * stride.
///
/// throws  std::logic_error in a stream that does not hold the bytes
void forEachRun(const SrcFile& file, const ElementPlaces& elements, const ElementRun& run);

/// Copies the elements of a view, without what lies between them, to `target`.
void copyElements(const SrcFile& file, const ElementPlaces& elements, void* target);

/// The attributes of a mesh but those whose elements are an earlier mesh's, which it names because the
/// container writer's map of attributes is never cleared. A mesh that shares its positions too is a different
/// case, and keeps them all. The mesh is one of file.meshes().
std::vector<SrcAttribute> ownAttributes(const SrcFile& file, const SrcMesh& mesh);

/// The position codes of a combined view as a view of their own.
SrcAttributeView positionPart(const SrcAttributeView& combined);

} // namespace kel::src::detail
