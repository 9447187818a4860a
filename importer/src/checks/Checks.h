#pragma once

#include "../ModelSource.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kel::importer::detail {

/// The bytes of a model or of a file beside it: mapped, or where the caller has them.
class Content {
public:
    /// throws  ImportError when the file cannot be opened
    explicit Content(const ModelSource& source);
    /// A file that need not exist; ask opened().
    explicit Content(const std::string& path);

    bool opened() const { return bytes; }
    const char* data() const { return bytes; }
    std::uint64_t size() const { return length; }
    /// How many of `count` bytes from `offset` on there are; they are copied to `out`.
    std::size_t read(std::uint64_t offset, void* out, std::size_t count) const;
    /// All of the range that exists.
    std::string text(std::uint64_t offset, std::uint64_t count) const;

private:
    void open(const std::string& path);

    const char* bytes = nullptr;
    std::uint64_t length = 0;
    std::shared_ptr<const void> owner;
};

/// Hands out a text file line by line.
class Lines {
public:
    explicit Lines(const Content& content) : content(content) {}

    /// False at the end. The line has no line end; it is valid until the next call.
    bool get(std::string& line);
    std::size_t number() const { return count; }
    /// Of the first byte not yet handed out.
    std::uint64_t offset() const { return next - (buffer.size() - position); }

private:
    const Content& content;
    std::uint64_t next = 0;
    std::string buffer;
    std::size_t position = 0;
    std::size_t count = 0;
};

/// What the checks learned on the way that the reader does not tell.
struct Findings {
    std::vector<Dropped> dropped;
    /// Formats with readers of our own, which check what they read.
    bool isGltf = false, isPly = false, isObj = false;
};

/// Looks for what Assimp does not survive, reads as something else, or repairs without a word: content of
/// another kind than the name says, files that end early, counts that the file cannot hold, indices out of
/// range. Linear in the size of the file, in constant memory.
///
/// throws  ImportError
Findings checkBeforeReading(const ModelSource& source, ProgressReporter& progress);

/// The checks of single formats; called for content of that kind only.
/// Whether its size is that of the triangles which a binary STL announces.
bool isWholeBinaryStl(const Content& content);
void checkStl(const ModelSource& source, const Content& content);
void checkOff(const ModelSource& source, const Content& content, Findings& findings);

/// Refuses text whose braces or XML elements are nested deeper than the readers' recursion can follow.
void checkNesting(const ModelSource& source, const Content& content, bool xml);

/// The extension that content of its kind has, or "" when nothing gives it away.
std::string guessExtension(const Content& content);

} // namespace kel::importer::detail
