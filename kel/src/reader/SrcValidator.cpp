#include <kel/src/SrcValidator.h>

#include <kel/mesh/AttributeNames.h>
#include <kel/src/reader/Decode_p.h>
#include <kel/src/reader/FileData_p.h>
#include <kel/src/text/JsonPointer.h>
#include <utils/TriangleArea.h>

#include <glm/vec3.hpp>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <utility>

namespace kel::src {

namespace {

using text::jsonPointer;

/// Keeps findings up to a number, counts all of them, and remembers which codes there were.
class ReportSink final : public detail::FindingSink {
public:
    explicit ReportSink(const ValidateOptions& options) : most(options.maxFindings) {}

    void report(SrcCode code, std::uint64_t offset, std::string path, std::string detail) override {
        add({code, offset, std::move(path), std::move(detail), 1});
    }
    bool wantsAll() const override { return true; }

    void add(SrcFinding finding) {
        ++result.counts[static_cast<std::size_t>(finding.severity())];
        seen[static_cast<std::size_t>(finding.code)] = true;
        if (result.findings.size() < most) result.findings.push_back(std::move(finding));
    }
    bool has(std::initializer_list<SrcCode> codes) const {
        return std::any_of(codes.begin(), codes.end(),
                           [&](SrcCode code) { return seen[static_cast<std::size_t>(code)]; });
    }

    ValidationReport result;

private:
    std::size_t most;
    std::array<bool, SRC_CODE_COUNT> seen{};
};

/// One finding for many places: the first one and how many there are.
struct Gathered {
    explicit Gathered(SrcCode code) : finding{code, SrcError::NO_OFFSET, {}, {}, 0} {}

    template<typename Path>
    void add(Path&& path) {
        if (finding.count++ == 0) finding.path = path();
    }
    void reportTo(ReportSink& sink) {
        if (finding.count > 0) sink.add(std::move(finding));
    }

    SrcFinding finding;
};

/// Thrown when the work that a file asks for is beyond measure.
struct WorkExceeded {};

bool isNormal(float value) {
    return std::isnormal(value);
}

glm::vec3 pointAt(const std::vector<float>& positions, std::size_t vertex) {
    return {positions[vertex * 3], positions[vertex * 3 + 1], positions[vertex * 3 + 2]};
}

double distance(const glm::vec3& a, const glm::vec3& b) {
    return std::hypot(static_cast<double>(a.x) - b.x, static_cast<double>(a.y) - b.y,
                      static_cast<double>(a.z) - b.z);
}

double doubleArea(const glm::vec3& a, const glm::vec3& b, const glm::vec3& c) {
    const double ux = static_cast<double>(b.x) - a.x, uy = static_cast<double>(b.y) - a.y,
                 uz = static_cast<double>(b.z) - a.z;
    const double vx = static_cast<double>(c.x) - a.x, vy = static_cast<double>(c.y) - a.y,
                 vz = static_cast<double>(c.z) - a.z;
    return 0.5 * std::hypot(uy * vz - uz * vy, uz * vx - ux * vz, ux * vy - uy * vx);
}

/// How far a decoded value may lie from the one that was encoded, per component.
std::array<double, 4> stepsOf(const SrcAttributeView& view) {
    std::array<double, 4> steps{};
    if (view.decoded)
        for (std::size_t c = 0; c < 4; ++c)
            steps[c] = std::fabs(1.0 / view.decodeScale[c]);
    return steps;
}

/// What the indices of one view are, whichever mesh uses them.
struct IndexFacts {
    bool known = false;
    std::uint32_t largest = 0; ///< restart indices aside
    bool any = false;
    std::uint64_t restarts = 0;
    std::uint64_t firstRestart = 0;
};

/// What the primitives of a mesh add up to.
struct PrimitiveSums {
    std::uint64_t primitives = 0;
    std::uint64_t degenerate = 0;
    float floatArea = 0.0f; ///< added up as the writers do, with the same losses
    double area = 0.0;
    double perimeters = 0.0;
};

class Validator {
public:
    Validator(const ValidateOptions& options, ReportSink& sink, std::unique_ptr<detail::SrcFileData> data)
        : options(options), sink(sink), file(detail::SrcFileAccess::make(std::move(data))),
          tables(detail::SrcFileAccess::data(file).tables), indexFacts(tables.indexViews.size()),
          workLeft(std::max<std::uint64_t>(std::uint64_t(64) << 20, file.dataBytes() * options.workFactor)) {}

