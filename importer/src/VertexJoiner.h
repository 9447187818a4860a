#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kel::importer::detail {

/// Collects vertices and gives equal ones (to the last bit of every component) the same index. Expected cost
/// per vertex is constant.
class VertexJoiner {
public:
    /// widths    components of each stream of the vertex
    /// expected  how many different vertices there will be, where that is known; else 0
    explicit VertexJoiner(std::vector<std::size_t> widths, std::size_t expected = 0);

    /// The index of the vertex whose streams stand one after another at `vertex`.
    std::uint32_t add(const float* vertex) { return insert(vertex, hashOf(vertex)); }
    /// The same for `many` vertices, one behind another. Faster, since the memory that each of them needs is
    /// asked for ahead of its turn.
    void add(const float* vertices, std::size_t many, std::uint32_t* indices);

    std::size_t size() const { return count; }
    std::vector<float>& stream(std::size_t index) { return streams[index]; }

private:
    /// Of a table with open addressing. The hash stands here, so that most comparisons need no vertex and
    /// growing needs no hash anew.
    struct Slot {
        std::uint32_t hash = 0;
        std::uint32_t vertex = 0; // its index + 1; 0 is free
    };

    std::vector<std::size_t> widths;
    std::size_t width = 0;
    std::vector<std::vector<float>> streams;
    std::size_t count = 0;
    std::vector<Slot> slots; // a power of two, at least twice as many as vertices

    std::uint32_t hashOf(const float* vertex) const;
    std::uint32_t insert(const float* vertex, std::uint32_t hash);
    bool equals(std::uint32_t index, const float* vertex) const;
    void grow();
};

} // namespace kel::importer::detail
