#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

namespace src {

/// Text that only grows at its end. Blocks rather than one string, so that growing never copies what is
/// there.
class TextBlocks {
public:
    /// A piece of the text within one block.
    struct Place {
        std::size_t block = 0, offset = 0, size = 0;
    };

    TextBlocks() { addBlock(); }

    /// Where the next entry is appended; valid until the next call.
    std::string& end() {
        if (blocks.back().size() >= BLOCK_BYTES) addBlock();
        return blocks.back();
    }
    /// What has been appended to end() since it had `offset` bytes.
    Place since(std::size_t offset) const {
        return {blocks.size() - 1, offset, blocks.back().size() - offset};
    }
    std::string_view at(const Place& place) const {
        return std::string_view(blocks[place.block]).substr(place.offset, place.size);
    }
    std::uint64_t size() const {
        std::uint64_t sum = 0;
        for (const std::string& block : blocks)
            sum += block.size();
        return sum;
    }
    const std::deque<std::string>& all() const { return blocks; }

private:
    static constexpr std::size_t BLOCK_BYTES = 256 * 1024;

    void addBlock() {
        blocks.emplace_back();
        blocks.back().reserve(BLOCK_BYTES + 4096);
    }

    std::deque<std::string> blocks;
};

} // namespace src