    void run() {
        layout();
        unusedEntries();
        materials();
        alignment();
        try {
            values();
            for (std::size_t m = 0; m < tables.meshes.size(); ++m)
                if (!tables.badMeshes[m]) mesh(tables.meshes[m]);
        } catch (const WorkExceeded&) {
            sink.add({SrcCode::LIMIT_EXCEEDED,
                      SrcError::NO_OFFSET,
                      {},
                      "views name the same bytes so often that checking them all would read " +
                          std::to_string(options.workFactor) +
                          " times the file; what follows was not checked",
                      1});
        }
        attributeCounts.reportTo(sink);
    }

private:
    void report(SrcCode code, std::string path, std::string detail, std::uint64_t count = 1) {
        sink.add({code, SrcError::NO_OFFSET, std::move(path), std::move(detail), count});
    }

    // ---- The header's bookkeeping -----------------------------------------------------------------------

    void layout() {
        // With a chunk unknown, every neighbour would look like a gap.
        if (sink.has({SrcCode::CHUNK_PAST_END, SrcCode::MISSING_SECTION}) ||
            std::find(tables.badChunks.begin(), tables.badChunks.end(), true) != tables.badChunks.end())
            return;
        std::vector<std::uint32_t> order;
        for (std::uint32_t c = 0; c < tables.chunks.size(); ++c)
            if (tables.chunks[c].byteLength > 0) order.push_back(c);
        std::sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
            return tables.chunks[a].byteOffset < tables.chunks[b].byteOffset;
        });
        std::uint64_t end = 0;
        for (const std::uint32_t c : order) {
            const SrcChunk& chunk = tables.chunks[c];
            const std::string range = "bytes " + std::to_string(std::min(end, chunk.byteOffset)) + " to " +
                                      std::to_string(std::max(end, chunk.byteOffset)) +
                                      " of the data section";
            if (chunk.byteOffset > end)
                report(SrcCode::CHUNK_GAP, jsonPointer({"bufferChunks", chunk.id}), range);
            if (chunk.byteOffset < end)
                report(SrcCode::CHUNK_OVERLAP, jsonPointer({"bufferChunks", chunk.id}), range);
            end = std::max(end, chunk.byteOffset + chunk.byteLength);
        }
        if (end < file.dataBytes())
            sink.add({SrcCode::TRAILING_BYTES, file.dataOffset() + end, {}, {}, file.dataBytes() - end});
    }

    template<typename Entry>
    void unused(SrcCode code, std::initializer_list<std::string_view> section,
                const std::vector<Entry>& entries, const std::vector<bool>& used) {
        for (std::size_t i = 0; i < entries.size(); ++i) {
            if (used[i]) continue;
            std::string path = jsonPointer(section) + jsonPointer({entries[i].id});
            report(code, std::move(path), {});
        }
    }

