#include <src/SrcWriter.h>

#include "Document_p.h"

#include <kel/src/json/JsonText.h>
#include <kel/src/json/StreamSink.h>
#include <kel/src/json/TextOrder.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <deque>
#include <numeric>
#include <stdexcept>
#include <string_view>

namespace src {

namespace {

using kel::src::detail::appendJsonString;
using kel::src::detail::appendMember;

/// The header's text. Blocks rather than one string, so that growing never copies what is there.
class HeaderText {
public:
    HeaderText() { addBlock(); }

    /// Where the next entry is appended; valid until the next call.
    std::string& end() {
        if (blocks.back().size() >= BLOCK_BYTES) addBlock();
        return blocks.back();
    }
    std::uint64_t size() const {
        return std::accumulate(
            blocks.begin(), blocks.end(), std::uint64_t(0),
            [](std::uint64_t sum, const std::string& block) { return sum + block.size(); });
    }
    const std::deque<std::string>& all() const { return blocks; }

private:
    static constexpr std::size_t BLOCK_BYTES = 256 * 1024;

    void addBlock() {
        blocks.emplace_back();
        blocks.back().reserve(BLOCK_BYTES + 4096);
    }

    std::deque<std::string> blocks;
};

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

class HeaderWriter {
public:
    explicit HeaderWriter(const Src& document)
        : document(document), meshNames(document.meshes.size()), materialNames(document.materials.size()) {}

