#include <kel/src/reader/References_p.h>

#include <kel/mesh/ComponentType.h>
#include <kel/src/format/FileLayout.h>
#include <kel/src/text/JsonPointer.h>

#include <algorithm>
#include <initializer_list>
#include <string>
#include <utility>

namespace kel::src::detail {

namespace {

using Keys = std::initializer_list<std::string_view>;

/// Every byte of every element lies inside `bytes`.
bool fits(std::uint64_t offset, std::uint64_t count, std::uint64_t stride, std::uint64_t element,
          std::uint64_t bytes) {
    if (offset > bytes) return false;
    if (count == 0) return true;
    const std::uint64_t room = bytes - offset;
    return element <= room && (count - 1) <= (room - element) / stride;
}

class ReferenceResolver {
public:
    ReferenceResolver(HeaderTables& tables, HeaderReferences& references, FindingSink& sink)
        : tables(tables), references(references), sink(sink) {}

    void resolve() {
        index({format::section::BUFFER_CHUNKS}, tables.chunks, tables.chunkIds, &tables.badChunks);
        index({format::section::BUFFER_VIEWS}, tables.bufferViews, tables.bufferViewIds,
              &tables.badBufferViews);
        index({format::section::ACCESSORS, format::section::INDEX_VIEWS}, tables.indexViews,
              tables.indexViewIds, &tables.badIndexViews, references.indexBuffers);
        index({format::section::ACCESSORS, format::section::ATTRIBUTE_VIEWS}, tables.attributeViews,
              tables.attributeViewIds, &tables.badAttributeViews, references.attributeBuffers);
        index({format::section::TECHNIQUES}, tables.techniques, tables.techniqueIds, nullptr);
        index({format::section::MATERIALS}, tables.materials, tables.materialIds, nullptr,
              references.techniques);
        index({format::section::MESHES}, tables.meshes, tables.meshIds, &tables.badMeshes, references.meshes);
        orderMeshes();

        for (std::size_t i = 0; i < tables.bufferViews.size(); ++i)
            resolveChunks(i);
        for (std::size_t i = 0; i < tables.indexViews.size(); ++i)
            resolveIndexView(i);
        for (std::size_t i = 0; i < tables.attributeViews.size(); ++i)
            resolveAttributeView(i);
        for (std::size_t i = 0; i < tables.materials.size(); ++i)
            resolveTechnique(i);
        for (std::size_t i = 0; i < tables.meshes.size(); ++i)
            resolveMesh(i);
    }

private:
    /// At the place of a text that the header holds.
    void report(SrcCode code, std::string_view text, Keys keys, std::string detail) {
        const bool inside =
            text.data() >= tables.text.data() && text.data() < tables.text.data() + tables.text.size();
        const std::uint64_t offset =
            inside ? format::PREAMBLE_BYTES + static_cast<std::uint64_t>(text.data() - tables.text.data())
                   : SrcError::NO_OFFSET;
        sink.report(code, offset, text::jsonPointer(keys), std::move(detail));
    }
    void reportDangling(SrcCode code, std::string_view name, Keys keys) {
        report(code, name, keys, quoted(name));
    }

    // ---- IDs --------------------------------------------------------------------------------------------

    /// Builds a section's ID table and takes out the entries that a later one of the same ID replaces.
    template<typename Entry, typename... Parallel>
    void index(Keys section, std::vector<Entry>& entries, IdTable& table, UnusableEntries* bad,
               Parallel&... parallel) {
        std::vector<std::uint32_t> shadowed;
        table.build(entries, [&](std::uint32_t position) { shadowed.push_back(position); });
        if (shadowed.empty()) return;
        std::sort(shadowed.begin(), shadowed.end());
        for (const std::uint32_t position : shadowed) {
            if (!sink.wantsAll()) break;
            std::vector<std::string_view> keys(section);
            keys.push_back(entries[position].id);
            sink.report(SrcCode::DUPLICATE_KEY, SrcError::NO_OFFSET, text::jsonPointer(keys), {});
        }
        const auto takeOut = [&](auto& list) {
            std::size_t kept = 0, next = 0;
            for (std::size_t i = 0; i < list.size(); ++i) {
                if (next < shadowed.size() && shadowed[next] == i) {
                    ++next;
                } else {
                    list[kept++] = list[i];
                }
            }
            list.resize(kept);
        };
        takeOut(entries);
        if (bad && !bad->marks.empty()) takeOut(bad->marks);
        (takeOut(parallel), ...);
        table.build(entries, [](std::uint32_t) {});
    }

