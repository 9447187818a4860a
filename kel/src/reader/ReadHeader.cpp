#include <kel/src/format/ElementTypes.h>
#include <kel/src/reader/HeaderWalk_p.h>

#include <algorithm>
#include <string>

namespace kel::src::detail {

namespace {

namespace key = format::key;
namespace section = format::section;

/// Walks the sections of a header into tables.
class HeaderReader : private HeaderWalk {
public:
    HeaderReader(std::string_view text, const ReadLimits& limits, FindingSink& sink, HeaderTables& tables)
        : HeaderWalk(text, limits, sink, tables) {}

    void read() {
        constexpr SrcCode NEEDED = SrcCode::MISSING_SECTION, CUSTOMARY = SrcCode::MISSING_OPTIONAL_SECTION;
        std::string_view none; // there are no textures in this format yet
        takeObjectAnd([&] { in.expectEnd(); },
                      required(section::ACCESSORS, NEEDED, [&] { return accessors(); }),
                      required(section::BUFFER_CHUNKS, NEEDED, [&] { return chunks(); }),
                      required(section::BUFFER_VIEWS, NEEDED, [&] { return bufferViews(); }),
                      required(section::MESHES, NEEDED, [&] { return meshes(); }),
                      required(section::MATERIALS, CUSTOMARY, [&] { return materials(); }),
                      required(section::META, CUSTOMARY, [&] { return takeMetadata(tables.metadata); }),
                      required(section::TECHNIQUES, CUSTOMARY, [&] { return techniques(); }),
                      required(section::TEXTURE_VIEWS, CUSTOMARY, [&] { return takeObjectText(none); }),
                      required(section::TEXTURES, CUSTOMARY, [&] { return takeObjectText(none); }));
        in.expectEnd(); // also where the text is no object
        resolveReferences(tables, references, sink);
    }

private:
    // ---- Sections ---------------------------------------------------------------------------------------

    bool accessors() {
        tables.attributeViews.clear();
        tables.indexViews.clear();
        references.hasAttributeViews = references.hasIndexViews = false;
        const auto attributeViews = [&] {
            references.attributeBuffers.clear();
            references.hasAttributeViews = true;
            return takeEntries(tables.attributeViews, tables.badAttributeViews,
                               [&](SrcAttributeView& view) { return attributeView(view); });
        };
        const auto indexViews = [&] {
            references.indexBuffers.clear();
            references.hasIndexViews = true;
            return takeEntries(tables.indexViews, tables.badIndexViews,
                               [&](SrcIndexView& view) { return indexView(view); });
        };
        return takeObject(required(section::ATTRIBUTE_VIEWS, SrcCode::MISSING_SECTION, attributeViews),
                          required(section::INDEX_VIEWS, SrcCode::MISSING_SECTION, indexViews));
    }

    bool chunks() {
        references.hasChunks = true;
        return takeEntries(tables.chunks, tables.badChunks, [&](SrcChunk& chunk) {
            return takeObject(required(key::BYTE_LENGTH, chunk.byteLength),
                              required(key::BYTE_OFFSET, chunk.byteOffset));
        });
    }

    bool bufferViews() {
        tables.viewChunks.clear();
        references.chunks.clear();
        references.hasBufferViews = true;
        return takeEntries(tables.bufferViews, tables.badBufferViews, [&](SrcBufferView& view) {
            return takeObject(required(key::BYTE_LENGTH, view.byteLength),
                              required(key::CHUNKS, [&] { return takeChunkNames(view); }));
        });
    }

    bool meshes() {
        tables.attributes.clear();
        references.attributeViews.clear();
        references.meshes.clear();
        return takeEntries(tables.meshes, tables.badMeshes, [&](SrcMesh& entry) { return mesh(entry); });
    }

    bool materials() {
        references.techniques.clear();
        return takeEntries(tables.materials, never, [&](SrcMaterial& entry) { return material(entry); });
    }

    bool techniques() {
        return takeEntries(tables.techniques, never, [&](SrcTechnique& entry) {
            return takeObject(required(key::PARAMETERS, [&] { return takeObjectText(entry.parameters); }));
        });
    }

