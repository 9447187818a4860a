#include <kel/src/reader/ReadHeader_p.h>

#include <kel/src/format/ElementTypes.h>
#include <kel/src/reader/HeaderWalk_p.h>
#include <kel/src/reader/Preamble_p.h>
#include <kel/src/reader/References_p.h>

#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

namespace kel::src::detail {

namespace {

/// Walks the sections of a header into tables.
class HeaderReader : private HeaderWalk {
public:
    HeaderReader(std::string_view text, const ReadLimits& limits, FindingSink& sink, HeaderTables& tables)
        : HeaderWalk(text, limits, sink, tables) {}

    void read() {
        KeySet seen;
        const bool isObject = takeEntry<RootKeys>(seen, [&](RootKeys::Key section) { walkSection(section); });
        in.expectEnd();
        if (isObject) {
            require<RootKeys>(seen, RootKeys::REQUIRED, SrcCode::MISSING_SECTION);
            references.hasChunks = seen.has(RootKeys::BUFFER_CHUNKS);
            references.hasBufferViews = seen.has(RootKeys::BUFFER_VIEWS);
            if (sink.wantsAll())
                require<RootKeys>(seen, RootKeys::CUSTOMARY, SrcCode::MISSING_OPTIONAL_SECTION);
        }
        resolveReferences(tables, references, sink);
    }

private:
    // ---- Sections ---------------------------------------------------------------------------------------

    void walkSection(RootKeys::Key section) {
        UnusableEntries never; // a material without technique is drawn, too
        switch (section) {
        case RootKeys::ACCESSORS:
            walkAccessors();
            break;
        case RootKeys::BUFFER_CHUNKS:
            walkEntries(tables.chunks, tables.badChunks, [&](SrcChunk& entry) { return chunk(entry); });
            break;
        case RootKeys::BUFFER_VIEWS:
            tables.viewChunks.clear();
            references.chunks.clear();
            walkEntries(tables.bufferViews, tables.badBufferViews,
                        [&](SrcBufferView& view) { return bufferView(view); });
            break;
        case RootKeys::MESHES:
            tables.attributes.clear();
            references.attributeViews.clear();
            references.meshes.clear();
            walkEntries(tables.meshes, tables.badMeshes, [&](SrcMesh& entry) { return mesh(entry); });
            break;
        case RootKeys::MATERIALS:
            references.techniques.clear();
            walkEntries(tables.materials, never, [&](SrcMaterial& entry) { return material(entry); });
            break;
        case RootKeys::META:
            takeMetadata(tables.metadata);
            break;
        case RootKeys::TECHNIQUES:
            walkEntries(tables.techniques, never, [&](SrcTechnique& entry) { return technique(entry); });
            break;
        case RootKeys::TEXTURE_VIEWS:
        case RootKeys::TEXTURES: { // there are none in this format yet
            std::string_view text;
            takeObject(text);
        }
        }
    }

    void walkAccessors() {
        KeySet seen;
        tables.attributeViews.clear();
        tables.indexViews.clear();
        const bool isObject = takeEntry<AccessorKeys>(seen, [&](AccessorKeys::Key kind) {
            switch (kind) {
            case AccessorKeys::ATTRIBUTE_VIEWS:
                references.attributeBuffers.clear();
                walkEntries(tables.attributeViews, tables.badAttributeViews,
                            [&](SrcAttributeView& view) { return attributeView(view); });
                break;
            case AccessorKeys::INDEX_VIEWS:
                references.indexBuffers.clear();
                walkEntries(tables.indexViews, tables.badIndexViews,
                            [&](SrcIndexView& view) { return indexView(view); });
            }
        });
        if (isObject) require<AccessorKeys>(seen, AccessorKeys::REQUIRED, SrcCode::MISSING_SECTION);
        references.hasAttributeViews = seen.has(AccessorKeys::ATTRIBUTE_VIEWS);
        references.hasIndexViews = seen.has(AccessorKeys::INDEX_VIEWS);
    }

