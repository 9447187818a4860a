#include <src/SrcWriter.h>

#include "Document_p.h"
#include "HeaderNumbers_p.h"

#include <kel/src/text/JsonWriter.h>
#include <kel/src/text/StreamSink.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <deque>
#include <numeric>
#include <stdexcept>
#include <string_view>

namespace src {

namespace {

namespace id_prefix = kel::src::format::id_prefix;
namespace key = kel::src::format::key;
using kel::src::text::appendJsonString;
using kel::src::text::appendSeparated;

/// IDs for objects in the order of their claim to their name: the first keeps it, the others get a number.
class DistinctIds {
public:
    explicit DistinctIds(std::size_t count) { nextNumber.reserve(count); }

    std::string_view claim(std::string_view name) {
        if (nextNumber.try_emplace(name, 2).second) return name;
        std::size_t& number = nextNumber[name];
        do {
            made.push_back(std::string(name) + '_' + std::to_string(number++));
        } while (!nextNumber.try_emplace(made.back(), 2).second);
        return made.back();
    }

private:
    std::unordered_map<std::string_view, std::size_t> nextNumber;
    std::deque<std::string> made;
};

/// True for meshes called after their place: prefix0, prefix1 and so on.
bool areNumbered(const std::deque<MeshEntry>& meshes) {
    if (meshes.empty() || meshes.front().name.empty() || meshes.front().name.back() != '0') return false;
    std::string expected = meshes.front().name;
    const std::size_t prefix = expected.size() - 1;
    for (std::size_t i = 0; i < meshes.size(); ++i) {
        char digits[24];
        const auto end = std::to_chars(digits, digits + sizeof digits, i);
        expected.replace(prefix, std::string::npos, digits, static_cast<std::size_t>(end.ptr - digits));
        if (meshes[i].name != expected) return false;
    }
    return true;
}

class HeaderWriter {
public:
    explicit HeaderWriter(const Src& document)
        : document(document), materialNames(document.materials.size()) {
        constexpr double ZEROS[MAX_COMPONENTS] = {}, ONES[MAX_COMPONENTS] = {1, 1, 1, 1};
        for (std::size_t i = 0; i < MAX_COMPONENTS; ++i)
            HeaderEntries::decodeVectors(neutralDecode[i], ZEROS, ONES, i + 1);
    }

    TextBlocks run() {
        nameMaterials();
        emit.header(
            [&] {
                numbered(id_prefix::ATTRIBUTE_VIEW, document.attributeViews.size(),
                         [&](std::size_t i) { attributeView(i); });
            },
            [&] {
                numbered(id_prefix::INDEX_VIEW, document.indexViews.size(), [&](std::size_t i) {
                    const IndexEntry& view = document.indexViews[i];
                    emit.indexView([&] { emit.id(id_prefix::BUFFER_VIEW, view.bufferView); },
                                   {0, 0, view.count, view.type, 1});
                });
            },
            [&] {
                numbered(id_prefix::CHUNK, document.chunks.size(), [&](std::size_t i) {
                    emit.chunk(document.chunks[i].byteLength, document.chunks[i].byteOffset);
                });
            },
            [&] {
                numbered(id_prefix::BUFFER_VIEW, document.chunks.size(), [&](std::size_t i) {
                    emit.bufferView(document.chunks[i].byteLength, static_cast<std::uint32_t>(i), 1);
                });
            },
            [&] {
                keyed(materialIds, [&](std::size_t i) { sink.append(std::string_view(materialTexts[i])); });
            },
            [&] { meshes(); }, [&] { sink.append(std::string_view("{}")); }, [&] { techniques(); });
        return std::move(header);
    }

private:
    template<typename EmitEntry>
    void numbered(std::string_view prefix, std::size_t count, const EmitEntry& emitEntry) {
        emit.numbered(
            prefix,
            [&](const auto& visit) {
                kel::src::format::inTextOrder(count, [&](std::size_t i) {
                    sink.goOnIn(header.end());
                    visit(i, i);
                });
            },
            emitEntry);
    }

    template<typename EmitEntry>
    void keyed(const std::vector<std::string_view>& ids, const EmitEntry& emitEntry) {
        std::vector<std::size_t> order(ids.size());
        std::iota(order.begin(), order.end(), std::size_t(0));
        std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return ids[a] < ids[b]; });
        bool first = true;
        for (const std::size_t i : order) {
            sink.goOnIn(header.end());
            emit.entryId(first, ids[i]);
            emitEntry(i);
        }
    }

    static void refuse(const std::string& whose, const std::string& fault) {
        if (!fault.empty()) throw std::overflow_error(whose + ": " + fault);
    }

    void attributeView(std::size_t number) {
        const AttributeEntry& view = document.attributeViews[number];
        std::string_view decode = neutralDecode[view.components - 1];
        if (view.hasDecode) {
            std::string fault = faultOf(key::DECODE_OFFSET, view.decodeOffset, view.components);
            if (fault.empty()) fault = faultOf(key::DECODE_SCALE, view.decodeScale, view.components);
            if (!fault.empty()) refuse("Attribute view " + std::to_string(number) + ", of no mesh", fault);
            scratch.clear();
            HeaderEntries::decodeVectors(scratch, view.decodeOffset, view.decodeScale, view.components);
            decode = scratch;
        }
        emit.attributeView([&] { emit.id(id_prefix::BUFFER_VIEW, view.bufferView); },
                           {view.byteOffset, view.byteStride, view.count, view.type, view.components},
                           decode);
    }