    void unusedEntries() {
        // What a broken reference meant to name would show up as unused.
        if (sink.has({SrcCode::MISSING_SECTION, SrcCode::MISSING_KEY, SrcCode::WRONG_TYPE,
                      SrcCode::DUPLICATE_KEY, SrcCode::DANGLING_CHUNK, SrcCode::DANGLING_BUFFER_VIEW,
                      SrcCode::DANGLING_INDEX_VIEW, SrcCode::DANGLING_ATTRIBUTE_VIEW,
                      SrcCode::DANGLING_MATERIAL, SrcCode::DANGLING_TECHNIQUE,
                      SrcCode::MATERIAL_WITHOUT_TECHNIQUE}))
            return;
        std::vector<bool> chunks(tables.chunks.size()), buffers(tables.bufferViews.size()),
            indexViews(tables.indexViews.size()), attributeViews(tables.attributeViews.size()),
            materials(tables.materials.size()), techniques(tables.techniques.size());
        const auto use = [](std::vector<bool>& used, std::uint32_t position) {
            if (position < used.size()) used[position] = true;
        };
        for (const std::uint32_t chunk : tables.viewChunks)
            use(chunks, chunk);
        for (std::size_t i = 0; i < tables.indexViews.size(); ++i)
            use(buffers, tables.indexViews[i].bufferView);
        for (std::size_t i = 0; i < tables.attributeViews.size(); ++i)
            use(buffers, tables.attributeViews[i].bufferView);
        for (const SrcMesh& mesh : tables.meshes) {
            use(indexViews, mesh.indexView);
            use(materials, mesh.material);
            for (const SrcAttribute& attribute : file.attributes(mesh))
                use(attributeViews, attribute.view);
        }
        for (const SrcMaterial& material : tables.materials)
            use(techniques, material.technique);
        unused(SrcCode::UNUSED_CHUNK, {"bufferChunks"}, tables.chunks, chunks);
        // A view that could not be read never got to its buffer view.
        const auto any = [](const std::vector<bool>& bad) {
            return std::find(bad.begin(), bad.end(), true) != bad.end();
        };
        if (!any(tables.badIndexViews) && !any(tables.badAttributeViews))
            unused(SrcCode::UNUSED_BUFFER_VIEW, {"bufferViews"}, tables.bufferViews, buffers);
        unused(SrcCode::UNUSED_INDEX_VIEW, {"accessors", "indexViews"}, tables.indexViews, indexViews);
        unused(SrcCode::UNUSED_ATTRIBUTE_VIEW, {"accessors", "attributeViews"}, tables.attributeViews,
               attributeViews);
        unused(SrcCode::UNUSED_MATERIAL, {"materials"}, tables.materials, materials);
        unused(SrcCode::UNUSED_TECHNIQUE, {"techniques"}, tables.techniques, techniques);
    }

    void materials() {
        std::vector<std::optional<std::vector<SrcMember>>> parameters(tables.techniques.size());
        for (const SrcMaterial& material : tables.materials) {
            if (material.technique == SRC_NONE) continue;
            auto& known = parameters[material.technique];
            if (!known) known = jsonMembers(tables.techniques[material.technique].parameters);
            for (const SrcMember& value : jsonMembers(material.values)) {
                // Members come sorted by key.
                const bool found =
                    std::binary_search(known->begin(), known->end(), value,
                                       [](const SrcMember& a, const SrcMember& b) { return a.key < b.key; });
                if (!found)
                    report(SrcCode::UNKNOWN_PARAMETER,
                           jsonPointer({"materials", material.id, "instanceTechnique", "values", value.key}),
                           {});
            }
        }
    }

    bool isUsable(const SrcIndexView& view) const {
        const auto position = static_cast<std::size_t>(&view - tables.indexViews.data());
        return !tables.badIndexViews[position] && !tables.badBufferViews[view.bufferView];
    }
    bool isUsable(const SrcAttributeView& view) const {
        const auto position = static_cast<std::size_t>(&view - tables.attributeViews.data());
        return !tables.badAttributeViews[position] && !tables.badBufferViews[view.bufferView];
    }

    void alignment() {
        Gathered unaligned(SrcCode::UNALIGNED_VIEW), slots(SrcCode::THREE_BYTE_SLOTS);
        std::uint64_t bytes = 0;
        const auto check = [&](std::uint32_t bufferView, std::uint64_t byteOffset, std::uint64_t size,
                               std::uint64_t length, std::string_view kind, std::string_view id) {
            const SrcBufferView& buffer = tables.bufferViews[bufferView];
            if (buffer.chunkCount == 0 || length == 0) return;
            const std::uint64_t begin = tables.chunks[tables.viewChunks[buffer.firstChunk]].byteOffset;
            if ((file.dataOffset() + begin + byteOffset) % size == 0) return;
            bytes += length;
            unaligned.add([&] { return jsonPointer({"accessors", kind, id}); });
        };
        for (const SrcIndexView& view : tables.indexViews) {
            if (!isUsable(view)) continue;
            const std::uint64_t size = kel::mesh::getComponentSizeInBytes(view.componentType);
            check(view.bufferView, view.byteOffset, size, view.count * size, "indexViews", view.id);
        }
        for (const SrcAttributeView& view : tables.attributeViews) {
            if (!isUsable(view)) continue;
            if (view.componentBytes == 3) {
                slots.add([&] { return jsonPointer({"accessors", "attributeViews", view.id}); });
            } else {
                check(view.bufferView, view.byteOffset, view.componentBytes, view.count * view.byteStride,
                      "attributeViews", view.id);
            }
        }
        unaligned.finding.detail =
            std::to_string(unaligned.finding.count) + " views, " + std::to_string(bytes) + " bytes to copy";
        slots.finding.detail = std::to_string(slots.finding.count) + " views";
        unaligned.reportTo(sink);
        slots.reportTo(sink);
    }

