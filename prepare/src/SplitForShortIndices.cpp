#include <kel/prepare/SplitForShortIndices.h>

#include "Buffers.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <unordered_map>

namespace kel::prepare {

namespace {

using detail::AttributePtr;

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
        for (std::size_t i = 0; i < vertexCount; ++i)
            sequence[i] = static_cast<std::uint32_t>(i);
        return sequence;
    }
    const std::vector<std::size_t> indices = detail::indicesOf(*buffer);
    std::vector<std::uint32_t> sequence(indices.size());
    for (std::size_t i = 0; i < indices.size(); ++i) {
        if (indices[i] >= vertexCount) {
            throw std::invalid_argument(place + ": index " + std::to_string(indices[i]) + " at position " +
                                        std::to_string(i) + " is beyond its " + std::to_string(vertexCount) +
                                        " vertices; remove the primitive that uses it.");
        }
        sequence[i] = static_cast<std::uint32_t>(indices[i]);
    }
    return sequence;
}

/// Turns the sequence into a list of separate primitives.
PrimitiveList separatePrimitives(kel::mesh::PrimitiveType type, std::vector<std::uint32_t> sequence,
                                 const std::string& place, SplitReport& report) {
    PrimitiveList list;
    const std::size_t n = sequence.size();
    const auto addTriangle = [&](std::uint32_t a, std::uint32_t b, std::uint32_t c) {
        if (a == b || b == c || a == c) {
            ++report.degenerateTriangles;
        } else {
            list.vertices.insert(list.vertices.end(), {a, b, c});
        }
    };
    switch (type) {
    case kel::mesh::POINTS:
    case kel::mesh::LINES:
    case kel::mesh::TRIANGLES:
        list.type = type;
        list.corners = type == kel::mesh::POINTS ? 1 : type == kel::mesh::LINES ? 2 : 3;
        report.indicesIncomplete += n % list.corners;
        sequence.resize(n - n % list.corners);
        list.vertices = std::move(sequence);
        return list;
    case kel::mesh::LINE_LOOP:
    case kel::mesh::LINE_STRIP:
        list.type = kel::mesh::LINES;
        list.corners = 2;
        if (n < 2) {
            report.indicesIncomplete += n;
            return list;
        }
        list.vertices.reserve(2 * n);
        for (std::size_t k = 0; k + 1 < n; ++k)
            list.vertices.insert(list.vertices.end(), {sequence[k], sequence[k + 1]});
        if (type == kel::mesh::LINE_LOOP)
            list.vertices.insert(list.vertices.end(), {sequence[n - 1], sequence[0]});
        return list;
    case kel::mesh::TRIANGLE_STRIP:
    case kel::mesh::TRIANGLE_FAN:
        list.type = kel::mesh::TRIANGLES;
        list.corners = 3;
        if (n < 3) {
            report.indicesIncomplete += n;
            return list;
        }
        list.vertices.reserve(3 * (n - 2));
        for (std::size_t k = 0; k + 2 < n; ++k) {
            if (type == kel::mesh::TRIANGLE_FAN) {
                addTriangle(sequence[0], sequence[k + 1], sequence[k + 2]);
            } else if (k % 2 == 0) {
                addTriangle(sequence[k], sequence[k + 1], sequence[k + 2]);
            } else { // every other triangle of a strip runs the other way round
                addTriangle(sequence[k + 1], sequence[k], sequence[k + 2]);
            }
        }
        return list;
    }
    throw std::invalid_argument(place + " has an unknown primitive type, " +
                                std::to_string(static_cast<std::uint32_t>(type)) +
                                "; give it one of the seven.");
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
        parts.push_back(std::make_shared<detail::AssembledMesh>(
            list.type, primitives, indexed ? detail::makeIndices(std::move(indices)) : nullptr,
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

kel::src::SrcWriterInput splitForShortIndices(const kel::src::SrcWriterInput& input,
                                              const SplitOptions& options, SplitReport* report) {
    if (options.maxVertices < 3 || options.maxVertices > 65535) {
        throw std::invalid_argument("A part has 3 to 65535 vertices, not " +
                                    std::to_string(options.maxVertices) + ".");
    }
    SplitReport done;
    kel::src::SrcWriterInput result = input;
    result.meshes.clear();
    std::unordered_map<kel::mesh::MeshPtr, std::vector<kel::mesh::MeshPtr>> cut;
    for (std::size_t m = 0; m < input.meshes.size(); ++m) {
        const kel::mesh::MeshPtr& mesh = input.meshes[m];
        const auto known = cut.find(mesh);
        if (known != cut.end()) {
            result.meshes.insert(result.meshes.end(), known->second.begin(), known->second.end());
            continue;
        }
        std::vector<AttributePtr> attributes;
        std::size_t vertexCount = 0;
        if (mesh) {
            attributes = detail::attributesOf(*mesh);
            vertexCount = detail::vertexCountOf(*mesh, attributes);
        }
        if (vertexCount <= options.maxVertices) {
            result.meshes.push_back(mesh);
            continue;
        }

        const std::vector<kel::mesh::MeshPtr> parts =
            Splitter(*mesh, std::move(attributes), vertexCount, options.maxVertices,
                     detail::placeOf(input, m), done)
                .split();
        ++done.meshes;
        done.parts += parts.size();
        const auto material = input.meshMaterials.find(mesh);
        const auto metaData = input.metaData.find(mesh);
        for (std::size_t part = 0; part < parts.size(); ++part) {
            if (material != input.meshMaterials.end()) {
                result.meshMaterials[parts[part]] = material->second;
            }
            if (parts.size() == 1 && metaData == input.metaData.end()) continue;
            auto own = detail::ownMetaData(metaData == input.metaData.end() ? nullptr : metaData->second);
            if (parts.size() > 1) {
                (*own)["part"] = std::to_string(part);
                (*own)["parts"] = std::to_string(parts.size());
            }
            result.metaData[parts[part]] = std::move(own);
        }
        result.meshMaterials.erase(mesh);
        result.metaData.erase(mesh);
        result.meshes.insert(result.meshes.end(), parts.begin(), parts.end());
        cut.emplace(mesh, parts);
    }
    if (report) *report = done;
    return result;
}

} // namespace kel::prepare