    /// Walks a section keyed by ID: `take(entry)` consumes one and says whether it can be used.
    template<typename Entry, typename Take>
    void walkEntries(std::vector<Entry>& target, UnusableEntries& bad, Take&& take) {
        target.clear(); // a section that stands again replaces the first
        bad.marks.clear();
        if (!expect(in.peek() == '{', "an object")) return;
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
    }

    // ---- Chunks and buffer views ------------------------------------------------------------------------

    bool chunk(SrcChunk& chunk) {
        KeySet seen;
        bool good = true;
        const bool isObject = takeEntry<ChunkKeys>(seen, [&](ChunkKeys::Key key) {
            switch (key) {
            case ChunkKeys::BYTE_LENGTH:
                good &= takeCount(chunk.byteLength);
                break;
            case ChunkKeys::BYTE_OFFSET:
                good &= takeCount(chunk.byteOffset);
            }
        });
        return isObject && require<ChunkKeys>(seen, ChunkKeys::REQUIRED) && good;
    }

    bool bufferView(SrcBufferView& view) {
        KeySet seen;
        bool good = true;
        const bool isObject = takeEntry<BufferViewKeys>(seen, [&](BufferViewKeys::Key key) {
            switch (key) {
            case BufferViewKeys::BYTE_LENGTH:
                good &= takeCount(view.byteLength);
                break;
            case BufferViewKeys::CHUNKS:
                good &= takeChunkNames(view);
            }
        });
        return isObject && require<BufferViewKeys>(seen, BufferViewKeys::REQUIRED) && good;
    }

    bool takeChunkNames(SrcBufferView& view) {
        view.firstChunk = static_cast<std::uint32_t>(references.chunks.size());
        view.chunkCount = 0;
        if (!expect(in.peek() == '[', "a list of texts")) return false;
        bool good = true;
        in.list([&] {
            chargeEntry(references.chunks.size(), sizeof(std::string_view) * 2 + sizeof(std::uint32_t));
            std::string_view name;
            if (takeText(name)) {
                references.chunks.push_back(name);
                ++view.chunkCount;
            } else {
                good = false;
            }
        });
        return good;
    }

    // ---- Views ------------------------------------------------------------------------------------------

    bool indexView(SrcIndexView& view) {
        KeySet seen;
        bool good = true;
        std::string_view buffer;
        const bool isObject = takeEntry<IndexViewKeys>(seen, [&](IndexViewKeys::Key key) {
            switch (key) {
            case IndexViewKeys::BUFFER_VIEW:
                good &= takeText(buffer);
                break;
            case IndexViewKeys::BYTE_OFFSET:
                good &= takeCount(view.byteOffset);
                break;
            case IndexViewKeys::COMPONENT_TYPE:
                good &= takeComponentType(view.componentType, true);
                break;
            case IndexViewKeys::COUNT:
                good &= takeCount(view.count);
            }
        });
        references.indexBuffers.push_back(buffer);
        return isObject && require<IndexViewKeys>(seen, IndexViewKeys::REQUIRED) && good;
    }

    bool takeComponentType(kel::mesh::ComponentType& type, bool forIndices) {
        const std::size_t position = in.position();
        std::uint64_t number = 0;
        if (!takeCount(number)) return false;
        const format::ComponentTypeRow* row = format::componentType(number);
        if (!row || (forIndices && !row->forIndices)) {
            reportAt(SrcCode::BAD_COMPONENT_TYPE, position, "found " + std::to_string(number));
            return false;
        }
        type = static_cast<kel::mesh::ComponentType>(number);
        return true;
    }