    // ---- Bytes ------------------------------------------------------------------------------------------

    void work(const SrcBufferView& buffer, std::uint64_t bytes) {
        const std::uint64_t cost = bytes + std::uint64_t(buffer.chunkCount) * 16;
        if (cost > workLeft) throw WorkExceeded();
        workLeft -= cost;
    }

    std::vector<float> decode(const SrcAttributeView& view) {
        work(detail::bufferOf(file, view), view.count * view.byteStride);
        if (view.count > options.limits.memoryBytes / (sizeof(float) * 4)) throw WorkExceeded();
        return decodeAttribute(file, view);
    }

    /// NaN and infinities in views of floats; codes decode to finite numbers.
    void values() {
        for (const SrcAttributeView& view : tables.attributeViews) {
            if (!isUsable(view) || view.componentType != kel::mesh::FLOAT) continue;
            work(detail::bufferOf(file, view), view.count * view.byteStride);
            std::uint64_t bad = 0, firstBad = 0;
            detail::forEachRun(file, detail::bufferOf(file, view), view.byteOffset, view.byteStride,
                               std::uint64_t(view.components) * 4, view.count,
                               [&](const unsigned char* source, std::uint64_t first, std::size_t count) {
                                   for (std::size_t e = 0; e < count; ++e) {
                                       for (std::size_t c = 0; c < view.components; ++c) {
                                           float value;
                                           std::memcpy(&value, source + e * view.byteStride + c * 4,
                                                       sizeof value);
                                           if (std::isfinite(value)) continue;
                                           if (bad++ == 0) firstBad = first + e;
                                       }
                                   }
                               });
            if (bad > 0)
                report(SrcCode::NON_FINITE, jsonPointer({"accessors", "attributeViews", view.id}),
                       "first in element " + std::to_string(firstBad), bad);
        }
    }

    const IndexFacts& factsOf(std::uint32_t position) {
        IndexFacts& facts = indexFacts[position];
        if (facts.known) return facts;
        facts.known = true;
        const SrcIndexView& view = tables.indexViews[position];
        const std::uint32_t restart = restartOf(view);
        std::uint64_t at = 0;
        forEachIndex(view, [&](std::uint32_t index) {
            if (index == restart) {
                if (facts.restarts++ == 0) facts.firstRestart = at;
            } else {
                facts.any = true;
                facts.largest = std::max(facts.largest, index);
            }
            ++at;
        });
        return facts;
    }

    static std::uint32_t restartOf(const SrcIndexView& view) {
        return view.componentType == kel::mesh::UNSIGNED_BYTE    ? 0xffu
               : view.componentType == kel::mesh::UNSIGNED_SHORT ? 0xffffu
                                                                 : 0xffffffffu;
    }

    template<typename Visit>
    void forEachIndex(const SrcIndexView& view, Visit&& visit) {
        const std::size_t size = kel::mesh::getComponentSizeInBytes(view.componentType);
        work(tables.bufferViews[view.bufferView], view.count * size);
        detail::forEachRun(file, tables.bufferViews[view.bufferView], view.byteOffset, size, size, view.count,
                           [&](const unsigned char* source, std::uint64_t, std::size_t count) {
                               for (std::size_t i = 0; i < count; ++i) {
                                   std::uint32_t index = 0;
                                   std::memcpy(&index, source + i * size, size);
                                   visit(index);
                               }
                           });
    }

    // ---- Meshes -----------------------------------------------------------------------------------------

    struct Positions {
        const SrcAttribute* attribute = nullptr;
        SrcAttributeView view;
        bool usable = false;
        std::vector<float> values; ///< three per vertex; empty when they are not three numbers each
    };

    void mesh(const SrcMesh& mesh) {
        const std::string path = jsonPointer({"meshes", mesh.id});
        Positions positions = positionsOf(mesh);
        if (!positions.attribute) {
            report(SrcCode::MISSING_POSITION, path, {});
        } else if (positions.usable) {
            otherAttributes(mesh, positions);
            if (positions.view.components == 3) positions.values = decode(positions.view);
            bounds(mesh, path, positions);
        }
        normals(mesh, path);
        fit(mesh, path);

        const bool indicesKnown = mesh.indexView == SRC_NONE || isUsable(tables.indexViews[mesh.indexView]);
        if (!positions.usable || !indicesKnown) return;
        const bool indicesGood = mesh.indexView == SRC_NONE || indices(mesh, path, positions.view.count);
        primitives(mesh, path, positions, indicesGood);
    }

