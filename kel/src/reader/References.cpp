#include <kel/src/format/FileLayout.h>
#include <kel/src/reader/HeaderTables_p.h>
#include <kel/src/text/JsonPointer.h>

#include <algorithm>
#include <initializer_list>
#include <type_traits>
#include <utility>

namespace kel::src::detail {

namespace {

namespace key = format::key;
namespace section = format::section;
using Keys = std::initializer_list<std::string_view>;

/// Every byte of every element lies inside `bytes`.
bool fits(const ElementPlaces& elements, std::uint64_t bytes) {
    if (elements.offset > bytes) return false;
    if (elements.count == 0) return true;
    const std::uint64_t room = bytes - elements.offset;
    return elements.size <= room && (elements.count - 1) <= (room - elements.size) / elements.stride;
}

class ReferenceResolver {
public:
    ReferenceResolver(HeaderTables& tables, HeaderReferences& references, FindingSink& sink)
        : tables(tables), references(references), sink(sink) {}

    void resolve() {
        index({section::BUFFER_CHUNKS}, tables.chunks, tables.chunkIds, &tables.badChunks);
        index({section::BUFFER_VIEWS}, tables.bufferViews, tables.bufferViewIds, &tables.badBufferViews);
        index({section::ACCESSORS, section::INDEX_VIEWS}, tables.indexViews, tables.indexViewIds,
              &tables.badIndexViews, references.indexBuffers);
        index({section::ACCESSORS, section::ATTRIBUTE_VIEWS}, tables.attributeViews, tables.attributeViewIds,
              &tables.badAttributeViews, references.attributeBuffers);
        index({section::TECHNIQUES}, tables.techniques, tables.techniqueIds, nullptr);
        index({section::MATERIALS}, tables.materials, tables.materialIds, nullptr, references.techniques);
        index({section::MESHES}, tables.meshes, tables.meshIds, &tables.badMeshes, references.meshes);
        orderMeshes();

        for (std::size_t i = 0; i < tables.bufferViews.size(); ++i)
            resolveChunks(i);
        resolveViews(section::INDEX_VIEWS, tables.indexViews, references.indexBuffers, tables.badIndexViews);
        resolveViews(section::ATTRIBUTE_VIEWS, tables.attributeViews, references.attributeBuffers,
                     tables.badAttributeViews);
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
        takeOut(entries, shadowed);
        if (bad && !bad->marks.empty()) takeOut(bad->marks, shadowed);
        (takeOut(parallel, shadowed), ...);
        table.build(entries, [](std::uint32_t) {});
    }

    /// Header order is that of the texts, 0, 1, 10, 2; writing order is that of the numbers.
    void orderMeshes() {
        const std::vector<std::uint32_t> order = tables.meshIds.byNumber();
        if (std::is_sorted(order.begin(), order.end())) return;
        const auto arrange = [&](auto& list) {
            if (list.empty()) return; // marks, where they are not kept
            std::decay_t<decltype(list)> arranged;
            arranged.reserve(order.size());
            for (const std::uint32_t position : order)
                arranged.push_back(list[position]);
            list = std::move(arranged);
        };
        arrange(tables.meshes);
        arrange(references.meshes);
        arrange(tables.badMeshes.marks);
        tables.meshIds.build(tables.meshes, [](std::uint32_t) {});
    }

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
                    reportDangling(SrcCode::DANGLING_CHUNK, name,
                                   {section::BUFFER_VIEWS, view.id, key::CHUNKS, std::to_string(c)});
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
            report(SrcCode::VIEW_LENGTH, view.id, {section::BUFFER_VIEWS, view.id, key::BYTE_LENGTH},
                   std::to_string(view.byteLength) + ", its chunks hold " + std::to_string(stored));
        }
        view.storedBytes = std::min(stored, view.byteLength);
    }

    template<typename View>
    void resolveViews(std::string_view kind, std::vector<View>& views,
                      const std::vector<std::string_view>& buffers, UnusableEntries& bad) {
        for (std::size_t i = 0; i < views.size(); ++i) {
            if (bad.contains(i)) continue;
            View& view = views[i];
            view.bufferView = tables.bufferViewIds.find(buffers[i]);
            if (view.bufferView == SRC_NONE && references.hasBufferViews)
                reportDangling(SrcCode::DANGLING_BUFFER_VIEW, buffers[i],
                               {section::ACCESSORS, kind, view.id, key::BUFFER_VIEW});
            if (view.bufferView == SRC_NONE || tables.badBufferViews.contains(view.bufferView)) {
                bad.mark(i);
                continue;
            }
            const ElementPlaces elements(view);
            const std::uint64_t bytes = tables.bufferViews[view.bufferView].storedBytes;
            if (fits(elements, bytes)) continue;
            bad.mark(i);
            report(SrcCode::VIEW_PAST_END, view.id, {section::ACCESSORS, kind, view.id},
                   std::to_string(elements.count) + " elements, " + std::to_string(elements.stride) +
                       " bytes apart, from byte " + std::to_string(elements.offset) + " of " +
                       std::to_string(bytes));
        }
    }

    void resolveTechnique(std::size_t i) {
        const std::string_view name = references.techniques[i];
        if (name.data() == nullptr) return;
        SrcMaterial& material = tables.materials[i];
        material.technique = tables.techniqueIds.find(name);
        if (material.technique == SRC_NONE && sink.wantsAll())
            reportDangling(SrcCode::DANGLING_TECHNIQUE, name,
                           {section::MATERIALS, material.id, key::INSTANCE_TECHNIQUE, key::TECHNIQUE});
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
                                   {section::MESHES, mesh.id, key::INDICES});
            }
        }
        if (!names.material.empty()) {
            mesh.material = tables.materialIds.find(names.material);
            if (mesh.material == SRC_NONE && sink.wantsAll())
                reportDangling(SrcCode::DANGLING_MATERIAL, names.material,
                               {section::MESHES, mesh.id, key::MATERIAL});
        }
        for (std::uint32_t a = 0; a < mesh.attributeCount; ++a) {
            SrcAttribute& attribute = tables.attributes[mesh.firstAttribute + a];
            const std::string_view name = references.attributeViews[mesh.firstAttribute + a];
            attribute.view = tables.attributeViewIds.find(name);
            if (attribute.view == SRC_NONE) {
                tables.badMeshes.mark(i);
                if (references.hasAttributeViews)
                    reportDangling(SrcCode::DANGLING_ATTRIBUTE_VIEW, name,
                                   {section::MESHES, mesh.id, key::ATTRIBUTES, attribute.name});
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
                    text::jsonPointer({section::BUFFER_CHUNKS, chunk.id}),
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
                        text::jsonPointer({section::BUFFER_VIEWS, view.id}),
                        std::to_string(view.storedBytes) + " of " + std::to_string(end) + " bytes");
        }
        if (!usable) tables.badBufferViews.mark(i);
    }
}

} // namespace kel::src::detail