    /// Walks a section keyed by ID: `take(entry)` consumes one and says whether it can be used.
    template<typename Entry, typename Take>
    bool takeEntries(std::vector<Entry>& target, UnusableEntries& bad, Take&& take) {
        target.clear(); // a section that stands again replaces the first
        bad.marks.clear();
        if (!expectObject()) return false;
        in.object([&](std::string_view raw) {
            chargeEntry(target.size(), 2 * sizeof(Entry) + 2 * sizeof(MeshReferences) +
                                           IdTable::memoryFor(1) - IdTable::memoryFor(0));
            Entry added;
            added.id = meaning(raw);
            const Step step(*this, added.id);
            const bool good = take(added);
            target.push_back(added);
            if (sink.wantsAll()) bad.marks.push_back(!good);
        });
        return true;
    }

    // ---- Views ------------------------------------------------------------------------------------------

    bool takeChunkNames(SrcBufferView& view) {
        view.firstChunk = static_cast<std::uint32_t>(references.chunks.size());
        view.chunkCount = 0;
        if (!expect(in.peek() == '[', "a list of texts")) return false;
        bool good = true;
        in.list([&] {
            chargeEntry(references.chunks.size(), sizeof(std::string_view) * 2 + sizeof(std::uint32_t));
            std::string_view name;
            const bool isName = take(name);
            good &= isName;
            if (!isName) return;
            references.chunks.push_back(name);
            ++view.chunkCount;
        });
        return good;
    }

    bool indexView(SrcIndexView& view) {
        std::string_view& buffer = references.indexBuffers.emplace_back();
        return takeObject(required(key::BUFFER_VIEW, buffer), required(key::BYTE_OFFSET, view.byteOffset),
                          required(key::COMPONENT_TYPE, [&] { return takeType(view.componentType, true); }),
                          required(key::COUNT, view.count));
    }

    bool takeType(kel::mesh::ComponentType& type, bool forIndices) {
        const std::size_t position = in.position();
        std::uint64_t number = 0;
        if (!take(number)) return false;
        const format::ComponentTypeRow* row = format::componentType(number);
        if (!row || (forIndices && !row->forIndices))
            return reportAt(SrcCode::BAD_COMPONENT_TYPE, position, "found " + std::to_string(number));
        type = static_cast<kel::mesh::ComponentType>(number);
        return true;
    }

    bool attributeView(SrcAttributeView& view) {
        const std::size_t position = in.position();
        std::string_view& buffer = references.attributeBuffers.emplace_back();
        std::size_t offsets = 0, scales = 0;
        auto offset = optional(key::DECODE_OFFSET, [&] { return takeNumbers(view.decodeOffset, offsets); });
        auto scale = optional(key::DECODE_SCALE, [&] { return takeNumbers(view.decodeScale, scales); });
        bool good =
            takeObject(required(key::BUFFER_VIEW, buffer), required(key::BYTE_OFFSET, view.byteOffset),
                       required(key::BYTE_STRIDE, view.byteStride), required(key::COUNT, view.count),
                       required(key::COMPONENT_TYPE, [&] { return takeType(view.componentType, false); }),
                       offset, scale, required(key::TYPE, [&] { return takeElementType(view.components); }));
        if (!good) return false;
        good &= !offset.seen || decodeLengthIsGood(view, position, offset.key, offsets);
        good &= !scale.seen || decodeLengthIsGood(view, position, scale.key, scales);
        return good && decodeValuesAreGood(view, position) && elementLayout(view, position);
    }

    bool takeElementType(std::uint8_t& components) {
        const std::size_t position = in.position();
        std::string_view type;
        if (!take(type)) return false;
        const auto found =
            std::find(std::begin(format::ELEMENT_TYPES), std::end(format::ELEMENT_TYPES), type);
        if (found == std::end(format::ELEMENT_TYPES))
            return reportAt(SrcCode::BAD_TYPE, position, "found " + quoted(type));
        components = static_cast<std::uint8_t>(found - std::begin(format::ELEMENT_TYPES) + 1);
        return true;
    }

