#pragma once

#include <kel/src/Export.h>
#include <kel/src/SrcFile.h>

#include <cstdint>
#include <iosfwd>
#include <memory>

namespace kel::src {

/// Reads a file from a stream mesh by mesh, holding only the chunks of meshes that are not complete yet.
///
///     SrcStream stream(in);
///     while (const SrcMesh* mesh = stream.next()) show(decodeMesh(stream.file(), *mesh));
///
/// Chunks must not share bytes (STREAM_OVERLAP); their order in the file decides in which order meshes become
/// complete.
class KELSRC_EXPORT SrcStream {
public:
    /// Reads preamble and header. The stream must outlive this.
    explicit SrcStream(std::istream& in, const ReadLimits& limits = {});
    SrcStream(SrcStream&&) noexcept;
    ~SrcStream();

    /// Everything but the bytes. Only the chunks of the mesh that next() returned last are sure to be there.
    const SrcFile& file() const;

    /// Reads on until the next mesh is complete; nullptr after the last one.
    ///
    /// throws  SrcError when the stream ends too early
    const SrcMesh* next();

    /// Bytes of the data section that are held now.
    std::uint64_t heldBytes() const;

private:
    struct State;
    std::unique_ptr<State> state;
};

} // namespace kel::src