    bool attributeView(SrcAttributeView& view) {
        const std::size_t position = in.position();
        KeySet seen;
        bool good = true;
        std::string_view buffer;
        std::size_t offsets = 0, scales = 0;
        const bool isObject = takeEntry<AttributeViewKeys>(seen, [&](AttributeViewKeys::Key key) {
            switch (key) {
            case AttributeViewKeys::BUFFER_VIEW:
                good &= takeText(buffer);
                break;
            case AttributeViewKeys::BYTE_OFFSET:
                good &= takeCount(view.byteOffset);
                break;
            case AttributeViewKeys::BYTE_STRIDE:
                good &= takeCount(view.byteStride);
                break;
            case AttributeViewKeys::COUNT:
                good &= takeCount(view.count);
                break;
            case AttributeViewKeys::COMPONENT_TYPE:
                good &= takeComponentType(view.componentType, false);
                break;
            case AttributeViewKeys::DECODE_OFFSET:
                good &= takeNumbers(view.decodeOffset, offsets);
                break;
            case AttributeViewKeys::DECODE_SCALE:
                good &= takeNumbers(view.decodeScale, scales);
                break;
            case AttributeViewKeys::TYPE:
                good &= takeElementType(view.components);
            }
        });
        references.attributeBuffers.push_back(buffer);
        if (!isObject || !require<AttributeViewKeys>(seen, AttributeViewKeys::REQUIRED) || !good)
            return false;
        good &= decodeLengthIsGood(view, position, seen, AttributeViewKeys::DECODE_OFFSET, offsets);
        good &= decodeLengthIsGood(view, position, seen, AttributeViewKeys::DECODE_SCALE, scales);
        return good && decodeValuesAreGood(view, position) && elementLayout(view, position);
    }

    bool takeElementType(std::uint8_t& components) {
        const std::size_t position = in.position();
        std::string_view type;
        if (!takeText(type)) return false;
        const auto found =
            std::find(std::begin(format::ELEMENT_TYPES), std::end(format::ELEMENT_TYPES), type);
        if (found == std::end(format::ELEMENT_TYPES)) {
            reportAt(SrcCode::BAD_TYPE, position, "found " + quoted(type));
            return false;
        }
        components = static_cast<std::uint8_t>(found - std::begin(format::ELEMENT_TYPES) + 1);
        return true;
    }

    bool decodeLengthIsGood(const SrcAttributeView& view, std::size_t position, KeySet seen,
                            AttributeViewKeys::Key key, std::size_t length) {
        if (!seen.has(key) || length == view.components) return true;
        const Step step(*this, AttributeViewKeys::NAMES[key]);
        reportAt(SrcCode::WRONG_LENGTH, position,
                 std::to_string(length) + " numbers for " + std::to_string(view.components) + " components");
        return false;
    }