    Positions positionsOf(const SrcMesh& mesh) {
        Positions positions;
        for (const SrcAttribute& attribute : file.attributes(mesh)) {
            const SrcAttributeView& view = tables.attributeViews[attribute.view];
            const bool combined = isCombinedPositionNormal(attribute, view);
            if (attribute.name != kel::mesh::DEFAULT_POSITIONS_NAME && !combined) continue;
            positions.attribute = &attribute;
            positions.view = combined ? detail::positionPart(view) : view;
            positions.usable = isUsable(view);
            if (!combined) break;
        }
        return positions;
    }

    void otherAttributes(const SrcMesh& mesh, const Positions& positions) {
        for (const SrcAttribute& attribute : file.attributes(mesh)) {
            const SrcAttributeView& view = tables.attributeViews[attribute.view];
            if (isUsable(view) && view.count != positions.view.count)
                attributeCounts.add([&] {
                    return jsonPointer({"meshes", mesh.id, "attributes", attribute.name});
                });
        }
    }

    void bounds(const SrcMesh& mesh, const std::string& path, const Positions& positions) {
        if (!mesh.hasBounds) {
            if (positions.view.components == 3 && !sink.has({SrcCode::BOUNDS_INCOMPLETE}))
                report(SrcCode::MISSING_BOUNDS, path, {});
            return;
        }
        for (const double side : mesh.boundsSize) {
            if (side >= 0.0) continue;
            report(SrcCode::BOUNDS_INVERTED, path + "/bboxSize", "found " + std::to_string(side));
            return;
        }
        const std::array<double, 4> steps = stepsOf(positions.view);
        std::uint64_t outside = 0, firstOutside = 0;
        double farthest = 0;
        for (std::size_t i = 0; i < positions.values.size(); ++i) {
            const std::size_t axis = i % 3;
            const double value = positions.values[i];
            if (!std::isfinite(value)) continue;
            // Bounds are computed in single precision; a decoded value lies up to one step below the
            // original.
            constexpr double ROUNDING = 4.0 * std::numeric_limits<float>::epsilon();
            const double center = mesh.boundsCenter[axis], half = mesh.boundsSize[axis] * 0.5;
            const double slack = steps[axis] + ROUNDING * (std::fabs(center) + half);
            const double beyond = std::fabs(value - center) - half;
            if (beyond <= slack) continue;
            if (outside++ == 0) firstOutside = i / 3;
            farthest = std::max(farthest, beyond);
        }
        if (outside > 0)
            report(SrcCode::BOUNDS_TOO_SMALL, path,
                   "first at vertex " + std::to_string(firstOutside) + ", by up to " +
                       std::to_string(farthest),
                   outside);
    }

    void normals(const SrcMesh& mesh, const std::string& path) {
        for (const SrcAttribute& attribute : file.attributes(mesh)) {
            const SrcAttributeView& view = tables.attributeViews[attribute.view];
            if (attribute.name != kel::mesh::DEFAULT_NORMALS_NAME || view.components != 3 ||
                !isUsable(view) || detail::LeftOvers(file, mesh).contain(attribute))
                continue;
            const std::vector<float> values = decode(view);
            std::array<double, 3> scale{1, 1, 1}, offset{};
            for (const SrcFit& fit : fitOf(mesh)) {
                if (fit.attribute != attribute.name || fit.scale.size() != 3) continue;
                std::copy(fit.scale.begin(), fit.scale.end(), scale.begin());
                std::copy(fit.offset.begin(), fit.offset.end(), offset.begin());
            }
            const std::array<double, 4> steps = stepsOf(view);
            const double slack =
                0.1 + std::hypot(steps[0] * scale[0], steps[1] * scale[1], steps[2] * scale[2]);
            std::uint64_t far = 0, firstFar = 0;
            double worst = 1.0;
            for (std::size_t i = 0; i + 2 < values.size(); i += 3) {
                const double length =
                    std::hypot(values[i] * scale[0] + offset[0], values[i + 1] * scale[1] + offset[1],
                               values[i + 2] * scale[2] + offset[2]);
                if (!std::isfinite(length) || std::fabs(length - 1.0) <= slack) continue;
                if (far++ == 0) firstFar = i / 3;
                if (std::fabs(length - 1.0) > std::fabs(worst - 1.0)) worst = length;
            }
            if (far > 0)
                report(SrcCode::NORMAL_LENGTH, path + "/attributes/normal",
                       "first at vertex " + std::to_string(firstFar) + ", worst length " +
                           std::to_string(worst),
                       far);
        }
    }

