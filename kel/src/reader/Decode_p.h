#pragma once

#include <kel/src/SrcReader.h>

#include <cstddef>
#include <cstdint>
#include <functional>

namespace kel::src::detail {

/// Calls `run` with the elements of a view: once where its bytes lie in one piece, else piece by piece from
/// copies. Element i of a run begins at source + i * stride.
///
/// throws  std::logic_error in a stream that does not hold the bytes
void forEachRun(
    const SrcFile& file, const SrcBufferView& buffer, std::uint64_t byteOffset, std::uint64_t stride,
    std::uint64_t element, std::uint64_t count,
    const std::function<void(const unsigned char* source, std::uint64_t first, std::size_t count)>& run);

const SrcBufferView& bufferOf(const SrcFile& file, const SrcAttributeView& view);

/// Tells which attributes a mesh names though their elements are an earlier mesh's: the container writer's
/// map of attributes is never cleared. A mesh that shares its positions too is a different case, and keeps
/// them all.
class LeftOvers {
public:
    /// The mesh is one of file.meshes().
    LeftOvers(const SrcFile& file, const SrcMesh& mesh);

    bool contain(const SrcAttribute& attribute) const { return ownsPositions && isOthers(attribute); }

private:
    bool isOthers(const SrcAttribute& attribute) const {
        return file.attributeViews()[attribute.view].owner != position;
    }

    const SrcFile& file;
    std::uint32_t position;
    bool ownsPositions = false;
};

/// The position codes of a combined view as a view of their own.
SrcAttributeView positionPart(const SrcAttributeView& combined);

} // namespace kel::src::detail
