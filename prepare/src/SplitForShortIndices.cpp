#include <kel/prepare/detail/Steps.h>

#include "MeshBuffers.h"

#include <kel/mesh/ForEachPrimitive.h>
#include <kel/src/format/ElementTypes.h>
#include <kel/src/format/MetadataKeys.h>

#include <algorithm>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <unordered_map>
#include <utility>

namespace kel::prepare {

namespace {

using detail::AttributePtr;
using kel::scene::Scene;
using kel::scene::SceneMesh;
namespace metadata = kel::src::format::metadata;

static_assert(SplitOptions().maxVertices == kel::src::format::MAX_SHORT_INDEX_VERTICES);

/// Primitives of one mesh as a list: `corners` vertices each.
struct PrimitiveList {
    kel::mesh::PrimitiveType type = kel::mesh::POINTS;
    std::size_t corners = 1;
    std::vector<std::uint32_t> vertices;
};

/// The mesh's vertex numbers in order, checked: its indices, or 0, 1, 2, ... without an index buffer.
std::vector<std::uint32_t> vertexSequence(const kel::mesh::Mesh& mesh, std::size_t vertexCount,
                                          const std::string& place) {
    if (vertexCount > std::numeric_limits<std::uint32_t>::max()) {
        throw std::invalid_argument(place + " has " + std::to_string(vertexCount) +
                                    " vertices, more than can be split.");
    }
    const auto buffer = mesh.getIndexBuffer();
    if (!buffer) {
        std::vector<std::uint32_t> sequence(vertexCount);
        std::iota(sequence.begin(), sequence.end(), std::uint32_t(0));
        return sequence;
    }
    std::size_t firstBad = 0;
    std::vector<std::uint32_t> sequence = detail::readIndices(*buffer, vertexCount, firstBad);
    if (firstBad != sequence.size()) {
        throw std::invalid_argument(place + ": index " + std::to_string(buffer->getIndex(firstBad)) +
                                    " at position " + std::to_string(firstBad) + " is beyond its " +
                                    std::to_string(vertexCount) +
                                    " vertices; remove the primitive that uses it.");
    }
    return sequence;
}

/// Turns the sequence into a list of separate primitives.
PrimitiveList separatePrimitives(kel::mesh::PrimitiveType type, std::vector<std::uint32_t> sequence,
                                 const std::string& place, SplitReport& report) {
    if (type > kel::mesh::TRIANGLE_FAN) {
        throw std::invalid_argument(place + " has an unknown primitive type, " +
                                    std::to_string(static_cast<std::uint32_t>(type)) +
                                    "; give it one of the seven.");
    }
    PrimitiveList list;
    list.corners = kel::mesh::cornersPerPrimitive(type);
    list.type = list.corners == 1   ? kel::mesh::POINTS
                : list.corners == 2 ? kel::mesh::LINES
                                    : kel::mesh::TRIANGLES;
    const std::size_t count = sequence.size();
    if (list.type == type) {
        report.indicesIncomplete += count % list.corners;
        sequence.resize(count - count % list.corners);
        list.vertices = std::move(sequence);
        return list;
    }
    if (count < list.corners) {
        report.indicesIncomplete += count;
        return list;
    }
    list.vertices.reserve(list.corners * count); // a few more than there are
    kel::mesh::forEachPrimitive(type, count, [&](const auto& positions, std::size_t corners) {
        const std::uint32_t a = sequence[positions[0]], b = sequence[positions[1]];
        if (corners == 2) {
            list.vertices.insert(list.vertices.end(), {a, b});
            return;
        }
        const std::uint32_t c = sequence[positions[2]];
        if (a == b || b == c || a == c) {
            ++report.degenerateTriangles;
        } else {
            list.vertices.insert(list.vertices.end(), {a, b, c});
        }
    });
    return list;
}

class Splitter {
public:
    Splitter(const kel::mesh::Mesh& mesh, std::vector<AttributePtr> attributes, std::size_t vertexCount,
             std::size_t maxVertices, std::string place, SplitReport& report)
        : mesh(mesh), attributes(std::move(attributes)), vertexCount(vertexCount), maxVertices(maxVertices),
          place(std::move(place)), report(report) {}

    std::vector<kel::mesh::MeshPtr> split() {
        for (const AttributePtr& buffer : attributes) {
            if (!buffer) {
                throw std::invalid_argument(place + " has an empty attribute pointer; remove it.");
            }
            if (buffer->getElementCount() < vertexCount) {
                throw std::invalid_argument(place + ": attribute \"" + buffer->getAttributeName() +
                                            "\" has " + std::to_string(buffer->getElementCount()) +
                                            " elements for " + std::to_string(vertexCount) +
                                            " vertices; make them agree.");
            }
        }
        const kel::mesh::PrimitiveType type = mesh.getPrimitiveType();
        list = separatePrimitives(type, vertexSequence(mesh, vertexCount, place), place, report);
        indexed = mesh.getIndexBuffer() || list.type != type;
        partOf.assign(vertexCount, 0);
        numberOf.resize(vertexCount);

        for (std::size_t first = 0; first < list.vertices.size(); first += list.corners) {
            if (vertices.size() + countNew(first) > maxVertices) closePart();
            for (std::size_t corner = 0; corner < list.corners; ++corner)
                add(list.vertices[first + corner]);
        }
        if (!indices.empty() || parts.empty()) closePart(); // a mesh of nothing stays a mesh, with its name

        const auto used = static_cast<std::size_t>(
            std::count_if(partOf.begin(), partOf.end(), [](std::uint32_t part) { return part != 0; }));
        report.verticesUnused += vertexCount - used;
        report.verticesAdded += verticesWritten - used;
        return std::move(parts);
    }

private:
    std::uint32_t currentPart() const { return static_cast<std::uint32_t>(parts.size()) + 1; }