    void fit(const SrcMesh& mesh, const std::string& path) {
        for (const SrcMember& member : jsonMembers(mesh.metadata)) {
            if (member.key != "fit") continue;
            if (member.json.empty() || member.json[0] != '{' ||
                fitOf(mesh).size() != jsonMembers(member.json).size())
                report(SrcCode::FIT_MALFORMED, path + "/meta/fit", {});
        }
    }

    /// returns  false when an index names no vertex, or restarts a strip
    bool indices(const SrcMesh& mesh, const std::string& path, std::uint64_t vertices) {
        const SrcIndexView& view = tables.indexViews[mesh.indexView];
        const IndexFacts& facts = factsOf(mesh.indexView);
        if (facts.restarts > 0)
            report(SrcCode::INDEX_IS_RESTART, path + "/indices",
                   "index " + std::to_string(restartOf(view)) + ", first at position " +
                       std::to_string(facts.firstRestart),
                   facts.restarts);
        if (!facts.any || facts.largest < vertices) return facts.restarts == 0;
        std::uint64_t at = 0, outside = 0, first = 0;
        std::uint32_t firstIndex = 0;
        forEachIndex(view, [&](std::uint32_t index) {
            if (index >= vertices && index != restartOf(view) && outside++ == 0) {
                first = at;
                firstIndex = index;
            }
            ++at;
        });
        report(SrcCode::INDEX_OUT_OF_RANGE, path + "/indices",
               "index " + std::to_string(firstIndex) + " of " + std::to_string(vertices) +
                   " vertices, first at position " + std::to_string(first),
               outside);
        return false;
    }

    void primitives(const SrcMesh& mesh, const std::string& path, const Positions& positions,
                    bool indicesGood) {
        const std::uint64_t corners =
            mesh.indexView == SRC_NONE ? positions.view.count : tables.indexViews[mesh.indexView].count;
        PrimitiveSums sums;
        bool complete = true;
        switch (mesh.primitive) {
        case kel::mesh::POINTS:
            sums.primitives = corners;
            break;
        case kel::mesh::LINES:
            sums.primitives = corners / 2;
            complete = corners % 2 == 0;
            break;
        case kel::mesh::LINE_LOOP:
            sums.primitives = corners < 2 ? 0 : corners;
            complete = corners != 1;
            break;
        case kel::mesh::LINE_STRIP:
            sums.primitives = corners < 2 ? 0 : corners - 1;
            complete = corners != 1;
            break;
        case kel::mesh::TRIANGLES:
            sums.primitives = corners / 3;
            complete = corners % 3 == 0;
            break;
        case kel::mesh::TRIANGLE_STRIP:
        case kel::mesh::TRIANGLE_FAN:
            sums.primitives = corners < 3 ? 0 : corners - 2;
            complete = corners == 0 || corners >= 3;
            break;
        }
        if (!complete)
            report(SrcCode::INCOMPLETE_PRIMITIVE, path + "/indices", std::to_string(corners) + " indices");
        const bool measured = indicesGood && positions.view.components == 3;
        if (measured) measure(mesh, positions, sums);
        if (sums.degenerate > 0)
            report(SrcCode::DEGENERATE_PRIMITIVES, path,
                   std::to_string(sums.degenerate) + " of " + std::to_string(sums.primitives),
                   sums.degenerate);
        statistics(mesh, path, positions, sums, measured);
    }