    bool decodeLengthIsGood(const SrcAttributeView& view, std::size_t position, std::string_view key,
                            std::size_t length) {
        if (length == view.components) return true;
        const Step step(*this, key);
        return reportAt(SrcCode::WRONG_LENGTH, position,
                        std::to_string(length) + " numbers for " + std::to_string(view.components) +
                            " components");
    }

    bool decodeValuesAreGood(SrcAttributeView& view, std::size_t position) {
        for (std::size_t c = 0; c < view.components; ++c) {
            if (view.decodeScale[c] == 0.0) {
                const Step step(*this, key::DECODE_SCALE);
                return reportAt(SrcCode::ZERO_DECODE_SCALE, position, "component " + std::to_string(c));
            }
            if (view.decodeScale[c] != 1.0 || view.decodeOffset[c] != 0.0) view.decoded = true;
        }
        return true;
    }

    /// Settles the stride and the bytes of a component.
    bool elementLayout(SrcAttributeView& view, std::size_t position) {
        const std::uint64_t components = view.components;
        view.componentBytes =
            static_cast<std::uint8_t>(kel::mesh::getComponentSizeInBytes(view.componentType));
        if (view.byteStride == 0) view.byteStride = components * view.componentBytes;
        if (view.componentType == kel::mesh::UNSIGNED_INT && view.byteStride < components * 4)
            view.componentBytes = format::WIDE_CODE_BYTES;
        const std::uint64_t element = components * view.componentBytes;
        if (view.byteStride >= element) return true;
        const Step step(*this, key::BYTE_STRIDE);
        return reportAt(SrcCode::BAD_STRIDE, position,
                        std::to_string(view.byteStride) + " for elements of " + std::to_string(element) +
                            " bytes");
    }

    // ---- Meshes -----------------------------------------------------------------------------------------

    bool mesh(SrcMesh& mesh) {
        const std::size_t position = in.position();
        bool hasCenter = false, hasSize = false;
        MeshReferences& names = references.meshes.emplace_back();
        mesh.firstAttribute = static_cast<std::uint32_t>(tables.attributes.size());
        auto center = optional(key::BBOX_CENTER, [&] { return hasCenter = takeVector(mesh.boundsCenter); });
        auto size = optional(key::BBOX_SIZE, [&] { return hasSize = takeVector(mesh.boundsSize); });
        const auto checkBounds = [&] {
            if (sink.wantsAll() && center.seen != size.seen)
                reportAt(SrcCode::BOUNDS_INCOMPLETE, position, {});
        };
        const bool good = takeObjectAnd(
            checkBounds, required(key::ATTRIBUTES, [&] { return takeAttributes(mesh); }), center, size,
            optional(key::INDICES, names.indices), optional(key::MATERIAL, names.material),
            optional(key::META, [&] { return takeMetadata(mesh.metadata); }),
            required(key::PRIMITIVE, [&] { return takePrimitive(mesh.primitive); }));
        mesh.hasBounds = hasCenter && hasSize;
        return good;
    }

    bool takeVector(std::array<double, 3>& vector) {
        const std::size_t position = in.position();
        std::size_t count = 0;
        if (!takeNumbers(vector, count)) return false;
        if (count == 3) return true;
        return reportAt(SrcCode::WRONG_LENGTH, position, std::to_string(count) + " numbers for 3 axes");
    }

    bool takePrimitive(kel::mesh::PrimitiveType& primitive) {
        const std::size_t position = in.position();
        std::uint64_t number = 0;
        if (!take(number)) return false;
        if (number > kel::mesh::TRIANGLE_FAN)
            return reportAt(SrcCode::BAD_PRIMITIVE, position, "found " + std::to_string(number));
        primitive = static_cast<kel::mesh::PrimitiveType>(number);
        return true;
    }

