#include "Conversion.h"

#include "../VertexJoiner.h"
#include "../model/ListedModel.h"

#include <algorithm>
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

/// What corners name by number, in the order of the first corners that do.
struct Elements {
    std::vector<std::uint32_t> vertices;
    std::vector<std::uint32_t>
        normals; ///< of a vertex with that normal; empty where corners have none of their own

    std::size_t size() const { return vertices.size(); }
};

/// Numbers the different vertices that corners name, or, with `normalOf`, vertex and normal together.
///
/// corners   from vertices to elements
/// normalOf  for each corner; null for none
Elements takeElements(std::vector<std::uint32_t>& corners, std::size_t vertices,
                      const std::uint32_t* normalOf) {
    Elements elements;
    elements.vertices.reserve(std::min(corners.size(), vertices));
    std::vector<std::uint32_t> firstOf(vertices, NONE); // element of a vertex, then
    std::vector<std::uint32_t> next;                    // the next one of that vertex
    for (std::size_t c = 0; c < corners.size(); ++c) {
        const std::uint32_t vertex = corners[c];
        std::uint32_t* link = &firstOf[vertex];
        while (normalOf && *link != NONE && elements.normals[*link] != normalOf[c])
            link = &next[*link];
        if (*link == NONE) {
            *link = static_cast<std::uint32_t>(elements.size());
            elements.vertices.push_back(vertex);
            if (normalOf) {
                elements.normals.push_back(normalOf[c]);
                corners[c] = *link;
                next.push_back(NONE); // may move what `link` points to
                continue;
            }
        }
        corners[c] = *link;
    }
    return elements;
}

/// Joins equal elements and numbers what is left in the same order.
///
/// read(e, row)  copies the bits of an element
template<typename Read>
void join(VertexJoiner& joiner, std::size_t width, std::size_t elements, const Read& read,
          std::vector<std::uint32_t>& corners) {
    // By the block, for which the joiner asks for memory ahead.
    std::vector<float> rows(BLOCK * width);
    std::vector<std::uint32_t> index(elements);
    for (std::size_t first = 0; first < elements; first += BLOCK) {
        const std::size_t here = std::min(BLOCK, elements - first);
        for (std::size_t i = 0; i < here; ++i)
            read(first + i, &rows[i * width]);
        joiner.add(rows.data(), here, &index[first]);
    }
    for (std::uint32_t& corner : corners)
        corner = index[corner];
}

/// How many different ones to expect, where corners tell; else 0. Where they share vertices, somebody has joined
/// equal ones already.
std::size_t expected(std::size_t elements, std::size_t corners) {
    return 2 * elements <= corners ? elements : 0;
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
    const Elements elements = takeElements(corners, positions.vertices(), nullptr);
    VertexJoiner joiner({bits.floats}, expected(elements.size(), corners.size()));
    join(
        joiner, bits.floats, elements.size(),
        [&](std::size_t e, float* row) { bits.read(elements.vertices[e], row); }, corners);
    return joiner.size();
}

void joinVertices(ModelPart& part, const CornerNormals* normals) {
    std::vector<std::uint32_t>& corners = part.indices;
    const Elements elements =
        takeElements(corners, part.vertices(), normals ? normals->ofCorner.data() : nullptr);
    if (normals) part.attributes[1].values.clear();
    if (part.isIndexed) {
        for (ModelAttribute& attribute : part.attributes) {
            if (normals && &attribute == &part.attributes[1]) {
                attribute.values = gather(normals->normals, 3, elements.normals);
            } else if (attribute.doubles.empty()) {
                attribute.values = gather(attribute.values, attribute.width, elements.vertices);
            } else {
                attribute.doubles = gather(attribute.doubles, attribute.width, elements.vertices);
            }
        }
        return;
    }
    std::vector<Bits> streams;
    std::vector<std::size_t> widths;
    std::size_t width = 0;
    for (const ModelAttribute& attribute : part.attributes) {
        streams.emplace_back(attribute);
        widths.push_back(streams.back().floats);
        width += widths.back();
    }
    VertexJoiner joiner(widths, expected(elements.size(), corners.size()));
    join(
        joiner, width, elements.size(),
        [&](std::size_t e, float* row) {
            for (std::size_t s = 0; s < streams.size(); row += widths[s++]) {
                if (s == 1 && normals) {
                    std::copy_n(&normals->normals[3 * std::size_t{elements.normals[e]}], 3, row);
                } else {
                    streams[s].read(elements.vertices[e], row);
                }
            }
        },
        corners);
    for (std::size_t s = 0; s < streams.size(); ++s)
        take(part.attributes[s], joiner.stream(s));
}

} // namespace kel::importer::detail