    void measure(const SrcMesh& mesh, const Positions& positions, PrimitiveSums& sums) {
        std::vector<std::uint32_t> indices;
        if (mesh.indexView != SRC_NONE) {
            const SrcIndexView& view = tables.indexViews[mesh.indexView];
            work(tables.bufferViews[view.bufferView], view.count * 4);
            if (view.count > options.limits.memoryBytes / sizeof(std::uint32_t)) throw WorkExceeded();
            indices = decodeIndices(file, view);
        }
        const auto corner = [&](std::uint64_t k) -> std::uint64_t {
            return indices.empty() ? k : indices[static_cast<std::size_t>(k)];
        };
        const auto point = [&](std::uint64_t k) {
            return pointAt(positions.values, static_cast<std::size_t>(corner(k)));
        };
        const std::uint64_t last = sums.primitives;
        for (std::uint64_t p = 0; p < last; ++p) {
            switch (mesh.primitive) {
            case kel::mesh::POINTS:
                return;
            case kel::mesh::LINES:
                sums.degenerate += point(2 * p) == point(2 * p + 1);
                break;
            case kel::mesh::LINE_STRIP:
                sums.degenerate += point(p) == point(p + 1);
                break;
            case kel::mesh::LINE_LOOP:
                sums.degenerate += point(p) == point(p + 1 == last ? 0 : p + 1);
                break;
            case kel::mesh::TRIANGLES:
                addTriangle(point(3 * p), point(3 * p + 1), point(3 * p + 2), sums);
                break;
            case kel::mesh::TRIANGLE_STRIP:
                addTriangle(point(p), point(p + 1), point(p + 2), sums);
                break;
            case kel::mesh::TRIANGLE_FAN:
                addTriangle(point(0), point(p + 1), point(p + 2), sums);
                break;
            }
        }
    }

    static void addTriangle(const glm::vec3& a, const glm::vec3& b, const glm::vec3& c, PrimitiveSums& sums) {
        const double area = doubleArea(a, b, c);
        if (area == 0.0) ++sums.degenerate;
        if (!std::isfinite(area)) return;
        const float asWritten = utils::computeTriangleArea(a, b, c);
        if (isNormal(asWritten)) sums.floatArea += asWritten;
        sums.area += area;
        sums.perimeters += distance(a, b) + distance(b, c) + distance(c, a);
    }

    void statistics(const SrcMesh& mesh, const std::string& path, const Positions& positions,
                    const PrimitiveSums& sums, bool measured) {
        const bool triangles =
            mesh.primitive == kel::mesh::TRIANGLES || mesh.primitive == kel::mesh::TRIANGLE_STRIP;
        const auto differs = [&](const std::string& key, const std::string& stated,
                                 const std::string& found) {
            report(SrcCode::STATISTICS_DIFFER, path + "/meta/" + key,
                   "says " + stated + ", the geometry " + found);
        };
        for (const SrcMember& member : jsonMembers(mesh.metadata)) {
            std::vector<double> numbers;
            if (!jsonNumbers(member.json, numbers) || numbers.size() != 1 || member.json[0] == '[') continue;
            const double stated = numbers[0];
            const std::string text(member.json);
            const auto count = [&](bool rightKind, std::uint64_t found) {
                if (!rightKind)
                    return differs(member.key, text, "is drawn as mode " + std::to_string(mesh.primitive));
                if (stated != static_cast<double>(found))
                    differs(member.key, text, "has " + std::to_string(found));
            };
            if (member.key == "numOriginalTriangles") {
                count(triangles, sums.primitives);
            } else if (member.key == "numOriginalLines") {
                count(mesh.primitive == kel::mesh::LINES, sums.primitives);
            } else if (member.key == "numOriginalPoints") {
                count(mesh.primitive == kel::mesh::POINTS, sums.primitives);
            } else if (member.key == "numOriginalVertices") {
                count(true, positions.view.count);
            } else if (member.key == "surfaceArea" && measured) {
                // Writers measure indexed triangles of three floats only, and print six decimals.
                const bool isMeasured = mesh.indexView != SRC_NONE && mesh.primitive >= kel::mesh::TRIANGLES;
                const double area = isMeasured ? sums.area : 0.0;
                const std::array<double, 4> steps = stepsOf(positions.view);
                const double slack =
                    1e-6 + 1e-3 * area + sums.perimeters * std::hypot(steps[0], steps[1], steps[2]);
                const bool near =
                    std::fabs(stated - area) <= slack ||
                    (isMeasured && std::fabs(stated - static_cast<double>(sums.floatArea)) <= slack);
                if (!near) differs(member.key, text, "has " + std::to_string(area));
            }
        }
    }

