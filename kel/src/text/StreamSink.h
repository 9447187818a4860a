#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>

namespace kel::src::text {

/// Where document text goes in the end. All sinks take the same calls, so that one function gives the length of a
/// text and, called again, the text itself.

/// Only counts.
class CountingSink {
public:
    std::uint64_t bytes = 0;

    void append(std::string_view text) { bytes += text.size(); }
    void append(char) { ++bytes; }
    /// A whole number in decimal.
    void appendNumber(std::uint64_t value) {
        do {
            ++bytes;
            value /= 10;
        } while (value != 0);
    }
};

/// Appends to a string, which may be another from one call to the next.
class StringSink {
public:
    explicit StringSink(std::string& text) : text(&text) {}

    void goOnIn(std::string& other) { text = &other; }
    void append(std::string_view piece) { *text += piece; }
    void append(char c) { *text += c; }
    void appendNumber(std::uint64_t value) {
        char digits[20];
        text->append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
    }

private:
    std::string* text;
};

/// Hands a stream large blocks: a small write costs far more than its bytes.
class StreamSink {
public:
    explicit StreamSink(std::ostream& out) : out(out), block(new char[BLOCK_BYTES]) {}

    /// Inlined on purpose, so that copying a key, whose length is known to the compiler, is a few instructions.
    [[gnu::always_inline]] void append(std::string_view text) {
        if (text.empty()) return; // an empty chunk may have no address at all
        if (text.size() > BLOCK_BYTES - used) {
            appendBehindBlock(text);
            return;
        }
        std::memcpy(block.get() + used, text.data(), text.size());
        used += text.size();
    }
    void append(char c) { append(std::string_view(&c, 1)); }
    void appendNumber(std::uint64_t value) {
        if (BLOCK_BYTES - used < MAX_DIGITS) flush();
        char* const end = block.get() + used;
        used += static_cast<std::size_t>(std::to_chars(end, end + MAX_DIGITS, value).ptr - end);
    }
    void flush() {
        if (used != 0) out.write(block.get(), static_cast<std::streamsize>(used));
        used = 0;
    }

private:
    static constexpr std::size_t BLOCK_BYTES = 256 * 1024;
    static constexpr std::size_t MAX_DIGITS = 20;

    void appendBehindBlock(std::string_view text) {
        flush();
        if (text.size() >= BLOCK_BYTES) {
            out.write(text.data(), static_cast<std::streamsize>(text.size()));
        } else {
            append(text);
        }
    }

    std::ostream& out;
    std::unique_ptr<char[]> block;
    std::size_t used = 0;
};

} // namespace kel::src::text