    void meshes() {
        const auto emitMesh = [&](std::size_t i) {
            const MeshEntry& entry = document.meshes[i];
            sink.append(document.meshTexts.at(entry.head));
            scratch.clear();
            appendJsonString(scratch, entry.material == NO_MATERIAL ? "" : materialIds[entry.material]);
            sink.append(std::string_view(scratch));
            sink.append(document.meshTexts.at(entry.tail));
        };
        // The usual names are distinct, and their order is known.
        if (areNumbered(document.meshes)) {
            const std::string& first = document.meshes.front().name;
            std::string prefix;
            appendJsonString(prefix, std::string_view(first).substr(0, first.size() - 1));
            numbered(std::string_view(prefix).substr(1, prefix.size() - 2), document.meshes.size(), emitMesh);
            return;
        }
        DistinctIds names(document.meshes.size());
        std::vector<std::string_view> ids;
        ids.reserve(document.meshes.size());
        for (const MeshEntry& entry : document.meshes)
            ids.push_back(names.claim(entry.name));
        keyed(ids, emitMesh);
    }

    static std::string materialText(const Material& material) {
        std::string text;
        HeaderEntries::material(text, material.technique->getId(), [&](std::string& values) {
            appendSeparated(values, "{}", material.values, [&](const auto& field) {
                const auto& [name, numbers] = field;
                refuse("Material \"" + material.name + "\"", faultOf(name, numbers.data(), numbers.size()));
                // Arrays even for a scalar: readers tell a material's values from a technique's defaults by it.
                appendJsonString(values, name);
                HeaderEntries::numbers(values, ":", numbers.data(), numbers.size());
            });
        });
        return text;
    }

    void techniques() {
        std::vector<std::string_view> ids;
        for (const auto& technique : document.techniques)
            ids.push_back(technique->getId());
        keyed(ids, [&](std::size_t i) {
            scratch.clear();
            HeaderEntries::technique(scratch,
                                     [&](std::string& text) { parameters(text, *document.techniques[i]); });
            sink.append(std::string_view(scratch));
        });
    }

    static void parameters(std::string& text, const Technique& technique) {
        appendSeparated(text, "{}", technique.getParameters(), [&](const auto& parameter) {
            const auto& [name, values] = parameter;
            refuse("Technique \"" + technique.getId() + "\"", faultOf(name, values.data(), values.size()));
            appendJsonString(text, name);
            text += ':';
            if (values.size() == 1) {
                kel::src::text::appendMember(text, kel::src::format::FIRST_KEY<key::VALUE>, values[0]);
            } else {
                HeaderEntries::numbers(text, kel::src::format::FIRST_KEY<key::VALUE>, values.data(),
                                       values.size());
            }
            text += '}';
        });
    }

    /// By first use and then by content, so that the order in which a caller's set of pointers happened to
    /// hand in namesakes does not show.
    void nameMaterials() {
        const std::size_t count = document.materials.size();
        materialTexts.reserve(count);
        for (const MaterialEntry& entry : document.materials)
            materialTexts.push_back(materialText(*entry.material));
        std::vector<std::size_t> order(count);
        std::iota(order.begin(), order.end(), std::size_t(0));
        std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
            const std::size_t useA = document.materials[a].firstUse, useB = document.materials[b].firstUse;
            return useA != useB ? useA < useB : materialTexts[a] < materialTexts[b];
        });
        materialIds.resize(count);
        for (const std::size_t i : order)
            materialIds[i] = materialNames.claim(document.materials[i].material->name);
    }

    const Src& document;
    TextBlocks header;
    kel::src::text::StringSink sink{header.end()}; ///< goes on in another block with some entry
    HeaderEmitter<kel::src::text::StringSink> emit{sink};
    std::string scratch;
    /// The decode vectors of views that have none: offset 0 and scale 1, by number of components.
    std::array<std::string, MAX_COMPONENTS> neutralDecode;
    DistinctIds materialNames;
    std::vector<std::string_view> materialIds;
    std::vector<std::string> materialTexts;
};

} // namespace

std::shared_ptr<SrcWriter> SrcWriter::create() {
    return std::make_shared<SrcWriter>();
}

void SrcWriter::write(std::shared_ptr<Src> document, std::ostream& out) {
    if (!document) throw std::invalid_argument("There is no document to write.");
    if (!document->fault.empty()) throw std::overflow_error(document->fault);
    // Kept whole until its length is known. Making it twice, once to count and once to write, would hold less
    // memory but took an eighth longer for 20,000 small meshes.
    const TextBlocks header = HeaderWriter(*document).run();
    if (header.size() > headerLimit) {
        throw std::length_error("The header would have " + std::to_string(header.size()) +
                                " bytes, more than the " + std::to_string(headerLimit) +
                                " that the file can state. Write the scene in several files.");
    }

    kel::src::text::StreamSink sink(out);
    sink.append(kel::src::format::PreambleBytes(header.size()).text());
    for (const std::string& block : header.all())
        sink.append(std::string_view(block));
    for (const Chunk& chunk : document->chunks) {
        sink.append(std::string_view(reinterpret_cast<const char*>(chunk.bytes.get()), chunk.byteLength));
    }
    sink.flush();
}

} // namespace src
