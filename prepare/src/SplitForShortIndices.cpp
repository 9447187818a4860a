#include <kel/prepare/detail/Steps.h>

#include "MeshBuffers.h"

#include <kel/mesh/ForEachPrimitive.h>
#include <kel/src/format/ElementTypes.h>
#include <kel/src/format/MetadataKeys.h>

#include <algorithm>
#include <limits>
#include <numeric>
#include <stdexcept>

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
    if (vertexCount > std::numeric_limits<std::uint32_t>::max())
        throw std::invalid_argument(place + " has " + std::to_string(vertexCount) +
                                    " vertices, more than can be split.");
    const auto buffer = mesh.getIndexBuffer();
    if (!buffer) {
        std::vector<std::uint32_t> sequence(vertexCount);
        std::iota(sequence.begin(), sequence.end(), std::uint32_t(0));
        return sequence;
    }
    std::size_t firstBad = 0;
    std::vector<std::uint32_t> sequence = detail::readIndices(*buffer, vertexCount, firstBad);
    if (firstBad != sequence.size())
        throw std::invalid_argument(place + ": index " + std::to_string(buffer->getIndex(firstBad)) +
                                    " at position " + std::to_string(firstBad) + " is beyond its " +
                                    std::to_string(vertexCount) +
                                    " vertices; remove the primitive that uses it.");
    return sequence;
}

PrimitiveList separatePrimitives(kel::mesh::PrimitiveType type, std::vector<std::uint32_t> sequence,
                                 const std::string& place, SplitReport& report) {
    if (type > kel::mesh::TRIANGLE_FAN)
        throw std::invalid_argument(place + " has an unknown primitive type, " +
                                    std::to_string(static_cast<std::uint32_t>(type)) +
                                    "; give it one of the seven.");
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

void requireWholeAttributes(const std::vector<AttributePtr>& attributes, std::size_t vertexCount,
                            const std::string& place) {
    for (const AttributePtr& buffer : attributes) {
        if (!buffer) throw std::invalid_argument(place + " has an empty attribute pointer; remove it.");
        if (buffer->getElementCount() >= vertexCount) continue;
        throw std::invalid_argument(place + ": attribute \"" + buffer->getAttributeName() + "\" has " +
                                    std::to_string(buffer->getElementCount()) + " elements for " +
                                    std::to_string(vertexCount) + " vertices; make them agree.");
    }
}

std::vector<kel::mesh::MeshPtr> cut(const kel::mesh::Mesh& mesh, const std::vector<AttributePtr>& attributes,
                                    std::size_t vertexCount, std::size_t maxVertices,
                                    const std::string& place, SplitReport& report) {
    requireWholeAttributes(attributes, vertexCount, place);
    const kel::mesh::PrimitiveType type = mesh.getPrimitiveType();
    const PrimitiveList list =
        separatePrimitives(type, vertexSequence(mesh, vertexCount, place), place, report);
    const bool indexed = mesh.getIndexBuffer() || list.type != type;

    std::vector<kel::mesh::MeshPtr> parts;
    std::uint32_t part = 1;                            // the open one, counted from 1
    std::vector<std::uint32_t> partOf(vertexCount, 0); // the last part that took the vertex
    std::vector<std::uint16_t> numberOf(vertexCount);  // and its number there
    std::vector<std::uint32_t> vertices;               // of the open part, by number
    std::vector<std::uint16_t> indices;                // of the open part
    std::size_t verticesWritten = 0;
    const auto closePart = [&] {
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
        ++part;
    };
    for (std::size_t first = 0; first < list.vertices.size(); first += list.corners) {
        const std::uint32_t* const primitive = list.vertices.data() + first;
        const auto isNew = [&](const std::uint32_t& vertex) {
            return partOf[vertex] != part && std::find(primitive, &vertex, vertex) == &vertex;
        };
        std::size_t added = 0;
        for (std::size_t corner = 0; corner < list.corners; ++corner)
            added += isNew(primitive[corner]);
        if (vertices.size() + added > maxVertices) closePart();
        for (std::size_t corner = 0; corner < list.corners; ++corner) {
            const std::uint32_t vertex = primitive[corner];
            if (partOf[vertex] != part) {
                partOf[vertex] = part;
                numberOf[vertex] = static_cast<std::uint16_t>(vertices.size());
                vertices.push_back(vertex);
            }
            indices.push_back(numberOf[vertex]);
        }
    }
    if (!indices.empty() || parts.empty()) closePart(); // a mesh of nothing stays a mesh, with its name

    const auto unused = static_cast<std::size_t>(std::count(partOf.begin(), partOf.end(), 0u));
    report.verticesUnused += unused;
    report.verticesAdded += verticesWritten - (vertexCount - unused);
    ++report.meshes;
    report.parts += parts.size();
    return parts;
}

} // namespace

void steps::splitForShortIndices(Scene& scene, const SplitOptions& options, SplitReport* report) {
    if (options.maxVertices < 3 || options.maxVertices > kel::src::format::MAX_SHORT_INDEX_VERTICES)
        throw std::invalid_argument("A part has 3 to " +
                                    std::to_string(kel::src::format::MAX_SHORT_INDEX_VERTICES) +
                                    " vertices, not " + std::to_string(options.maxVertices) + ".");
    SplitReport done;
    std::vector<SceneMesh> result;
    result.reserve(scene.meshes.size());
    std::unordered_map<const kel::mesh::Mesh*, std::vector<SceneMesh>> piecesOf; // the mesh may come again
    for (std::size_t m = 0; m < scene.meshes.size(); ++m) {
        SceneMesh& entry = scene.meshes[m];
        const std::vector<AttributePtr> attributes = detail::attributesOf(entry.mesh);
        const std::size_t vertexCount = entry.mesh ? detail::vertexCountOf(*entry.mesh, attributes) : 0;
        if (vertexCount <= options.maxVertices) {
            result.push_back(std::move(entry));
            continue;
        }
        const auto [known, isNew] = piecesOf.try_emplace(entry.mesh.get());
        std::vector<SceneMesh>& pieces = known->second;
        if (isNew) {
            for (kel::mesh::MeshPtr& part :
                 cut(*entry.mesh, attributes, vertexCount, options.maxVertices, placeOfMesh(scene, m), done))
                pieces.push_back({std::move(part), entry.material, entry.metaData});
            for (std::size_t part = 0; part < pieces.size(); ++part) {
                if (pieces.size() > 1) {
                    pieces[part].setMetaData(metadata::PART, std::to_string(part));
                    pieces[part].setMetaData(metadata::PARTS, std::to_string(pieces.size()));
                } else if (entry.metaData) {
                    pieces[part].editMetaData();
                }
            }
        }
        result.insert(result.end(), pieces.begin(), pieces.end());
        if (!scene.repeatsMeshes) entry = SceneMesh(); // frees what is cut
    }
    scene.meshes = std::move(result);
    if (report) *report = done;
}

} // namespace kel::prepare
