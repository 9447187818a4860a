#include "VertexJoiner.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <utility>

namespace kel::importer::detail {

VertexJoiner::VertexJoiner(std::vector<std::size_t> widths, std::size_t expected)
    : widths(std::move(widths)),
      width(std::accumulate(this->widths.begin(), this->widths.end(), std::size_t{0})),
      streams(this->widths.size()) {
    std::size_t size = 64;
    while (size < 2 * expected)
        size *= 2;
    slots.resize(size);
    for (std::size_t s = 0; s < streams.size(); ++s)
        streams[s].reserve(expected * this->widths[s]);
}

std::uint32_t VertexJoiner::hashOf(const float* vertex) const {
    std::uint64_t mixed = 0x9E3779B97F4A7C15u;
    for (std::size_t i = 0; i < width; ++i) {
        std::uint32_t bits;
        std::memcpy(&bits, vertex + i, sizeof bits);
        mixed = (mixed ^ bits) * 0xFF51AFD7ED558CCDu;
        mixed ^= mixed >> 32;
    }
    return static_cast<std::uint32_t>(mixed ^ (mixed >> 29));
}

void VertexJoiner::add(const float* vertices, std::size_t many, std::uint32_t* indices) {
    constexpr std::size_t BATCH = 32;
    std::uint32_t hashes[BATCH];
    for (std::size_t first = 0; first < many; first += BATCH) {
        const std::size_t here = std::min(BATCH, many - first);
        const float* at = vertices + first * width;
        for (std::size_t i = 0; i < here; ++i) {
            hashes[i] = hashOf(at + i * width);
            __builtin_prefetch(&slots[hashes[i] & (slots.size() - 1)], 1);
        }
        for (std::size_t i = 0; i < here; ++i)
            indices[first + i] = insert(at + i * width, hashes[i]);
    }
}

std::uint32_t VertexJoiner::insert(const float* vertex, std::uint32_t hash) {
    std::size_t place = hash & (slots.size() - 1);
    for (; slots[place].vertex != 0; place = (place + 1) & (slots.size() - 1)) {
        const std::uint32_t index = slots[place].vertex - 1;
        if (slots[place].hash == hash && equals(index, vertex)) return index;
    }
    const auto index = static_cast<std::uint32_t>(count++);
    slots[place] = {hash, index + 1};
    for (std::size_t s = 0; s < streams.size(); vertex += widths[s++])
        streams[s].insert(streams[s].end(), vertex, vertex + widths[s]);
    if (2 * count > slots.size()) grow();
    return index;
}

bool VertexJoiner::equals(std::uint32_t index, const float* vertex) const {
    for (std::size_t s = 0; s < streams.size(); vertex += widths[s++]) {
        if (std::memcmp(streams[s].data() + index * widths[s], vertex, widths[s] * sizeof(float)) != 0)
            return false;
    }
    return true;
}

void VertexJoiner::grow() {
    std::vector<Slot> larger(2 * slots.size());
    for (const Slot& slot : slots) {
        if (slot.vertex == 0) continue;
        std::size_t place = slot.hash & (larger.size() - 1);
        while (larger[place].vertex != 0)
            place = (place + 1) & (larger.size() - 1);
        larger[place] = slot;
    }
    slots = std::move(larger);
}

} // namespace kel::importer::detail
