#pragma once

#include <src/Export.h>
#include <src/Types.h>

#include <cstdint>
#include <iosfwd>
#include <limits>
#include <memory>

namespace src {

/// Writes a document as one SRC file: preamble, header, chunks.
class SRC_EXPORT SrcWriter {
public:
    static std::shared_ptr<SrcWriter> create();

    /// Writes the whole file in large blocks; arrays are written straight from where they lie. The stream is
    /// not flushed, and its state is the caller's to look at.
    ///
    /// throws  std::overflow_error for a number that is not finite, naming mesh, attribute and field;
    ///         std::length_error for a header longer than the limit. Nothing has been written then.
    void write(std::shared_ptr<Src> document, std::ostream& out);

    /// Refuses headers of more than this many bytes. The file states the length in 32 bits, so that is the
    /// limit at first and the most that can be set.
    void setHeaderLimit(std::uint32_t bytes) { headerLimit = bytes; }

private:
    std::uint32_t headerLimit = std::numeric_limits<std::uint32_t>::max();
};

} // namespace src
