#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <zlib.h>

namespace kelsrc::cli {

/// Compresses a stream of bytes of any length, in memory that does not depend on it.
class Gzip {
public:
    /// Takes the compressed bytes as they come; false ends the work.
    using Sink = std::function<bool(const char* bytes, std::size_t size)>;

    /// level  from 1, fast, to 9, small
    Gzip(int level, Sink sink);
    ~Gzip();
    Gzip(const Gzip&) = delete;
    Gzip& operator=(const Gzip&) = delete;

    /// False when the sink has taken no more.
    bool add(std::string_view bytes);
    /// What is left; nothing may be added after it.
    bool finish();

private:
    bool run(int flush);

    z_stream stream{};
    std::array<char, std::size_t(1) << 16> buffer;
    Sink sink;
};

std::string gzip(std::string_view bytes, int level);

/// throws  std::runtime_error when the bytes are not what gzip() makes
std::string gunzip(std::string_view bytes);

} // namespace kelsrc::cli