    /// How many vertices the primitive would add to the part.
    std::size_t countNew(std::size_t first) const {
        std::size_t count = 0;
        for (std::size_t corner = first; corner < first + list.corners; ++corner) {
            const std::uint32_t vertex = list.vertices[corner];
            if (partOf[vertex] == currentPart()) continue;
            const auto begin = list.vertices.begin();
            const auto from = begin + static_cast<std::ptrdiff_t>(first);
            const auto to = begin + static_cast<std::ptrdiff_t>(corner);
            if (std::find(from, to, vertex) == to) ++count;
        }
        return count;
    }

    void add(std::uint32_t vertex) {
        if (partOf[vertex] != currentPart()) {
            partOf[vertex] = currentPart();
            numberOf[vertex] = static_cast<std::uint16_t>(vertices.size());
            vertices.push_back(vertex);
        }
        indices.push_back(numberOf[vertex]);
    }

    void closePart() {
        std::vector<AttributePtr> partAttributes;
        for (const AttributePtr& buffer : attributes)
            partAttributes.push_back(detail::gatherElements(*buffer, vertices));
        const std::size_t primitives = indices.size() / list.corners;
        parts.push_back(detail::makeMesh(list.type, primitives,
                                         indexed ? detail::makeIndices(std::move(indices)) : nullptr,
                                         std::move(partAttributes)));
        verticesWritten += vertices.size();
        vertices.clear();
        indices = {};
    }

    const kel::mesh::Mesh& mesh;
    std::vector<AttributePtr> attributes;
    std::size_t vertexCount;
    std::size_t maxVertices;
    std::string place;
    SplitReport& report;

    PrimitiveList list;
    bool indexed = true;
    std::vector<std::uint32_t> partOf;   ///< the last part that took the vertex, counted from 1
    std::vector<std::uint16_t> numberOf; ///< and its number there
    std::vector<std::uint32_t> vertices; ///< of the open part, by number
    std::vector<std::uint16_t> indices;  ///< of the open part
    std::vector<kel::mesh::MeshPtr> parts;
    std::size_t verticesWritten = 0;
};

} // namespace

void steps::splitForShortIndices(Scene& scene, const SplitOptions& options, SplitReport* report) {
    if (options.maxVertices < 3 || options.maxVertices > kel::src::format::MAX_SHORT_INDEX_VERTICES) {
        throw std::invalid_argument("A part has 3 to " +
                                    std::to_string(kel::src::format::MAX_SHORT_INDEX_VERTICES) +
                                    " vertices, not " + std::to_string(options.maxVertices) + ".");
    }
    SplitReport done;
    std::vector<SceneMesh> result;
    result.reserve(scene.meshes.size());
    std::unordered_map<const kel::mesh::Mesh*, std::pair<std::size_t, std::size_t>>
        partsOf; // of repeated ones
    for (std::size_t m = 0; m < scene.meshes.size(); ++m) {
        SceneMesh& entry = scene.meshes[m];
        std::vector<AttributePtr> attributes;
        std::size_t vertexCount = 0;
        if (entry.mesh) {
            attributes = detail::attributesOf(entry.mesh);
            vertexCount = detail::vertexCountOf(*entry.mesh, attributes);
        }
        if (vertexCount <= options.maxVertices) {
            result.push_back(std::move(entry));
            continue;
        }
        const auto known = scene.repeatsMeshes ? partsOf.find(entry.mesh.get()) : partsOf.end();
        if (known != partsOf.end()) {
            for (std::size_t part = 0; part < known->second.second; ++part)
                result.push_back(SceneMesh(result[known->second.first + part]));
            continue;
        }

        std::vector<kel::mesh::MeshPtr> parts = Splitter(*entry.mesh, std::move(attributes), vertexCount,
                                                         options.maxVertices, placeOfMesh(scene, m), done)
                                                    .split();
        ++done.meshes;
        done.parts += parts.size();
        if (scene.repeatsMeshes) partsOf.emplace(entry.mesh.get(), std::pair(result.size(), parts.size()));
        for (std::size_t part = 0; part < parts.size(); ++part) {
            SceneMesh piece;
            piece.mesh = std::move(parts[part]);
            piece.material = entry.material;
            piece.metaData = entry.metaData;
            if (parts.size() > 1) {
                piece.setMetaData(metadata::PART, std::to_string(part));
                piece.setMetaData(metadata::PARTS, std::to_string(parts.size()));
            } else if (entry.metaData) {
                piece.editMetaData();
            }
            result.push_back(std::move(piece));
        }
        if (!scene.repeatsMeshes) entry = SceneMesh(); // frees what is cut
    }
    scene.meshes = std::move(result);
    if (report) *report = done;
}

} // namespace kel::prepare
