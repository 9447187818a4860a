#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

namespace kel::src::detail {

/// Hands a stream large blocks: a small write costs far more than its bytes.
class StreamSink {
public:
    explicit StreamSink(std::ostream& out) : out(out) { block.reserve(BLOCK_BYTES); }

    void append(std::string_view text) {
        if (text.size() > BLOCK_BYTES - block.size()) {
            flush();
            if (text.size() >= BLOCK_BYTES) {
                out.write(text.data(), static_cast<std::streamsize>(text.size()));
                return;
            }
        }
        block.append(text);
    }
    void append(char c) { append(std::string_view(&c, 1)); }
    void appendUint32(std::uint64_t value) {
        const char bytes[4] = {static_cast<char>(value & 255), static_cast<char>(value >> 8 & 255),
                               static_cast<char>(value >> 16 & 255), static_cast<char>(value >> 24 & 255)};
        append(std::string_view(bytes, sizeof bytes));
    }
    void flush() {
        if (!block.empty()) out.write(block.data(), static_cast<std::streamsize>(block.size()));
        block.clear();
    }

private:
    static constexpr std::size_t BLOCK_BYTES = 256 * 1024;
    std::ostream& out;
    std::string block;
};

} // namespace kel::src::detail
