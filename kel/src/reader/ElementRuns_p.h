#pragma once

#include <kel/src/SrcFile.h>

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

} // namespace kel::src::detail
