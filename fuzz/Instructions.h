#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace fuzz {

/// Reads a fuzzer's bytes as small decisions; zeros follow when they run out.
class Instructions {
public:
    Instructions(const std::uint8_t* data, std::size_t size) : data(data), left(size) {}

    bool empty() const { return left == 0; }
    std::uint8_t byte() {
        if (left == 0) return 0;
        --left;
        return *data++;
    }
    /// 0 to bound - 1; bound is not 0.
    std::size_t below(std::size_t bound) {
        const std::size_t high = byte();
        return (high << 8 | byte()) % bound;
    }
    bool coin() { return (byte() & 1) != 0; }
    /// Any float: mostly small ones, sometimes every pattern of bits there is.
    float number() {
        const std::uint8_t kind = byte();
        if (kind < 200) return static_cast<float>(static_cast<std::int8_t>(byte())) / 64.0f;
        std::uint32_t bits = 0;
        for (int i = 0; i < 4; ++i)
            bits = bits << 8 | byte();
        float value;
        std::memcpy(&value, &bits, sizeof value);
        return value;
    }
    std::string text(std::size_t longest) {
        std::string result;
        for (std::size_t length = below(longest + 1); length > 0; --length)
            result += static_cast<char>(byte());
        return result;
    }

private:
    const std::uint8_t* data;
    std::size_t left;
};

} // namespace fuzz
