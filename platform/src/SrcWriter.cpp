#include <src/SrcWriter.h>

#include "Document_p.h"
#include "HeaderNumbers_p.h"

#include <kel/src/text/JsonWriter.h>
#include <kel/src/text/StreamSink.h>
#include <kel/src/text/TextOrder.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <deque>
#include <numeric>
#include <stdexcept>
#include <string_view>

namespace src {

namespace {

using kel::src::text::appendJsonString;
using kel::src::text::appendMember;

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
        : document(document), materialNames(document.materials.size()) {}

    /// Keys in ascending byte order, on every level.
    TextBlocks run() {
        nameMaterials();
        header.end() += "{\"accessors\":{\"attributeViews\":{";
        numbered("attributeView", document.attributeViews.size(),
                 [&](std::string& text, std::size_t i) { attributeView(text, i); });
        header.end() += "},\"indexViews\":{";
        numbered("indexView", document.indexViews.size(),
                 [&](std::string& text, std::size_t i) { indexView(text, document.indexViews[i]); });
        header.end() += "}},\"bufferChunks\":{";
        numbered("chunk", document.chunks.size(), [&](std::string& text, std::size_t i) {
            appendMember(text, "{\"byteLength\":", static_cast<double>(document.chunks[i].byteLength));
            appendMember(text, ",\"byteOffset\":", static_cast<double>(document.chunks[i].byteOffset));
            text += '}';
        });
        header.end() += "},\"bufferViews\":{";
        numbered("bufferView", document.chunks.size(), [&](std::string& text, std::size_t i) {
            appendMember(text, "{\"byteLength\":", static_cast<double>(document.chunks[i].byteLength));
            text += ",\"chunks\":[";
            appendId(text, "chunk", i);
            text += "]}";
        });
        header.end() += "},\"materials\":{";
        keyed(materialIds, [&](std::string& text, std::size_t i) { text += materialTexts[i]; });
        header.end() += "},\"meshes\":{";
        meshes();
        header.end() += "},\"meta\":{},\"techniques\":{";
        std::vector<std::string_view> techniqueIds;
        for (const auto& technique : document.techniques)
            techniqueIds.push_back(technique->getId());
        keyed(techniqueIds,
              [&](std::string& text, std::size_t i) { parameters(text, *document.techniques[i]); });
        header.end() += "},\"textureViews\":{},\"textures\":{}}";
        return std::move(header);
    }

private:
    template<typename Append>
    void numbered(std::string_view prefix, std::size_t count, Append appendEntry) {
        bool first = true;
        kel::src::text::inTextOrder(count, [&](std::size_t i) {
            std::string& text = header.end();
            if (!first) text += ',';
            first = false;
            appendId(text, prefix, i);
            text += ':';
            appendEntry(text, i);
        });
    }