    /// Header order is that of the texts, 0, 1, 10, 2; writing order is that of the numbers.
    void orderMeshes() {
        const std::vector<std::uint32_t> order = tables.meshIds.byNumber();
        if (std::is_sorted(order.begin(), order.end())) return;
        std::vector<SrcMesh> meshes;
        std::vector<MeshReferences> names;
        UnusableEntries bad;
        meshes.reserve(order.size());
        names.reserve(order.size());
        for (const std::uint32_t position : order) {
            meshes.push_back(tables.meshes[position]);
            names.push_back(references.meshes[position]);
            if (!tables.badMeshes.marks.empty()) bad.marks.push_back(tables.badMeshes.contains(position));
        }
        tables.badMeshes = std::move(bad);
        tables.meshes = std::move(meshes);
        references.meshes = std::move(names);
        tables.meshIds.build(tables.meshes, [](std::uint32_t) {});
    }

    // ---- Buffer views -----------------------------------------------------------------------------------

    void resolveChunks(std::size_t i) {
        SrcBufferView& view = tables.bufferViews[i];
        const std::uint32_t firstName = view.firstChunk;
        view.firstChunk = static_cast<std::uint32_t>(tables.viewChunks.size());
        std::uint64_t stored = 0;
        for (std::uint32_t c = 0; c < view.chunkCount; ++c) {
            const std::string_view name = references.chunks[firstName + c];
            const std::uint32_t found = tables.chunkIds.find(name);
            if (found == SRC_NONE) {
                if (references.hasChunks)
                    reportDangling(
                        SrcCode::DANGLING_CHUNK, name,
                        {format::section::BUFFER_VIEWS, view.id, format::key::CHUNKS, std::to_string(c)});
                tables.badBufferViews.mark(i);
            } else if (tables.badChunks.contains(found)) {
                tables.badBufferViews.mark(i);
            } else {
                // Stops growing where no single length can be, so that it cannot wrap.
                stored = std::min(stored + tables.chunks[found].byteLength, COUNT_END);
            }
            tables.viewChunks.push_back(found);
        }
        if (!tables.badBufferViews.contains(i) && stored != view.byteLength && sink.wantsAll()) {
            report(SrcCode::VIEW_LENGTH, view.id,
                   {format::section::BUFFER_VIEWS, view.id, format::key::BYTE_LENGTH},
                   std::to_string(view.byteLength) + ", its chunks hold " + std::to_string(stored));
        }
        view.storedBytes = std::min(stored, view.byteLength);
    }

    // ---- Index and attribute views ----------------------------------------------------------------------

    /// The stored bytes of the buffer view of that name; false when they cannot be used.
    bool resolveBuffer(std::string_view name, std::string_view kind, std::string_view id, std::uint32_t& view,
                       std::uint64_t& bytes) {
        view = tables.bufferViewIds.find(name);
        if (view == SRC_NONE) {
            if (references.hasBufferViews)
                reportDangling(SrcCode::DANGLING_BUFFER_VIEW, name,
                               {format::section::ACCESSORS, kind, id, format::key::BUFFER_VIEW});
            return false;
        }
        bytes = tables.bufferViews[view].storedBytes;
        return !tables.badBufferViews.contains(view);
    }

    void reportPastEnd(std::string_view kind, std::string_view id, std::uint64_t offset, std::uint64_t count,
                       std::uint64_t stride, std::uint64_t bytes) {
        report(SrcCode::VIEW_PAST_END, id, {format::section::ACCESSORS, kind, id},
               std::to_string(count) + " elements, " + std::to_string(stride) + " bytes apart, from byte " +
                   std::to_string(offset) + " of " + std::to_string(bytes));
    }

    void resolveIndexView(std::size_t i) {
        SrcIndexView& view = tables.indexViews[i];
        if (tables.badIndexViews.contains(i)) return;
        std::uint64_t bytes = 0;
        if (!resolveBuffer(references.indexBuffers[i], format::section::INDEX_VIEWS, view.id, view.bufferView,
                           bytes)) {
            tables.badIndexViews.mark(i);
            return;
        }
        const std::uint64_t size = kel::mesh::getComponentSizeInBytes(view.componentType);
        if (!fits(view.byteOffset, view.count, size, size, bytes)) {
            tables.badIndexViews.mark(i);
            reportPastEnd(format::section::INDEX_VIEWS, view.id, view.byteOffset, view.count, size, bytes);
        }
    }

    void resolveAttributeView(std::size_t i) {
        SrcAttributeView& view = tables.attributeViews[i];
        if (tables.badAttributeViews.contains(i)) return;
        std::uint64_t bytes = 0;
        if (!resolveBuffer(references.attributeBuffers[i], format::section::ATTRIBUTE_VIEWS, view.id,
                           view.bufferView, bytes)) {
            tables.badAttributeViews.mark(i);
            return;
        }
        const std::uint64_t element = std::uint64_t(view.components) * view.componentBytes;
        if (!fits(view.byteOffset, view.count, view.byteStride, element, bytes)) {
            tables.badAttributeViews.mark(i);
            reportPastEnd(format::section::ATTRIBUTE_VIEWS, view.id, view.byteOffset, view.count,
                          view.byteStride, bytes);
        }
    }

