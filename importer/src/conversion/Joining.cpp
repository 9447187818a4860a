#include "Conversion.h"

#include "../VertexJoiner.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace kel::importer::detail {

namespace {

constexpr std::uint32_t NONE = std::numeric_limits<std::uint32_t>::max();
constexpr std::size_t BLOCK = 128;

/// The numbers of an attribute as bits: a double counts as two floats.
struct Bits {
    const void* first;
    std::size_t floats; ///< per vertex

    explicit Bits(const ModelAttribute& attribute)
        : first(attribute.doubles.empty() ? static_cast<const void*>(attribute.values.data())
                                          : attribute.doubles.data()),
          floats(attribute.doubles.empty() ? attribute.width : 2 * attribute.width) {}

    void read(std::size_t vertex, float* out) const {
        std::memcpy(out, static_cast<const char*>(first) + vertex * floats * sizeof(float),
                    floats * sizeof(float));
    }
};

/// Joins rows by the block, for which the joiner asks for memory ahead. Calls read(i, row) and then store(i, index)
/// for i = 0 .. count - 1, each in turn.
template<typename Read, typename Store>
void joinRows(VertexJoiner& joiner, std::size_t width, std::size_t count, const Read& read,
              const Store& store) {
    std::vector<float> rows(BLOCK * width);
    std::array<std::uint32_t, BLOCK> indices;
    for (std::size_t first = 0; first < count; first += BLOCK) {
        const std::size_t here = std::min(BLOCK, count - first);
        for (std::size_t i = 0; i < here; ++i)
            read(first + i, &rows[i * width]);
        joiner.add(rows.data(), here, indices.data());
        for (std::size_t i = 0; i < here; ++i)
            store(first + i, indices[i]);
    }
}

/// The vertices that corners use, in the order of their first corners. `known` becomes 0 for those.
std::vector<std::uint32_t> verticesInUse(const std::vector<std::uint32_t>& corners,
                                         std::vector<std::uint32_t>& known) {
    std::vector<std::uint32_t> order;
    order.reserve(std::min(corners.size(), known.size()));
    for (const std::uint32_t vertex : corners) {
        if (std::exchange(known[vertex], 0) == NONE) order.push_back(vertex);
    }
    return order;
}

void take(ModelAttribute& attribute, std::vector<float>& joined) {
    if (attribute.doubles.empty()) {
        attribute.values = std::move(joined);
        attribute.values.shrink_to_fit();
        return;
    }
    attribute.doubles.resize(joined.size() / 2);
    std::memcpy(attribute.doubles.data(), joined.data(), joined.size() * sizeof(float));
    attribute.doubles.shrink_to_fit();
}

} // namespace

std::size_t joinPlaces(const ModelAttribute& positions, std::vector<std::uint32_t>& corners) {
    const Bits bits(positions);
    VertexJoiner joiner({bits.floats});
    joinRows(
        joiner, bits.floats, corners.size(), [&](std::size_t c, float* row) { bits.read(corners[c], row); },
        [&](std::size_t c, std::uint32_t place) { corners[c] = place; });
    return joiner.size();
}

void joinVertices(ModelPart& part, const CornerNormals* normals) {
    std::vector<Bits> streams;
    std::vector<std::size_t> widths;
    std::size_t width = 0;
    for (const ModelAttribute& attribute : part.attributes) {
        streams.emplace_back(attribute);
        widths.push_back(streams.back().floats);
        width += widths.back();
    }
    std::vector<std::uint32_t>& corners = part.indices;
    const auto read = [&](std::uint32_t vertex, std::size_t corner, float* row) {
        for (std::size_t s = 0; s < streams.size(); row += widths[s++]) {
            if (s == 1 && normals) {
                std::copy_n(&normals->normals[3 * std::size_t{normals->ofCorner[corner]}], 3, row);
            } else {
                streams[s].read(vertex, row);
            }
        }
    };
    // Without normals of their own all corners of a vertex are alike, so it is looked up once.
    std::vector<std::uint32_t> known; // for each vertex: first whether it is used, then its index
    std::vector<std::uint32_t> order;
    if (!normals) {
        known.assign(part.vertices(), NONE);
        order = verticesInUse(corners, known);
    }
    // Where corners share vertices, somebody has joined equal ones already.
    const bool shared = !order.empty() && 2 * order.size() <= corners.size();
    VertexJoiner joiner(widths, shared ? order.size() : 0);
    if (normals) {
        joinRows(
            joiner, width, corners.size(), [&](std::size_t c, float* row) { read(corners[c], c, row); },
            [&](std::size_t c, std::uint32_t index) { corners[c] = index; });
    } else {
        joinRows(
            joiner, width, order.size(), [&](std::size_t i, float* row) { read(order[i], 0, row); },
            [&](std::size_t i, std::uint32_t index) { known[order[i]] = index; });
        for (std::uint32_t& corner : corners)
            corner = known[corner];
    }
    for (std::size_t s = 0; s < streams.size(); ++s)
        take(part.attributes[s], joiner.stream(s));
}

} // namespace kel::importer::detail