    bool takeAttributes(SrcMesh& mesh) {
        const std::size_t first = tables.attributes.size();
        mesh.firstAttribute = static_cast<std::uint32_t>(first);
        mesh.attributeCount = 0;
        if (!expectObject()) return false;
        bool ascending = true, good = true;
        in.object([&](std::string_view raw) {
            chargeEntry(tables.attributes.size(), 2 * sizeof(SrcAttribute) + 2 * sizeof(std::string_view));
            SrcAttribute attribute;
            attribute.name = meaning(raw);
            const Step step(*this, attribute.name);
            std::string_view view;
            if (!take(view)) {
                good = false;
                return;
            }
            if (tables.attributes.size() > first && !(tables.attributes.back().name < attribute.name))
                ascending = false;
            tables.attributes.push_back(attribute);
            references.attributeViews.push_back(view);
        });
        if (!ascending) keepLastOfEachName(first);
        mesh.attributeCount = static_cast<std::uint32_t>(tables.attributes.size() - first);
        return good;
    }

    void keepLastOfEachName(std::size_t first) {
        std::vector<std::pair<std::string_view, std::uint32_t>> names;
        for (std::size_t i = first; i < tables.attributes.size(); ++i)
            names.emplace_back(tables.attributes[i].name, static_cast<std::uint32_t>(i));
        std::sort(names.begin(), names.end());
        std::vector<std::uint32_t> shadowed;
        for (std::size_t i = 0; i + 1 < names.size(); ++i) {
            if (names[i].first != names[i + 1].first) continue;
            shadowed.push_back(names[i].second);
            const Step step(*this, names[i].first);
            if (sink.wantsAll()) report(SrcCode::DUPLICATE_KEY, {});
        }
        if (shadowed.empty()) return;
        std::sort(shadowed.begin(), shadowed.end());
        takeOut(tables.attributes, shadowed);
        takeOut(references.attributeViews, shadowed);
    }

    /// An object, or the one text that the public writer stores when the texts did not make an object.
    bool takeMetadata(std::string_view& text) {
        const char first = in.peek();
        if (!expect(first == '{' || first == '"', "an object")) return false;
        if (first == '"' && sink.wantsAll()) report(SrcCode::METADATA_NOT_OBJECT, {});
        text = in.skip();
        return true;
    }

    // ---- Materials and techniques -----------------------------------------------------------------------

    bool material(SrcMaterial& material) {
        const std::size_t position = in.position();
        auto technique = optional(key::TECHNIQUE, references.techniques.emplace_back());
        auto values = optional(key::VALUES, [&] { return takeObjectText(material.values); });
        const auto checkTechnique = [&] {
            if (!technique.seen && sink.wantsAll())
                reportAt(SrcCode::MATERIAL_WITHOUT_TECHNIQUE, position, {});
        };
        return takeObjectAnd(
            checkTechnique, optional(key::INSTANCE_TECHNIQUE, [&] { return takeObject(technique, values); }));
    }

    HeaderReferences references;
    UnusableEntries
        never; ///< of sections whose entries can all be used: a material without technique is drawn, too
};

} // namespace

bool readHeader(std::string_view text, const ReadLimits& limits, FindingSink& sink, HeaderTables& tables) {
    try {
        if (JsonCursor::memoryFor(text.size()) > limits.memoryBytes) {
            sink.report(SrcCode::LIMIT_EXCEEDED, HEADER_BYTES_AT, {},
                        "memoryBytes is " + std::to_string(limits.memoryBytes));
            return false;
        }
        HeaderReader(text, limits, sink, tables).read();
        return true;
    } catch (const JsonSyntaxError& fault) {
        sink.report(SrcCode::JSON_SYNTAX, format::PREAMBLE_BYTES + fault.position, {}, fault.detail);
    } catch (const JsonTooDeep& fault) {
        sink.report(SrcCode::LIMIT_EXCEEDED, format::PREAMBLE_BYTES + fault.position, {},
                    "nested more than " + std::to_string(limits.depth) + " deep; that is the limit depth");
    } catch (const LimitReached&) {
    }
    return false;
}

} // namespace kel::src::detail
