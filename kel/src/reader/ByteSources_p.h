#pragma once

#include <kel/src/SrcFile.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>

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
    void fill(std::uint64_t wanted, const ByteInput& in);

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
OpenedFile openFile(const std::string& path);

} // namespace kel::src::detail