    bool decodeValuesAreGood(SrcAttributeView& view, std::size_t position) {
        for (std::size_t c = 0; c < view.components; ++c) {
            if (view.decodeScale[c] == 0.0) {
                const Step step(*this, format::key::DECODE_SCALE);
                reportAt(SrcCode::ZERO_DECODE_SCALE, position, "component " + std::to_string(c));
                return false;
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
        const Step step(*this, format::key::BYTE_STRIDE);
        reportAt(SrcCode::BAD_STRIDE, position,
                 std::to_string(view.byteStride) + " for elements of " + std::to_string(element) + " bytes");
        return false;
    }

    // ---- Meshes -----------------------------------------------------------------------------------------

    bool mesh(SrcMesh& mesh) {
        const std::size_t position = in.position();
        KeySet seen;
        bool hasCenter = false, hasSize = false;
        MeshReferences names;
        mesh.firstAttribute = static_cast<std::uint32_t>(tables.attributes.size());
        bool good = true;
        const bool isObject = takeEntry<MeshKeys>(seen, [&](MeshKeys::Key key) {
            switch (key) {
            case MeshKeys::ATTRIBUTES:
                good &= takeAttributes(mesh);
                break;
            case MeshKeys::BBOX_CENTER:
                good &= hasCenter = takeVector(mesh.boundsCenter);
                break;
            case MeshKeys::BBOX_SIZE:
                good &= hasSize = takeVector(mesh.boundsSize);
                break;
            case MeshKeys::INDICES:
                good &= takeText(names.indices);
                break;
            case MeshKeys::MATERIAL:
                good &= takeText(names.material);
                break;
            case MeshKeys::META:
                good &= takeMetadata(mesh.metadata);
                break;
            case MeshKeys::PRIMITIVE:
                good &= takePrimitive(mesh.primitive);
            }
        });
        references.meshes.push_back(names);
        if (!isObject) return false;
        mesh.hasBounds = hasCenter && hasSize;
        if (sink.wantsAll() && seen.has(MeshKeys::BBOX_CENTER) != seen.has(MeshKeys::BBOX_SIZE))
            reportAt(SrcCode::BOUNDS_INCOMPLETE, position, {});
        return require<MeshKeys>(seen, MeshKeys::REQUIRED) && good;
    }

    bool takeVector(std::array<double, 3>& vector) {
        const std::size_t position = in.position();
        std::size_t count = 0;
        if (!takeNumbers(vector, count)) return false;
        if (count == 3) return true;
        reportAt(SrcCode::WRONG_LENGTH, position, std::to_string(count) + " numbers for 3 axes");
        return false;
    }

    bool takePrimitive(kel::mesh::PrimitiveType& primitive) {
        const std::size_t position = in.position();
        std::uint64_t number = 0;
        if (!takeCount(number)) return false;
        if (number > kel::mesh::TRIANGLE_FAN) {
            reportAt(SrcCode::BAD_PRIMITIVE, position, "found " + std::to_string(number));
            return false;
        }
        primitive = static_cast<kel::mesh::PrimitiveType>(number);
        return true;
    }

    bool takeAttributes(SrcMesh& mesh) {
        const std::size_t first = tables.attributes.size();
        mesh.firstAttribute = static_cast<std::uint32_t>(first);
        mesh.attributeCount = 0;
        if (!expect(in.peek() == '{', "an object")) return false;
        bool ascending = true, good = true;
        in.object([&](std::string_view raw) {
            chargeEntry(tables.attributes.size(), 2 * sizeof(SrcAttribute) + 2 * sizeof(std::string_view));
            SrcAttribute attribute;
            attribute.name = meaning(raw);
            const Step step(*this, attribute.name);
            std::string_view view;
            if (!takeText(view)) {
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
        std::vector<std::pair<std::string_view, std::size_t>> names;
        for (std::size_t i = first; i < tables.attributes.size(); ++i)
            names.emplace_back(tables.attributes[i].name, i);
        std::sort(names.begin(), names.end());
        std::vector<bool> shadowed(names.size(), false);
        for (std::size_t i = 0; i + 1 < names.size(); ++i) {
            if (names[i].first != names[i + 1].first) continue;
            shadowed[names[i].second - first] = true;
            const Step step(*this, names[i].first);
            if (sink.wantsAll()) report(SrcCode::DUPLICATE_KEY, {});
        }
        std::size_t kept = first;
        for (std::size_t i = first; i < tables.attributes.size(); ++i) {
            if (shadowed[i - first]) continue;
            tables.attributes[kept] = tables.attributes[i];
            references.attributeViews[kept] = references.attributeViews[i];
            ++kept;
        }
        tables.attributes.resize(kept);
        references.attributeViews.resize(kept);
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
        KeySet seen, instanceSeen;
        std::string_view technique;
        const bool isObject = takeEntry<MaterialKeys>(seen, [&](MaterialKeys::Key) {
            takeEntry<InstanceTechniqueKeys>(instanceSeen, [&](InstanceTechniqueKeys::Key key) {
                switch (key) {
                case InstanceTechniqueKeys::TECHNIQUE:
                    takeText(technique);
                    break;
                case InstanceTechniqueKeys::VALUES:
                    takeObject(material.values);
                }
            });
        });
        references.techniques.push_back(technique);
        if (isObject && !instanceSeen.has(InstanceTechniqueKeys::TECHNIQUE) && sink.wantsAll())
            reportAt(SrcCode::MATERIAL_WITHOUT_TECHNIQUE, position, {});
        return isObject;
    }

    bool technique(SrcTechnique& technique) {
        KeySet seen;
        const bool isObject =
            takeEntry<TechniqueKeys>(seen, [&](TechniqueKeys::Key) { takeObject(technique.parameters); });
        return isObject && require<TechniqueKeys>(seen, TechniqueKeys::REQUIRED);
    }

    HeaderReferences references;
};

} // namespace

bool readHeader(std::string_view text, const ReadLimits& limits, FindingSink& sink, HeaderTables& tables) {
    try {
        if (JsonCursor::memoryFor(text.size()) > limits.memoryBytes) {
            sink.report(SrcCode::LIMIT_EXCEEDED, Preamble::HEADER_BYTES_AT, {},
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
