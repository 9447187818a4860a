#include "page/Gzip.h"

#include <algorithm>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

namespace kelsrc::cli {

namespace {

constexpr int GZIP_WINDOW = 15 + 16; // 16 asks for the gzip form
constexpr int MEMORY_LEVEL = 8;

/// zlib counts in 32 bits and takes its input as if it would write to it.
void feed(z_stream& stream, std::string_view& bytes) {
    const std::size_t size = std::min<std::size_t>(bytes.size(), std::numeric_limits<uInt>::max());
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream.avail_in = static_cast<uInt>(size);
    bytes.remove_prefix(size);
}

} // namespace

Gzip::Gzip(int level, Sink sink) : sink(std::move(sink)) {
    if (deflateInit2(&stream, level, Z_DEFLATED, GZIP_WINDOW, MEMORY_LEVEL, Z_DEFAULT_STRATEGY) != Z_OK)
        throw std::bad_alloc();
}

Gzip::~Gzip() {
    deflateEnd(&stream);
}

bool Gzip::add(std::string_view bytes) {
    while (!bytes.empty()) {
        feed(stream, bytes);
        if (!run(Z_NO_FLUSH)) return false;
    }
    return true;
}

bool Gzip::finish() {
    return run(Z_FINISH);
}

bool Gzip::run(int flush) {
    do {
        stream.next_out = reinterpret_cast<Bytef*>(buffer.data());
        stream.avail_out = static_cast<uInt>(buffer.size());
        deflate(&stream, flush);
        const std::size_t size = buffer.size() - stream.avail_out;
        if (size != 0 && !sink(buffer.data(), size)) return false;
    } while (stream.avail_out == 0);
    return true;
}

std::string gzip(std::string_view bytes, int level) {
    std::string result;
    Gzip compressor(level, [&](const char* part, std::size_t size) {
        result.append(part, size);
        return true;
    });
    compressor.add(bytes);
    compressor.finish();
    return result;
}

std::string gunzip(std::string_view bytes) {
    z_stream stream{};
    if (inflateInit2(&stream, GZIP_WINDOW) != Z_OK) throw std::bad_alloc();
    std::string result;
    std::array<char, std::size_t(1) << 16> buffer;
    int status = Z_OK;
    feed(stream, bytes);
    while (status == Z_OK) {
        stream.next_out = reinterpret_cast<Bytef*>(buffer.data());
        stream.avail_out = static_cast<uInt>(buffer.size());
        status = inflate(&stream, Z_NO_FLUSH);
        result.append(buffer.data(), buffer.size() - stream.avail_out);
    }
    inflateEnd(&stream);
    if (status != Z_STREAM_END) throw std::runtime_error("the compressed bytes are damaged");
    return result;
}

} // namespace kelsrc::cli
