#pragma once

#include "../ModelSource.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace kel::importer::detail {

/// The bytes of a model or of a file beside it, read by ranges.
class Content {
public:
    /// throws  ImportError when the file cannot be opened
    explicit Content(const ModelSource& source);
    /// A file that need not exist; ask opened().
    explicit Content(const std::string& path);

    bool opened() const { return bytes || file; }
    std::uint64_t size() const { return length; }
    /// How many of `count` bytes from `offset` on there are; they are copied to `out`.
    std::size_t read(std::uint64_t offset, void* out, std::size_t count) const;
    /// All of the range that exists.
    std::string text(std::uint64_t offset, std::uint64_t count) const;

private:
    struct Close {
        void operator()(std::FILE* stream) const { std::fclose(stream); }
    };
    void open(const std::string& path);

    const char* bytes = nullptr;
    std::unique_ptr<std::FILE, Close> file;
    std::uint64_t length = 0;
};

/// Hands out a text file line by line. A line longer than the limit is cut; nobody writes such lines into the
/// formats that are read this way.
class Lines {
public:
    Lines(const Content& content, std::uint64_t from, std::uint64_t to)
        : content(content), next(from), end(to) {}

    /// False at the end. The line has no line end; it is valid until the next call.
    bool get(std::string& line);
    std::size_t number() const { return count; }
    /// Of the first byte not yet handed out.
    std::uint64_t offset() const { return next - (buffer.size() - position); }

private:
    const Content& content;
    std::uint64_t next;
    std::uint64_t end;
    std::string buffer;
    std::size_t position = 0;
    std::size_t count = 0;
};

} // namespace kel::importer::detail