    const ValidateOptions& options;
    ReportSink& sink;
    SrcFile file;
    const detail::HeaderTables& tables;
    std::vector<IndexFacts> indexFacts;
    std::uint64_t workLeft;
    Gathered attributeCounts{SrcCode::ATTRIBUTE_COUNT};
};

void checkAll(const ValidateOptions& options, ReportSink& sink, std::unique_ptr<detail::SrcFileData> data) {
    detail::checkChunks(data->tables, data->dataBytes, sink);
    Validator(options, sink, std::move(data)).run();
}

void reportCutHeader(ReportSink& sink, std::uint64_t wanted, std::uint64_t there) {
    sink.report(SrcCode::HEADER_TRUNCATED, detail::Preamble::BYTES + there, {},
                std::to_string(wanted) + " bytes, " + std::to_string(there) + " are there");
}

void validateMemory(ByteView bytes, const ValidateOptions& options, ReportSink& sink,
                    std::unique_ptr<detail::SrcFileData> data) {
    using detail::Preamble;
    Preamble preamble;
    if (!detail::readPreamble(bytes, options.limits, sink, preamble)) return;
    const std::size_t rest = bytes.size - Preamble::BYTES;
    if (preamble.headerBytes > rest) return reportCutHeader(sink, preamble.headerBytes, rest);
    const unsigned char* header = bytes.data + Preamble::BYTES;
    if (!detail::readHeader({reinterpret_cast<const char*>(header), preamble.headerBytes}, options.limits,
                            sink, data->tables))
        return;
    data->data = {header + preamble.headerBytes, rest - preamble.headerBytes};
    data->dataBytes = data->data.size;
    checkAll(options, sink, std::move(data));
}

void validateInput(detail::ByteInput& in, const ValidateOptions& options, ReportSink& sink) {
    using detail::Preamble;
    const auto read = [&](unsigned char* target, std::size_t size) { return in.read(target, size); };
    auto data = std::make_unique<detail::SrcFileData>();
    detail::GrowingBytes front;
    front.fill(Preamble::BYTES, read);
    Preamble preamble;
    if (!detail::readPreamble({front.data(), front.size()}, options.limits, sink, preamble)) return;
    data->headerStore.fill(preamble.headerBytes, read);
    if (data->headerStore.size() < preamble.headerBytes)
        return reportCutHeader(sink, preamble.headerBytes, data->headerStore.size());
    const std::string_view header(reinterpret_cast<const char*>(data->headerStore.data()),
                                  data->headerStore.size());
    if (!detail::readHeader(header, options.limits, sink, data->tables)) return;
    const std::uint64_t wanted = data->tables.payloadEnd();
    if (wanted >= options.limits.memoryBytes) {
        sink.report(SrcCode::LIMIT_EXCEEDED, SrcError::NO_OFFSET, {},
                    std::to_string(wanted) + " bytes of data; memoryBytes is " +
                        std::to_string(options.limits.memoryBytes));
        return;
    }
    data->dataStore.fill(wanted + 1, read); // one more shows whether there is more
    data->data = {data->dataStore.data(), data->dataStore.size()};
    data->dataBytes = data->data.size;
    checkAll(options, sink, std::move(data));
}

} // namespace

ValidationReport validateSrc(ByteView bytes, const ValidateOptions& options) {
    ReportSink sink(options);
    validateMemory(bytes, options, sink, std::make_unique<detail::SrcFileData>());
    return std::move(sink.result);
}

ValidationReport validateSrc(std::istream& in, const ValidateOptions& options) {
    ReportSink sink(options);
    detail::StreamInput input(in);
    validateInput(input, options, sink);
    return std::move(sink.result);
}

ValidationReport validateSrc(const std::string& path, const ValidateOptions& options) {
    ReportSink sink(options);
    try {
        detail::openFile(
            path,
            [&](detail::Mapping&& mapping) {
                auto data = std::make_unique<detail::SrcFileData>();
                const ByteView bytes = mapping.bytes();
                data->mapping = std::move(mapping);
                validateMemory(bytes, options, sink, std::move(data));
            },
            [&](detail::ByteInput& input) { validateInput(input, options, sink); });
    } catch (const SrcError& error) {
        sink.report(error.code(), error.byteOffset(), error.path(), error.detail());
    }
    return std::move(sink.result);
}

} // namespace kel::src
