#include <kel/src/SrcJson.h>
#include <kel/src/format/ElementTypes.h>
#include <kel/src/format/FileLayout.h>
#include <kel/src/reader/Validation_p.h>
#include <kel/src/text/JsonPointer.h>

#include <algorithm>
#include <optional>

namespace kel::src::detail {

namespace {

using text::jsonPointer;

class LayoutChecks {
public:
    explicit LayoutChecks(Validation& validation)
        : validation(validation), sink(validation.sink), file(validation.file), tables(validation.tables) {}

    void run() {
        chunks();
        unusedEntries();
        materials();
        alignment();
    }

private:
    void report(SrcCode code, std::string path, std::string detail) {
        validation.report(code, std::move(path), std::move(detail));
    }

    void chunks() {
        // With a chunk unknown, every neighbour would look like a gap.
        if (sink.has({SrcCode::CHUNK_PAST_END, SrcCode::MISSING_SECTION}) || !tables.badChunks.empty())
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
                report(SrcCode::CHUNK_GAP, jsonPointer({format::section::BUFFER_CHUNKS, chunk.id}), range);
            if (chunk.byteOffset < end)
                report(SrcCode::CHUNK_OVERLAP, jsonPointer({format::section::BUFFER_CHUNKS, chunk.id}),
                       range);
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
        std::vector<bool> usedChunks(tables.chunks.size()), buffers(tables.bufferViews.size()),
            indexViews(tables.indexViews.size()), attributeViews(tables.attributeViews.size()),
            materials(tables.materials.size()), techniques(tables.techniques.size());
        const auto use = [](std::vector<bool>& used, std::uint32_t position) {
            if (position < used.size()) used[position] = true;
        };
        for (const std::uint32_t chunk : tables.viewChunks)
            use(usedChunks, chunk);
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
        unused(SrcCode::UNUSED_CHUNK, {format::section::BUFFER_CHUNKS}, tables.chunks, usedChunks);
        // A view that could not be read never got to its buffer view.
        if (tables.badIndexViews.empty() && tables.badAttributeViews.empty())
            unused(SrcCode::UNUSED_BUFFER_VIEW, {format::section::BUFFER_VIEWS}, tables.bufferViews, buffers);
        unused(SrcCode::UNUSED_INDEX_VIEW, {format::section::ACCESSORS, format::section::INDEX_VIEWS},
               tables.indexViews, indexViews);
        unused(SrcCode::UNUSED_ATTRIBUTE_VIEW, {format::section::ACCESSORS, format::section::ATTRIBUTE_VIEWS},
               tables.attributeViews, attributeViews);
        unused(SrcCode::UNUSED_MATERIAL, {format::section::MATERIALS}, tables.materials, materials);
        unused(SrcCode::UNUSED_TECHNIQUE, {format::section::TECHNIQUES}, tables.techniques, techniques);
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
                           jsonPointer({format::section::MATERIALS, material.id,
                                        format::key::INSTANCE_TECHNIQUE, format::key::VALUES, value.key}),
                           {});
            }
        }
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
            unaligned.add([&] { return jsonPointer({format::section::ACCESSORS, kind, id}); });
        };
        for (const SrcIndexView& view : tables.indexViews) {
            if (!validation.isUsable(view)) continue;
            const std::uint64_t size = kel::mesh::getComponentSizeInBytes(view.componentType);
            check(view.bufferView, view.byteOffset, size, view.count * size, format::section::INDEX_VIEWS,
                  view.id);
        }
        for (const SrcAttributeView& view : tables.attributeViews) {
            if (!validation.isUsable(view)) continue;
            if (view.componentBytes == format::WIDE_CODE_BYTES) {
                slots.add([&] {
                    return jsonPointer(
                        {format::section::ACCESSORS, format::section::ATTRIBUTE_VIEWS, view.id});
                });
            } else {
                check(view.bufferView, view.byteOffset, view.componentBytes, view.count * view.byteStride,
                      format::section::ATTRIBUTE_VIEWS, view.id);
            }
        }
        unaligned.finding.detail =
            std::to_string(unaligned.finding.count) + " views, " + std::to_string(bytes) + " bytes to copy";
        slots.finding.detail = std::to_string(slots.finding.count) + " views";
        unaligned.reportTo(sink);
        slots.reportTo(sink);
    }

    Validation& validation;
    ReportSink& sink;
    const SrcFile& file;
    const HeaderTables& tables;
};

} // namespace

void validateLayout(Validation& validation) {
    LayoutChecks(validation).run();
}

} // namespace kel::src::detail