    // ---- Materials and meshes ---------------------------------------------------------------------------

    void resolveTechnique(std::size_t i) {
        const std::string_view name = references.techniques[i];
        if (name.data() == nullptr) return;
        SrcMaterial& material = tables.materials[i];
        material.technique = tables.techniqueIds.find(name);
        if (material.technique == SRC_NONE && sink.wantsAll())
            reportDangling(SrcCode::DANGLING_TECHNIQUE, name,
                           {format::section::MATERIALS, material.id, format::key::INSTANCE_TECHNIQUE,
                            format::key::TECHNIQUE});
    }

    void resolveMesh(std::size_t i) {
        SrcMesh& mesh = tables.meshes[i];
        const MeshReferences& names = references.meshes[i];
        if (!names.indices.empty()) {
            mesh.indexView = tables.indexViewIds.find(names.indices);
            if (mesh.indexView == SRC_NONE) {
                tables.badMeshes.mark(i);
                if (references.hasIndexViews)
                    reportDangling(SrcCode::DANGLING_INDEX_VIEW, names.indices,
                                   {format::section::MESHES, mesh.id, format::key::INDICES});
            }
        }
        if (!names.material.empty()) {
            mesh.material = tables.materialIds.find(names.material);
            if (mesh.material == SRC_NONE && sink.wantsAll())
                reportDangling(SrcCode::DANGLING_MATERIAL, names.material,
                               {format::section::MESHES, mesh.id, format::key::MATERIAL});
        }
        for (std::uint32_t a = 0; a < mesh.attributeCount; ++a) {
            SrcAttribute& attribute = tables.attributes[mesh.firstAttribute + a];
            const std::string_view name = references.attributeViews[mesh.firstAttribute + a];
            attribute.view = tables.attributeViewIds.find(name);
            if (attribute.view == SRC_NONE) {
                tables.badMeshes.mark(i);
                if (references.hasAttributeViews)
                    reportDangling(
                        SrcCode::DANGLING_ATTRIBUTE_VIEW, name,
                        {format::section::MESHES, mesh.id, format::key::ATTRIBUTES, attribute.name});
                continue;
            }
            SrcAttributeView& view = tables.attributeViews[attribute.view];
            if (view.owner == SRC_NONE) view.owner = static_cast<std::uint32_t>(i);
        }
    }

    HeaderTables& tables;
    HeaderReferences& references;
    FindingSink& sink;
};

bool hasUnusableChunk(const HeaderTables& tables, const SrcBufferView& view) {
    if (tables.badChunks.marks.empty()) return false;
    const std::uint32_t* first = tables.viewChunks.data() + view.firstChunk;
    return std::any_of(first, first + view.chunkCount,
                       [&](std::uint32_t chunk) { return tables.badChunks.contains(chunk); });
}

} // namespace

void resolveReferences(HeaderTables& tables, HeaderReferences& references, FindingSink& sink) {
    ReferenceResolver(tables, references, sink).resolve();
}

void checkChunks(HeaderTables& tables, std::uint64_t dataBytes, FindingSink& sink) {
    for (std::size_t i = 0; i < tables.chunks.size(); ++i) {
        const SrcChunk& chunk = tables.chunks[i];
        if (tables.badChunks.contains(i) || chunk.byteOffset + chunk.byteLength <= dataBytes) continue;
        tables.badChunks.mark(i);
        sink.report(SrcCode::CHUNK_PAST_END, SrcError::NO_OFFSET,
                    text::jsonPointer({format::section::BUFFER_CHUNKS, chunk.id}),
                    std::to_string(chunk.byteLength) + " bytes from byte " +
                        std::to_string(chunk.byteOffset) + " of " + std::to_string(dataBytes));
    }
    // Against the end of the last chunk, which a stream knows too, and not against what may follow it.
    const std::uint64_t end = tables.payloadEnd();
    for (std::size_t i = 0; i < tables.bufferViews.size(); ++i) {
        const SrcBufferView& view = tables.bufferViews[i];
        bool usable = !tables.badBufferViews.contains(i) && !hasUnusableChunk(tables, view);
        if (usable && view.storedBytes > end) {
            usable = false;
            sink.report(SrcCode::REPEATED_CHUNKS, SrcError::NO_OFFSET,
                        text::jsonPointer({format::section::BUFFER_VIEWS, view.id}),
                        std::to_string(view.storedBytes) + " of " + std::to_string(end) + " bytes");
        }
        if (!usable) tables.badBufferViews.mark(i);
    }
}

} // namespace kel::src::detail
