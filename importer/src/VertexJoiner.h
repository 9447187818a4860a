#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kel::importer::detail {

/// Collects vertices and gives equal ones (to the last bit of every component) the same index. Expected cost
/// per vertex is constant.
class VertexJoiner {
public:
    /// widths  components of each stream of the vertex
    explicit VertexJoiner(std::vector<std::size_t> widths);

    /// The index of the vertex whose streams stand one after another at `vertex`.
    std::uint32_t add(const float* vertex);

    std::size_t size() const { return count; }
    std::vector<float>& stream(std::size_t index) { return streams[index]; }

private:
    std::vector<std::size_t> widths;
    std::size_t width = 0;
    std::vector<std::vector<float>> streams;
    std::size_t count = 0;
    std::vector<std::uint32_t> hashes; // of each vertex, to grow without hashing again
    std::vector<std::uint32_t> slots;  // open addressing: vertex index + 1, 0 is free

    bool equals(std::uint32_t index, const float* vertex) const;
    void grow();
};

} // namespace kel::importer::detail
