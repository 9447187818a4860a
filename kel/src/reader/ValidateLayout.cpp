#include <kel/src/SrcJson.h>
#include <kel/src/format/ElementTypes.h>
#include <kel/src/format/FileLayout.h>
#include <kel/src/reader/Validation_p.h>
#include <kel/src/text/JsonPointer.h>

#include <optional>

namespace kel::src::detail {

namespace {

namespace key = format::key;
namespace section = format::section;
using text::jsonPointer;

void checkChunkPlaces(Validation& validation) {
    const HeaderTables& tables = validation.tables;
    // With a chunk unknown, every neighbour would look like a gap.
    if (validation.sink.has({SrcCode::CHUNK_PAST_END, SrcCode::MISSING_SECTION}) || !tables.badChunks.empty())
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
                                  std::to_string(std::max(end, chunk.byteOffset)) + " of the data section";
        if (chunk.byteOffset != end)
            validation.report(chunk.byteOffset > end ? SrcCode::CHUNK_GAP : SrcCode::CHUNK_OVERLAP,
                              jsonPointer({section::BUFFER_CHUNKS, chunk.id}), range);
        end = std::max(end, chunk.byteOffset + chunk.byteLength);
    }
    if (end < validation.file.dataBytes())
        validation.sink.add({SrcCode::TRAILING_BYTES,
                             validation.file.dataOffset() + end,
                             {},
                             {},
                             validation.file.dataBytes() - end});
}

template<typename Entry>
void reportUnused(Validation& validation, SrcCode code, std::initializer_list<std::string_view> section,
                  const std::vector<Entry>& entries, const std::vector<bool>& used) {
    for (std::size_t i = 0; i < entries.size(); ++i)
        if (!used[i]) validation.report(code, jsonPointer(section) + jsonPointer({entries[i].id}), {});
}

void findUnused(Validation& validation) {
    const HeaderTables& tables = validation.tables;
    // What a broken reference meant to name would show up as unused.
    if (validation.sink.has({SrcCode::MISSING_SECTION, SrcCode::MISSING_KEY, SrcCode::WRONG_TYPE,
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
        for (const SrcAttribute& attribute : validation.file.attributes(mesh))
            use(attributeViews, attribute.view);
    }
    for (const SrcMaterial& material : tables.materials)
        use(techniques, material.technique);
    reportUnused(validation, SrcCode::UNUSED_CHUNK, {section::BUFFER_CHUNKS}, tables.chunks, usedChunks);
    // A view that could not be read never got to its buffer view.
    if (tables.badIndexViews.empty() && tables.badAttributeViews.empty())
        reportUnused(validation, SrcCode::UNUSED_BUFFER_VIEW, {section::BUFFER_VIEWS}, tables.bufferViews,
                     buffers);
    reportUnused(validation, SrcCode::UNUSED_INDEX_VIEW, {section::ACCESSORS, section::INDEX_VIEWS},
                 tables.indexViews, indexViews);
    reportUnused(validation, SrcCode::UNUSED_ATTRIBUTE_VIEW, {section::ACCESSORS, section::ATTRIBUTE_VIEWS},
                 tables.attributeViews, attributeViews);
    reportUnused(validation, SrcCode::UNUSED_MATERIAL, {section::MATERIALS}, tables.materials, materials);
    reportUnused(validation, SrcCode::UNUSED_TECHNIQUE, {section::TECHNIQUES}, tables.techniques, techniques);
}

void checkParameters(Validation& validation) {
    const HeaderTables& tables = validation.tables;
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
                validation.report(SrcCode::UNKNOWN_PARAMETER,
                                  jsonPointer({section::MATERIALS, material.id, key::INSTANCE_TECHNIQUE,
                                               key::VALUES, value.key}),
                                  {});
        }
    }
}

void checkAlignment(Validation& validation) {
    const HeaderTables& tables = validation.tables;
    Gathered unaligned(SrcCode::UNALIGNED_VIEW), slots(SrcCode::THREE_BYTE_SLOTS);
    std::uint64_t bytes = 0;
    const auto check = [&](const ElementPlaces& elements, std::uint64_t component, std::string_view kind,
                           std::string_view id) {
        const SrcBufferView& buffer = tables.bufferViews[elements.bufferView];
        if (buffer.chunkCount == 0 || elements.count == 0) return;
        const std::uint64_t begin = tables.chunks[tables.viewChunks[buffer.firstChunk]].byteOffset;
        if ((validation.file.dataOffset() + begin + elements.offset) % component == 0) return;
        bytes += elements.count * elements.stride;
        unaligned.add([&] { return jsonPointer({section::ACCESSORS, kind, id}); });
    };
    for (const SrcIndexView& view : tables.indexViews)
        if (validation.isUsable(view)) check(view, ElementPlaces(view).size, section::INDEX_VIEWS, view.id);
    for (const SrcAttributeView& view : tables.attributeViews) {
        if (!validation.isUsable(view)) continue;
        if (view.componentBytes == format::WIDE_CODE_BYTES) {
            slots.add([&] { return jsonPointer({section::ACCESSORS, section::ATTRIBUTE_VIEWS, view.id}); });
        } else {
            check(view, view.componentBytes, section::ATTRIBUTE_VIEWS, view.id);
        }
    }
    unaligned.finding.detail =
        std::to_string(unaligned.finding.count) + " views, " + std::to_string(bytes) + " bytes to copy";
    slots.finding.detail = std::to_string(slots.finding.count) + " views";
    unaligned.reportTo(validation.sink);
    slots.reportTo(validation.sink);
}

} // namespace

void validateLayout(Validation& validation) {
    checkChunkPlaces(validation);
    findUnused(validation);
    checkParameters(validation);
    checkAlignment(validation);
}

} // namespace kel::src::detail
