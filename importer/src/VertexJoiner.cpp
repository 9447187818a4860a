#include "VertexJoiner.h"

#include <cstring>
#include <numeric>
#include <utility>

namespace kel::importer::detail {

VertexJoiner::VertexJoiner(std::vector<std::size_t> widths)
    : widths(std::move(widths)),
      width(std::accumulate(this->widths.begin(), this->widths.end(), std::size_t{0})),
      streams(this->widths.size()), slots(64, 0) {}

std::uint32_t VertexJoiner::add(const float* vertex) {
    std::uint64_t mixed = 0x9E3779B97F4A7C15u;
    for (std::size_t i = 0; i < width; ++i) {
        std::uint32_t bits;
        std::memcpy(&bits, vertex + i, sizeof bits);
        mixed = (mixed ^ bits) * 0xFF51AFD7ED558CCDu;
        mixed ^= mixed >> 32;
    }
    const auto hash = static_cast<std::uint32_t>(mixed ^ (mixed >> 29));

    std::size_t slot = hash & (slots.size() - 1);
    for (; slots[slot] != 0; slot = (slot + 1) & (slots.size() - 1)) {
        const std::uint32_t index = slots[slot] - 1;
        if (hashes[index] == hash && equals(index, vertex)) return index;
    }
    const auto index = static_cast<std::uint32_t>(count++);
    slots[slot] = index + 1;
    hashes.push_back(hash);
    for (std::size_t s = 0; s < streams.size(); vertex += widths[s++]) {
        streams[s].insert(streams[s].end(), vertex, vertex + widths[s]);
    }
    if (2 * count > slots.size()) grow();
    return index;
}

bool VertexJoiner::equals(std::uint32_t index, const float* vertex) const {
    for (std::size_t s = 0; s < streams.size(); vertex += widths[s++]) {
        if (std::memcmp(streams[s].data() + index * widths[s], vertex, widths[s] * sizeof(float)) != 0) {
            return false;
        }
    }
    return true;
}

void VertexJoiner::grow() {
    std::vector<std::uint32_t> larger(2 * slots.size(), 0);
    for (std::size_t index = 0; index < count; ++index) {
        std::size_t slot = hashes[index] & (larger.size() - 1);
        while (larger[slot] != 0)
            slot = (slot + 1) & (larger.size() - 1);
        larger[slot] = static_cast<std::uint32_t>(index + 1);
    }
    slots = std::move(larger);
}

} // namespace kel::importer::detail
