#include "Checks.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace kel::importer::detail {

Content::Content(const ModelSource& source) {
    if (source.bytes) {
        bytes = source.bytes;
        length = source.size;
        return;
    }
    errno = 0;
    open(source.disk);
    if (!file)
        source.refuse(ImportCode::FILE_UNREADABLE, errno ? std::strerror(errno) : "it cannot be opened");
}

Content::Content(const std::string& path) {
    open(path);
}

void Content::open(const std::string& path) {
    file.reset(std::fopen(path.c_str(), "rb"));
    if (!file) return;
    if (fseeko(file.get(), 0, SEEK_END) != 0 || ftello(file.get()) < 0) {
        file.reset();
        return;
    }
    length = static_cast<std::uint64_t>(ftello(file.get()));
}

std::size_t Content::read(std::uint64_t offset, void* out, std::size_t count) const {
    if (offset >= length) return 0;
    count = static_cast<std::size_t>(std::min<std::uint64_t>(count, length - offset));
    if (bytes) {
        std::memcpy(out, bytes + offset, count);
        return count;
    }
    if (fseeko(file.get(), static_cast<off_t>(offset), SEEK_SET) != 0) return 0;
    return std::fread(out, 1, count, file.get());
}

std::string Content::text(std::uint64_t offset, std::uint64_t count) const {
    if (offset >= length) return {};
    std::string result(static_cast<std::size_t>(std::min(count, length - offset)), '\0');
    result.resize(read(offset, result.data(), result.size()));
    return result;
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