    template<typename Append>
    void keyed(const std::vector<std::string_view>& ids, Append appendEntry) {
        std::vector<std::size_t> order(ids.size());
        std::iota(order.begin(), order.end(), std::size_t(0));
        std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return ids[a] < ids[b]; });
        bool first = true;
        for (const std::size_t i : order) {
            std::string& text = header.end();
            if (!first) text += ',';
            first = false;
            appendJsonString(text, ids[i]);
            text += ':';
            appendEntry(text, i);
        }
    }

    static void refuse(const std::string& whose, const std::string& fault) {
        if (!fault.empty()) throw std::overflow_error(whose + ": " + fault);
    }

    void attributeView(std::string& text, std::size_t number) const {
        constexpr const char* ENDS[MAX_COMPONENTS] = {",\"type\":\"SCALAR\"}", ",\"type\":\"VEC2\"}",
                                                      ",\"type\":\"VEC3\"}", ",\"type\":\"VEC4\"}"};
        constexpr const char* NEUTRAL[MAX_COMPONENTS] = {
            ",\"decodeOffset\":[0],\"decodeScale\":[1]", ",\"decodeOffset\":[0,0],\"decodeScale\":[1,1]",
            ",\"decodeOffset\":[0,0,0],\"decodeScale\":[1,1,1]",
            ",\"decodeOffset\":[0,0,0,0],\"decodeScale\":[1,1,1,1]"};
        const AttributeEntry& view = document.attributeViews[number];
        text += "{\"bufferView\":";
        appendId(text, "bufferView", view.bufferView);
        appendMember(text, ",\"byteOffset\":", static_cast<double>(view.byteOffset));
        appendMember(text, ",\"byteStride\":", static_cast<double>(view.byteStride));
        appendMember(text, ",\"componentType\":", view.type);
        appendMember(text, ",\"count\":", static_cast<double>(view.count));
        if (view.hasDecode) {
            const std::string whose = "Attribute view " + std::to_string(number) + ", of no mesh";
            refuse(whose, faultOf("decodeOffset", view.decodeOffset, view.components));
            refuse(whose, faultOf("decodeScale", view.decodeScale, view.components));
            text += ',';
            appendField(text, "decodeOffset", view.decodeOffset, view.components);
            text += ',';
            appendField(text, "decodeScale", view.decodeScale, view.components);
        } else {
            text += NEUTRAL[view.components - 1];
        }
        text += ENDS[view.components - 1];
    }

    static void indexView(std::string& text, const IndexEntry& view) {
        text += "{\"bufferView\":";
        appendId(text, "bufferView", view.bufferView);
        text += ",\"byteOffset\":0";
        appendMember(text, ",\"componentType\":", view.type);
        appendMember(text, ",\"count\":", static_cast<double>(view.count));
        text += '}';
    }

    void meshes() {
        const auto append = [&](std::string& text, std::size_t i) {
            const MeshEntry& entry = document.meshes[i];
            text += document.meshTexts.at(entry.head);
            appendJsonString(text, entry.material == NO_MATERIAL ? "" : materialIds[entry.material]);
            text += document.meshTexts.at(entry.tail);
        };
        // The usual names are distinct, and their order is known.
        if (areNumbered(document.meshes)) {
            const std::string& first = document.meshes.front().name;
            std::string prefix;
            appendJsonString(prefix, std::string_view(first).substr(0, first.size() - 1));
            numbered(std::string_view(prefix).substr(1, prefix.size() - 2), document.meshes.size(), append);
            return;
        }
        DistinctIds names(document.meshes.size());
        std::vector<std::string_view> ids;
        ids.reserve(document.meshes.size());
        for (const MeshEntry& entry : document.meshes)
            ids.push_back(names.claim(entry.name));
        keyed(ids, append);
    }

    static std::string materialText(const Material& material) {
        std::string text = "{\"instanceTechnique\":{";
        appendMember(text, "\"technique\":", material.technique->getId());
        text += ",\"values\":{";
        bool first = true;
        for (const auto& [name, values] : material.values) {
            if (!first) text += ',';
            first = false;
            refuse("Material \"" + material.name + "\"", faultOf(name, values.data(), values.size()));
            // Arrays even for a scalar: readers tell a material's values from a technique's defaults by it.
            appendField(text, name, values.data(), values.size());
        }
        text += "}}}";
        return text;
    }

    static void parameters(std::string& text, const Technique& technique) {
        text += "{\"parameters\":{";
        bool first = true;
        for (const auto& [name, values] : technique.getParameters()) {
            if (!first) text += ',';
            first = false;
            refuse("Technique \"" + technique.getId() + "\"", faultOf(name, values.data(), values.size()));
            appendJsonString(text, name);
            text += ":{";
            if (values.size() == 1) {
                appendMember(text, "\"value\":", values[0]);
            } else {
                appendField(text, "value", values.data(), values.size());
            }
            text += '}';
        }
        text += "}}";
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
    sink.appendUint32(23);
    sink.appendUint32(42);
    sink.appendUint32(header.size());
    for (const std::string& block : header.all())
        sink.append(std::string_view(block));
    for (const Chunk& chunk : document->chunks) {
        sink.append(std::string_view(reinterpret_cast<const char*>(chunk.bytes.get()), chunk.byteLength));
    }
    sink.flush();
}

} // namespace src