    /// Keys in ascending byte order, on every level.
    HeaderText run() {
        nameMeshes();
        nameMaterials();
        header.end() += "{\"accessors\":{\"attributeViews\":{";
        numbered("attributeView", document.attributeViews.size(),
                 [&](std::string& text, std::size_t i) { attributeView(text, *document.attributeViews[i]); });
        header.end() += "},\"indexViews\":{";
        numbered("indexView", document.indexViews.size(),
                 [&](std::string& text, std::size_t i) { indexView(text, *document.indexViews[i]); });
        header.end() += "}},\"bufferChunks\":{";
        std::vector<std::uint64_t> offsets(document.chunks.size());
        std::uint64_t offset = 0;
        for (std::size_t i = 0; i < offsets.size(); ++i) {
            offsets[i] = offset;
            offset += document.chunks[i].byteLength;
        }
        numbered("chunk", document.chunks.size(), [&](std::string& text, std::size_t i) {
            appendMember(text, "{\"byteLength\":", static_cast<double>(document.chunks[i].byteLength));
            appendMember(text, ",\"byteOffset\":", static_cast<double>(offsets[i]));
            text += '}';
        });
        header.end() += "},\"bufferViews\":{";
        numbered("bufferView", document.bufferViews.size(), [&](std::string& text, std::size_t i) {
            appendMember(text, "{\"byteLength\":", static_cast<double>(document.bufferViews[i]->byteLength));
            text += ",\"chunks\":[";
            appendId(text, "chunk", i);
            text += "]}";
        });
        header.end() += "},\"materials\":{";
        keyed(materialIds, [&](std::string& text, std::size_t i) { text += materialTexts[i]; });
        header.end() += "},\"meshes\":{";
        keyed(meshIds, [&](std::string& text, std::size_t i) { mesh(text, document.meshes[i]); });
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
    static void appendId(std::string& text, std::string_view prefix, std::size_t number) {
        char digits[24];
        const auto end = std::to_chars(digits, digits + sizeof digits, number);
        text += '"';
        text += prefix;
        text.append(digits, end.ptr);
        text += '"';
    }

    template<typename Append>
    void numbered(std::string_view prefix, std::size_t count, Append appendEntry) {
        bool first = true;
        kel::src::detail::inTextOrder(count, [&](std::size_t i) {
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

    /// Appends numbers of one field; `place` says whose they are when one cannot be written.
    template<typename Place>
    static void appendNumbers(std::string& text, std::string_view field, const double* values,
                              std::size_t count, Place place) {
        for (std::size_t i = 0; i < count; ++i) {
            if (!std::isfinite(values[i])) {
                throw std::overflow_error(place() + ": " + std::string(field) + "[" + std::to_string(i) +
                                          "] is " + (std::isnan(values[i]) ? "not a number" : "infinite") +
                                          ", which no file can hold. Make the numbers it comes from finite.");
            }
        }
        appendJsonString(text, field);
        kel::src::detail::appendArrayMember(text, ":", values, count);
    }

    std::string userOf(const AttributeView& view) const {
        for (const MeshEntry& entry : document.meshes) {
            for (const auto& [name, used] : entry.mesh->attributes) {
                if (used.get() == &view) {
                    return "Mesh \"" + entry.mesh->name + "\", attribute \"" + name + "\"";
                }
            }
        }
        return "Attribute view " + std::to_string(view.number) + ", of no mesh";
    }

    void attributeView(std::string& text, const AttributeView& view) const {
        constexpr const char* TYPES[MAX_COMPONENTS] = {"SCALAR", "VEC2", "VEC3", "VEC4"};
        text += "{\"bufferView\":";
        appendId(text, "bufferView", view.bufferView);
        appendMember(text, ",\"byteOffset\":", static_cast<double>(view.byteOffset));
        appendMember(text, ",\"byteStride\":", static_cast<double>(view.byteStride));
        appendMember(text, ",\"componentType\":", view.type);
        appendMember(text, ",\"count\":", static_cast<double>(view.count));
        const auto place = [&] { return userOf(view); };
        text += ',';
        appendNumbers(text, "decodeOffset", view.decodeOffset, view.components, place);
        text += ',';
        appendNumbers(text, "decodeScale", view.decodeScale, view.components, place);
        appendMember(text, ",\"type\":", TYPES[view.components - 1]);
        text += '}';
    }

    static void indexView(std::string& text, const IndexView& view) {
        text += "{\"bufferView\":";
        appendId(text, "bufferView", view.bufferView);
        text += ",\"byteOffset\":0";
        appendMember(text, ",\"componentType\":", view.type);
        appendMember(text, ",\"count\":", static_cast<double>(view.count));
        text += '}';
    }

    void mesh(std::string& text, const MeshEntry& entry) const {
        const Mesh& mesh = *entry.mesh;
        text += "{\"attributes\":{";
        bool first = true;
        for (const auto& [name, view] : mesh.attributes) {
            if (!first) text += ',';
            first = false;
            appendJsonString(text, name);
            text += ':';
            appendId(text, "attributeView", view->number);
        }
        text += "},";
        if (mesh.hasBounds) {
            const auto place = [&] { return "Mesh \"" + mesh.name + "\", bounds of its positions"; };
            appendNumbers(text, "bboxCenter", mesh.bboxCenter, 3, place);
            text += ',';
            appendNumbers(text, "bboxSize", mesh.bboxSize, 3, place);
            text += ',';
        }
        text += "\"indices\":";
        if (mesh.indices) {
            appendId(text, "indexView", mesh.indices->number);
        } else {
            text += "\"\"";
        }
        appendMember(text, ",\"material\":",
                     entry.material == MeshEntry::NO_MATERIAL ? "" : materialIds[entry.material]);
        if (!mesh.meta.empty()) {
            text += ",\"meta\":";
            text += mesh.meta;
        }
        appendMember(text, ",\"primitive\":", mesh.primitive);
        text += '}';
    }

    static std::string materialText(const Material& material) {
        std::string text = "{\"instanceTechnique\":{";
        appendMember(text, "\"technique\":", material.technique->getId());
        text += ",\"values\":{";
        bool first = true;
        for (const auto& [name, values] : material.values) {
            if (!first) text += ',';
            first = false;
            // Arrays even for a scalar: readers tell a material's values from a technique's defaults by it.
            appendNumbers(text, name, values.data(), values.size(),
                          [&] { return "Material \"" + material.name + "\""; });
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
            appendJsonString(text, name);
            const auto place = [&, &parameter = name] {
                return "Technique \"" + technique.getId() + "\", parameter \"" + parameter + "\"";
            };
            text += ":{";
            if (values.size() == 1 && std::isfinite(values[0])) {
                appendMember(text, "\"value\":", values[0]);
            } else {
                appendNumbers(text, "value", values.data(), values.size(), place);
            }
            text += '}';
        }
        text += "}}";
    }

    void nameMeshes() {
        meshIds.reserve(document.meshes.size());
        for (const MeshEntry& entry : document.meshes)
            meshIds.push_back(meshNames.claim(entry.mesh->name));
    }

    /// By first use and then by content, so that the order in which a caller's set of pointers happened to
    /// hand in namesakes does not show.
    void nameMaterials() {
        const std::size_t count = document.materials.size();
        for (const auto& material : document.materials)
            materialTexts.push_back(materialText(*material));
        std::vector<std::size_t> firstUse(count, document.meshes.size());
        for (std::size_t i = document.meshes.size(); i-- > 0;) {
            if (document.meshes[i].material != MeshEntry::NO_MATERIAL)
                firstUse[document.meshes[i].material] = i;
        }
        std::vector<std::size_t> order(count);
        std::iota(order.begin(), order.end(), std::size_t(0));
        std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
            return firstUse[a] != firstUse[b] ? firstUse[a] < firstUse[b]
                                              : materialTexts[a] < materialTexts[b];
        });
        materialIds.resize(count);
        for (const std::size_t i : order)
            materialIds[i] = materialNames.claim(document.materials[i]->name);
    }

    const Src& document;
    HeaderText header;
    DistinctIds meshNames, materialNames;
    std::vector<std::string_view> meshIds, materialIds;
    std::vector<std::string> materialTexts;
};

} // namespace

std::shared_ptr<SrcWriter> SrcWriter::create() {
    return std::make_shared<SrcWriter>();
}

void SrcWriter::write(std::shared_ptr<Src> document, std::ostream& out) {
    if (!document) throw std::invalid_argument("There is no document to write.");
    const HeaderText header = HeaderWriter(*document).run();
    if (header.size() > headerLimit) {
        throw std::length_error("The header would have " + std::to_string(header.size()) +
                                " bytes, more than the " + std::to_string(headerLimit) +
                                " that the file can state. Write the scene in several files.");
    }

    kel::src::detail::StreamSink sink(out);
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
