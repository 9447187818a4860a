#pragma once

#include "FileDescriptor.h"

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace kel::importer::detail {

/// A file without a name, in memory, for another process.
class MemoryFile {
public:
    /// throws  std::system_error
    MemoryFile();

    /// throws  std::system_error, where a limit on the size of files (ulimit -f) is in the way with EFBIG
    void write(const void* bytes, std::size_t size);
    /// What has been written, which nobody can change from now on.
    ///
    /// throws  std::system_error
    FileDescriptor seal();

private:
    FileDescriptor file;
    std::vector<char> waiting; ///< small pieces, to be written together

    void writeWaiting();
    void writeAll(const char* bytes, std::size_t size);
};

/// The content of such a file. It cannot change or shrink as long as this is there: that is seen to before a byte
/// of it is read.
class SealedMemory {
public:
    /// throws  std::runtime_error when the file is not sealed, is no memory, or is larger than `most`
    SealedMemory(const FileDescriptor& file, std::uint64_t most);
    ~SealedMemory();
    SealedMemory(const SealedMemory&) = delete;
    SealedMemory& operator=(const SealedMemory&) = delete;

    std::string_view bytes() const { return content; }

private:
    std::string_view content;
};

} // namespace kel::importer::detail
