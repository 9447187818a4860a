#include "Checks.h"

#include <kel/src/reader/FileData_p.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <limits>
#include <system_error>

namespace kel::importer::detail {

Content::Content(const ModelSource& source) {
    if (source.bytes) {
        bytes = source.bytes;
        length = source.size;
        return;
    }
    try {
        open(source.disk);
    } catch (const kel::src::SrcError&) {
        source.refuse(ImportCode::FILE_UNREADABLE, "it cannot be opened");
    }
}

Content::Content(const std::string& path) {
    // Models name what they like: pipes wait for ever, and devices never end.
    std::error_code failure;
    if (!std::filesystem::is_regular_file(path, failure)) return;
    try {
        open(path);
    } catch (const kel::src::SrcError&) {
        bytes = nullptr;
    }
}

void Content::open(const std::string& path) {
    const kel::src::detail::OpenedFile file = kel::src::detail::openFile(path);
    if (file.mapping) {
        bytes = reinterpret_cast<const char*>(file.bytes.data);
        length = file.bytes.size;
        owner = file.mapping;
        return;
    }
    const auto read = std::make_shared<kel::src::detail::GrowingBytes>();
    read->fill(std::numeric_limits<std::uint64_t>::max(), file.input);
    bytes = read->size() > 0 ? reinterpret_cast<const char*>(read->data()) : "";
    length = read->size();
    owner = read;
}

std::size_t Content::read(std::uint64_t offset, void* out, std::size_t count) const {
    if (offset >= length) return 0;
    count = static_cast<std::size_t>(std::min<std::uint64_t>(count, length - offset));
    std::memcpy(out, bytes + offset, count);
    return count;
}

std::string Content::text(std::uint64_t offset, std::uint64_t count) const {
    if (offset >= length) return {};
    return std::string(bytes + offset, static_cast<std::size_t>(std::min(count, length - offset)));
}

bool Lines::get(std::string& line) {
    constexpr std::size_t BLOCK = 256 * 1024;
    line.clear();
    bool any = false;
    for (bool ended = false; !ended;) {
        if (position == buffer.size()) {
            buffer = content.text(next, BLOCK);
            next += buffer.size();
            position = 0;
            if (buffer.empty()) break;
        }
        any = true;
        const std::size_t stop = buffer.find('\n', position);
        ended = stop != std::string::npos;
        line.append(buffer, position, (ended ? stop : buffer.size()) - position);
        position = ended ? stop + 1 : buffer.size();
    }
    count += any;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return any;
}

} // namespace kel::importer::detail
