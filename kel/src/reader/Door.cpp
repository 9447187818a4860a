#include <kel/src/reader/Door_p.h>

#include <kel/src/text/JsonPointer.h>
#include <kel/src/text/JsonValues.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <initializer_list>

namespace kel::src::detail {

namespace {

constexpr double TWO_TO_53 = 9007199254740992.0;
constexpr std::uint64_t SATURATED = std::uint64_t(1) << 53;

std::string quoted(std::string_view text) {
    constexpr std::size_t LONGEST = 80; // a message is for people
    std::string result = "\"";
    result += text.substr(0, LONGEST);
    result += text.size() > LONGEST ? "\"..." : "\"";
    return result;
}

const char* kindOf(char first) {
    switch (first) {
    case '{':
        return "an object";
    case '[':
        return "a list";
    case '"':
        return "a text";
    case 't':
    case 'f':
        return "true or false";
    case 'n':
        return "null";
    default:
        return "a number";
    }
}

constexpr std::uint32_t bit(int position) {
    return 1u << position;
}

/// References by name, kept until all sections are read.
struct MeshReferences {
    std::string_view indices;
    std::string_view material;
};

class Walker {
public:
    Walker(std::string_view text, const ReadLimits& limits, FindingSink& sink, HeaderTables& tables)
        : in(text, limits.depth), limits(limits), sink(sink), tables(tables) {
        tables.text = text;
        charge(HeaderText::memoryFor(text.size()));
    }

    void walk() {
        static constexpr std::string_view SECTIONS[] = {"accessors",  "bufferChunks", "bufferViews",
                                                        "meshes",     "materials",    "meta",
                                                        "techniques", "textureViews", "textures"};
        std::uint32_t seen = 0;
        const bool isObject = entry(SECTIONS, seen, [&](int section) { walkSection(section); });
        in.expectEnd();
        if (isObject) {
            require(SECTIONS, seen, bit(0) | bit(1) | bit(2) | bit(3), SrcCode::MISSING_SECTION);
            hasChunks = (seen & bit(1)) != 0;
            hasBufferViews = (seen & bit(2)) != 0;
            if (sink.wantsAll()) require(SECTIONS, seen, 0x1f0, SrcCode::MISSING_OPTIONAL_SECTION);
        }
        resolve();
    }

private:
    // ---- Places -----------------------------------------------------------------------------------------

    struct Step {
        Step(Walker& walker, std::string_view key) : walker(walker) { walker.path[walker.steps++] = key; }
        ~Step() { --walker.steps; }
        Step(const Step&) = delete;
        Step& operator=(const Step&) = delete;
        Walker& walker;
    };

    std::string here() const {
        return text::jsonPointer(std::vector<std::string_view>(path.begin(), path.begin() + steps));
    }
    void report(SrcCode code, std::string detail) { reportAt(code, in.position(), std::move(detail)); }
    void reportAt(SrcCode code, std::size_t position, std::string detail) {
        sink.report(code, Preamble::BYTES + position, here(), std::move(detail));
    }
    /// For findings after the walk: the place of a text that the header holds.
    void reportAt(SrcCode code, std::string_view text, std::initializer_list<std::string_view> keys,
                  std::string detail) {
        const bool inside =
            text.data() >= tables.text.data() && text.data() < tables.text.data() + tables.text.size();
        sink.report(code,
                    inside ? Preamble::BYTES + static_cast<std::uint64_t>(text.data() - tables.text.data())
                           : SrcError::NO_OFFSET,
                    text::jsonPointer(keys), std::move(detail));
    }
    [[noreturn]] void exceed(const std::string& what) {
        report(SrcCode::LIMIT_EXCEEDED, what);
        throw LimitReached();
    }
    void charge(std::uint64_t bytes) {
        if (bytes > limits.memoryBytes - charged)
            exceed("memoryBytes is " + std::to_string(limits.memoryBytes));
        charged += bytes;
    }

public:
    struct LimitReached {};

private:
    // ---- Values -----------------------------------------------------------------------------------------

    std::string_view meaning(std::string_view raw) {
        if (raw.size() > limits.stringBytes)
            exceed("a name of " + std::to_string(raw.size()) + " bytes; stringBytes is " +
                   std::to_string(limits.stringBytes));
        if (text::isPlain(raw)) return raw;
        charge(raw.size() + sizeof(std::string));
        tables.unescaped.emplace_back();
        text::appendUnescaped(tables.unescaped.back(), raw);
        return tables.unescaped.back();
    }

    bool expect(bool isRight, const char* what) {
        if (isRight) return true;
        const std::size_t position = in.position();
        const char first = in.peek();
        in.skip(); // first, since it may be no value at all
        reportAt(SrcCode::WRONG_TYPE, position, std::string("expected ") + what + ", found " + kindOf(first));
        return false;
    }
    bool numberIsNext() const { return in.peek() == '-' || (in.peek() >= '0' && in.peek() <= '9'); }

    bool takeText(std::string_view& text) {
        if (!expect(in.peek() == '"', "a text")) return false;
        text = meaning(in.rawString());
        return true;
    }

    bool takeCount(std::uint64_t& count) {
        if (!expect(numberIsNext(), "a number")) return false;
        const std::size_t position = in.position();
        const double value = in.number();
        if (!(value >= 0.0) || value >= TWO_TO_53 || std::floor(value) != value) {
            reportAt(SrcCode::BAD_NUMBER, position, "found " + std::to_string(value));
            return false;
        }
        count = static_cast<std::uint64_t>(value);
        return true;
    }

    /// Up to N numbers; `count` says how many there were, which may be more.
    template<std::size_t N>
    bool takeNumbers(std::array<double, N>& numbers, std::size_t& count) {
        if (!expect(in.peek() == '[', "a list of numbers")) return false;
        bool good = true;
        count = 0;
        in.list([&] {
            if (!expect(numberIsNext(), "a number")) {
                good = false;
                return;
            }
            const std::size_t position = in.position();
            const double value = in.number();
            if (!std::isfinite(value)) {
                reportAt(SrcCode::BAD_NUMBER, position, "too large for a number");
                good = false;
            }
            if (count < N) numbers[count] = value;
            ++count;
        });
        return good;
    }

    /// The text of an object.
    bool takeObject(std::string_view& text) {
        if (!expect(in.peek() == '{', "an object")) return false;
        text = in.skip();
        return true;
    }

    // ---- Objects ----------------------------------------------------------------------------------------

    /// Walks an object of known keys: `take(i)` consumes the value of names[i]. Unknown ones are passed over.
    template<std::size_t N, typename Take>
    bool entry(const std::string_view (&names)[N], std::uint32_t& seen, Take&& take) {
        if (!expect(in.peek() == '{', "an object")) return false;
        in.object([&](std::string_view raw) {
            const std::string_view key = meaning(raw);
            const Step step(*this, key);
            const auto found = std::find(std::begin(names), std::end(names), key);
            if (found == std::end(names)) {
                if (sink.wantsAll()) report(SrcCode::UNKNOWN_KEY, {});
                in.skip();
                return;
            }
            const int known = static_cast<int>(found - std::begin(names));
            if ((seen & bit(known)) && sink.wantsAll()) report(SrcCode::DUPLICATE_KEY, {});
            seen |= bit(known);
            take(known);
        });
        return true;
    }

    template<std::size_t N>
    bool require(const std::string_view (&names)[N], std::uint32_t seen, std::uint32_t required,
                 SrcCode code = SrcCode::MISSING_KEY) {
        if ((seen & required) == required) return true;
        for (std::size_t i = 0; i < N; ++i) {
            if (!(required & bit(static_cast<int>(i))) || (seen & bit(static_cast<int>(i)))) continue;
            const Step step(*this, names[i]);
            report(code, {});
        }
        return false;
    }

    /// Walks a section keyed by ID: `take(entry)` consumes one and says whether it can be used.
    template<typename Entry, typename Take>
    void entries(std::vector<Entry>& target, std::vector<bool>& bad, Take&& take) {
        target.clear(); // a section that stands again replaces the first
        bad.clear();
        if (!expect(in.peek() == '{', "an object")) return;
        in.object([&](std::string_view raw) {
            if (target.size() >= limits.entries) exceed("entries is " + std::to_string(limits.entries));
            charge(2 * sizeof(Entry) + 2 * sizeof(MeshReferences) + IdTable::memoryFor(1) -
                   IdTable::memoryFor(0));
            Entry added;
            added.id = meaning(raw);
            const Step step(*this, added.id);
            const bool good = take(added);
            target.push_back(added);
            if (sink.wantsAll()) bad.push_back(!good);
        });
    }

    void walkSection(int section) {
        switch (section) {
        case 0: {
            static constexpr std::string_view ACCESSORS[] = {"attributeViews", "indexViews"};
            std::uint32_t seen = 0;
            tables.attributeViews.clear();
            tables.indexViews.clear();
            const bool isObject = entry(ACCESSORS, seen, [&](int kind) {
                if (kind == 0) {
                    attributeBuffers.clear();
                    entries(tables.attributeViews, tables.badAttributeViews,
                            [&](SrcAttributeView& view) { return attributeView(view); });
                } else {
                    indexBuffers.clear();
                    entries(tables.indexViews, tables.badIndexViews,
                            [&](SrcIndexView& view) { return indexView(view); });
                }
            });
            if (isObject) require(ACCESSORS, seen, bit(0) | bit(1), SrcCode::MISSING_SECTION);
            hasAttributeViews = (seen & bit(0)) != 0;
            hasIndexViews = (seen & bit(1)) != 0;
            break;
        }
        case 1:
            entries(tables.chunks, tables.badChunks, [&](SrcChunk& entry) { return chunk(entry); });
            break;
        case 2:
            tables.viewChunks.clear();
            chunkNames.clear();
            entries(tables.bufferViews, tables.badBufferViews,
                    [&](SrcBufferView& view) { return bufferView(view); });
            break;
        case 3: {
            tables.attributes.clear();
            attributeNames.clear();
            meshNames.clear();
            entries(tables.meshes, tables.badMeshes, [&](SrcMesh& entry) { return mesh(entry); });
            break;
        }
        case 4: {
            techniqueNames.clear();
            std::vector<bool> ignored;
            entries(tables.materials, ignored, [&](SrcMaterial& entry) { return material(entry); });
            break;
        }
        case 5:
            metadata(tables.metadata);
            break;
        case 6: {
            std::vector<bool> ignored;
            entries(tables.techniques, ignored, [&](SrcTechnique& entry) { return technique(entry); });
            break;
        }
        default: { // textures: there are none in this format yet
            std::string_view text;
            takeObject(text);
        }
        }
    }

    bool chunk(SrcChunk& chunk) {
        static constexpr std::string_view KEYS[] = {"byteLength", "byteOffset"};
        std::uint32_t seen = 0;
        bool good = true;
        if (!entry(KEYS, seen,
                   [&](int key) { good &= takeCount(key == 0 ? chunk.byteLength : chunk.byteOffset); }))
            return false;
        return require(KEYS, seen, bit(0) | bit(1)) && good;
    }

    bool bufferView(SrcBufferView& view) {
        static constexpr std::string_view KEYS[] = {"byteLength", "chunks"};
        std::uint32_t seen = 0;
        bool good = true;
        if (!entry(KEYS, seen, [&](int key) {
                if (key == 0) {
                    good &= takeCount(view.byteLength);
                    return;
                }
                view.firstChunk = static_cast<std::uint32_t>(chunkNames.size());
                view.chunkCount = 0;
                if (!expect(in.peek() == '[', "a list of texts")) {
                    good = false;
                    return;
                }
                in.list([&] {
                    if (chunkNames.size() >= limits.entries)
                        exceed("entries is " + std::to_string(limits.entries));
                    charge(sizeof(std::string_view) * 2 + sizeof(std::uint32_t));
                    std::string_view name;
                    if (takeText(name)) {
                        chunkNames.push_back(name);
                        ++view.chunkCount;
                    } else {
                        good = false;
                    }
                });
            }))
            return false;
        return require(KEYS, seen, bit(0) | bit(1)) && good;
    }

    bool indexView(SrcIndexView& view) {
        static constexpr std::string_view KEYS[] = {"bufferView", "byteOffset", "componentType", "count"};
        std::uint32_t seen = 0;
        bool good = true;
        std::string_view buffer;
        const bool isObject = entry(KEYS, seen, [&](int key) {
            if (key == 0) {
                good &= takeText(buffer);
            } else if (key == 1) {
                good &= takeCount(view.byteOffset);
            } else if (key == 2) {
                good &= takeComponentType(view.componentType, true);
            } else {
                good &= takeCount(view.count);
            }
        });
        indexBuffers.push_back(buffer);
        return isObject && require(KEYS, seen, 0xf) && good;
    }

    bool takeComponentType(kel::mesh::ComponentType& type, bool forIndices) {
        const std::size_t position = in.position();
        std::uint64_t number = 0;
        if (!takeCount(number)) return false;
        const bool known = number >= kel::mesh::BYTE && number <= kel::mesh::FLOAT;
        const bool unsignedType = number == kel::mesh::UNSIGNED_BYTE || number == kel::mesh::UNSIGNED_SHORT ||
                                  number == kel::mesh::UNSIGNED_INT;
        if (forIndices ? !unsignedType : !known) {
            reportAt(SrcCode::BAD_COMPONENT_TYPE, position, "found " + std::to_string(number));
            return false;
        }
        type = static_cast<kel::mesh::ComponentType>(number);
        return true;
    }

    bool attributeView(SrcAttributeView& view) {
        static constexpr std::string_view KEYS[] = {"bufferView",    "byteOffset",   "byteStride",  "count",
                                                    "componentType", "decodeOffset", "decodeScale", "type"};
        const std::size_t position = in.position();
        std::uint32_t seen = 0;
        bool good = true;
        std::string_view buffer;
        std::size_t offsets = 0, scales = 0;
        const bool isObject = entry(KEYS, seen, [&](int key) {
            switch (key) {
            case 0:
                good &= takeText(buffer);
                break;
            case 1:
                good &= takeCount(view.byteOffset);
                break;
            case 2:
                good &= takeCount(view.byteStride);
                break;
            case 3:
                good &= takeCount(view.count);
                break;
            case 4:
                good &= takeComponentType(view.componentType, false);
                break;
            case 5:
                good &= takeNumbers(view.decodeOffset, offsets);
                break;
            case 6:
                good &= takeNumbers(view.decodeScale, scales);
                break;
            default:
                good &= takeType(view.components);
            }
        });
        attributeBuffers.push_back(buffer);
        if (!isObject || !require(KEYS, seen, 0x9f) || !good) return false;
        return decodeVectors(view, position, (seen & bit(5)) != 0, offsets, (seen & bit(6)) != 0, scales) &&
               elementLayout(view, position);
    }

    bool takeType(std::uint8_t& components) {
        const std::size_t position = in.position();
        std::string_view type;
        if (!takeText(type)) return false;
        static constexpr std::string_view TYPES[] = {"SCALAR", "VEC2", "VEC3", "VEC4"};
        const auto found = std::find(std::begin(TYPES), std::end(TYPES), type);
        if (found == std::end(TYPES)) {
            reportAt(SrcCode::BAD_TYPE, position, "found " + quoted(type));
            return false;
        }
        components = static_cast<std::uint8_t>(found - std::begin(TYPES) + 1);
        return true;
    }

    bool decodeVectors(SrcAttributeView& view, std::size_t position, bool hasOffset, std::size_t offsets,
                       bool hasScale, std::size_t scales) {
        bool good = true;
        const auto lengthMatches = [&](std::string_view key, bool present, std::size_t length) {
            if (!present || length == view.components) return;
            const Step step(*this, key);
            reportAt(SrcCode::WRONG_LENGTH, position,
                     std::to_string(length) + " numbers for " + std::to_string(view.components) +
                         " components");
            good = false;
        };
        lengthMatches("decodeOffset", hasOffset, offsets);
        lengthMatches("decodeScale", hasScale, scales);
        if (!good) return false;
        for (std::size_t c = 0; c < view.components; ++c) {
            if (view.decodeScale[c] == 0.0) {
                const Step step(*this, "decodeScale");
                reportAt(SrcCode::ZERO_DECODE_SCALE, position, "component " + std::to_string(c));
                return false;
            }
            if (view.decodeScale[c] != 1.0 || view.decodeOffset[c] != 0.0) view.decoded = true;
        }
        return true;
    }

    bool elementLayout(SrcAttributeView& view, std::size_t position) {
        const std::uint64_t components = view.components;
        view.componentBytes =
            static_cast<std::uint8_t>(kel::mesh::getComponentSizeInBytes(view.componentType));
        if (view.byteStride == 0) view.byteStride = components * view.componentBytes;
        if (view.componentType == kel::mesh::UNSIGNED_INT && view.byteStride < components * 4)
            view.componentBytes = 3;
        const std::uint64_t element = components * view.componentBytes;
        if (view.byteStride >= element) return true;
        const Step step(*this, "byteStride");
        reportAt(SrcCode::BAD_STRIDE, position,
                 std::to_string(view.byteStride) + " for elements of " + std::to_string(element) + " bytes");
        return false;
    }

    bool mesh(SrcMesh& mesh) {
        static constexpr std::string_view KEYS[] = {"attributes", "bboxCenter", "bboxSize", "indices",
                                                    "material",   "meta",       "primitive"};
        const std::size_t position = in.position();
        std::uint32_t seen = 0;
        bool hasCenter = false, hasSize = false;
        MeshReferences references;
        mesh.firstAttribute = static_cast<std::uint32_t>(tables.attributes.size());
        bool good = true;
        const bool isObject = entry(KEYS, seen, [&](int key) {
            switch (key) {
            case 0:
                good &= meshAttributes(mesh);
                break;
            case 1:
                good &= hasCenter = takeVector(mesh.boundsCenter);
                break;
            case 2:
                good &= hasSize = takeVector(mesh.boundsSize);
                break;
            case 3:
                good &= takeText(references.indices);
                break;
            case 4:
                good &= takeText(references.material);
                break;
            case 5:
                good &= metadata(mesh.metadata);
                break;
            default:
                good &= takePrimitive(mesh.primitive);
            }
        });
        meshNames.push_back(references);
        if (!isObject) return false;
        mesh.hasBounds = hasCenter && hasSize;
        if (sink.wantsAll() && ((seen & bit(1)) != 0) != ((seen & bit(2)) != 0))
            reportAt(SrcCode::BOUNDS_INCOMPLETE, position, {});
        return require(KEYS, seen, bit(0) | bit(6)) && good;
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

    bool meshAttributes(SrcMesh& mesh) {
        const std::size_t first = tables.attributes.size();
        mesh.firstAttribute = static_cast<std::uint32_t>(first);
        mesh.attributeCount = 0;
        if (!expect(in.peek() == '{', "an object")) return false;
        bool ascending = true, good = true;
        in.object([&](std::string_view raw) {
            if (tables.attributes.size() >= limits.entries)
                exceed("entries is " + std::to_string(limits.entries));
            charge(2 * sizeof(SrcAttribute) + 2 * sizeof(std::string_view));
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
            attributeNames.push_back(view);
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
            attributeNames[kept] = attributeNames[i];
            ++kept;
        }
        tables.attributes.resize(kept);
        attributeNames.resize(kept);
    }

    /// An object, or the one text that the public writer stores when the texts did not make an object.
    bool metadata(std::string_view& text) {
        const char first = in.peek();
        if (!expect(first == '{' || first == '"', "an object")) return false;
        if (first == '"' && sink.wantsAll()) report(SrcCode::METADATA_NOT_OBJECT, {});
        text = in.skip();
        return true;
    }

    bool material(SrcMaterial& material) {
        static constexpr std::string_view KEYS[] = {"instanceTechnique"};
        static constexpr std::string_view INSTANCE_KEYS[] = {"technique", "values"};
        const std::size_t position = in.position();
        std::uint32_t seen = 0, instanceSeen = 0;
        std::string_view technique;
        const bool isObject = entry(KEYS, seen, [&](int) {
            entry(INSTANCE_KEYS, instanceSeen, [&](int key) {
                if (key == 0) {
                    takeText(technique);
                } else {
                    takeObject(material.values);
                }
            });
        });
        techniqueNames.push_back(technique);
        if (isObject && !(instanceSeen & bit(0)) && sink.wantsAll())
            reportAt(SrcCode::MATERIAL_WITHOUT_TECHNIQUE, position, {});
        return isObject;
    }

    bool technique(SrcTechnique& technique) {
        static constexpr std::string_view KEYS[] = {"parameters"};
        std::uint32_t seen = 0;
        return entry(KEYS, seen, [&](int) { takeObject(technique.parameters); }) &&
               require(KEYS, seen, bit(0));
    }

    // ---- References -------------------------------------------------------------------------------------

    /// Builds a section's ID table and takes out the entries that a later one of the same ID replaces.
    template<typename Entry, typename... Parallel>
    void index(std::initializer_list<std::string_view> section, std::vector<Entry>& entries, IdTable& table,
               std::vector<bool>* bad, Parallel&... parallel) {
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
        if (bad && !bad->empty()) takeOut(*bad);
        (takeOut(parallel), ...);
        table.build(entries, [](std::uint32_t) {});
    }

    void resolve() {
        index({"bufferChunks"}, tables.chunks, tables.chunkIds, &tables.badChunks);
        index({"bufferViews"}, tables.bufferViews, tables.bufferViewIds, &tables.badBufferViews);
        index({"accessors", "indexViews"}, tables.indexViews, tables.indexViewIds, &tables.badIndexViews,
              indexBuffers);
        index({"accessors", "attributeViews"}, tables.attributeViews, tables.attributeViewIds,
              &tables.badAttributeViews, attributeBuffers);
        index({"techniques"}, tables.techniques, tables.techniqueIds, nullptr);
        index({"materials"}, tables.materials, tables.materialIds, nullptr, techniqueNames);
        index({"meshes"}, tables.meshes, tables.meshIds, &tables.badMeshes, meshNames);
        orderMeshes();

        for (std::size_t i = 0; i < tables.bufferViews.size(); ++i)
            resolveChunks(tables.bufferViews[i], i);
        for (std::size_t i = 0; i < tables.indexViews.size(); ++i)
            resolveIndexView(i);
        for (std::size_t i = 0; i < tables.attributeViews.size(); ++i)
            resolveAttributeView(i);
        for (std::size_t i = 0; i < tables.materials.size(); ++i) {
            if (techniqueNames[i].data() == nullptr) continue;
            SrcMaterial& material = tables.materials[i];
            material.technique = tables.techniqueIds.find(techniqueNames[i]);
            if (material.technique == SRC_NONE && sink.wantsAll())
                reportAt(SrcCode::DANGLING_TECHNIQUE, techniqueNames[i],
                         {"materials", material.id, "instanceTechnique", "technique"},
                         quoted(techniqueNames[i]));
        }
        for (std::size_t i = 0; i < tables.meshes.size(); ++i)
            resolveMesh(i);
    }

    /// Header order is that of the texts, 0, 1, 10, 2; writing order is that of the numbers.
    void orderMeshes() {
        const std::vector<std::uint32_t> order = tables.meshIds.byNumber();
        if (std::is_sorted(order.begin(), order.end())) return;
        std::vector<SrcMesh> meshes;
        std::vector<MeshReferences> names;
        std::vector<bool> bad;
        meshes.reserve(order.size());
        names.reserve(order.size());
        for (const std::uint32_t position : order) {
            meshes.push_back(tables.meshes[position]);
            names.push_back(meshNames[position]);
            if (!tables.badMeshes.empty()) bad.push_back(tables.badMeshes[position]);
        }
        tables.badMeshes = std::move(bad);
        tables.meshes = std::move(meshes);
        meshNames = std::move(names);
        tables.meshIds.build(tables.meshes, [](std::uint32_t) {});
    }

    void markBad(std::vector<bool>& bad, std::size_t i) {
        if (i < bad.size()) bad[i] = true;
    }

    void resolveChunks(SrcBufferView& view, std::size_t i) {
        const std::uint32_t firstName = view.firstChunk;
        view.firstChunk = static_cast<std::uint32_t>(tables.viewChunks.size());
        std::uint64_t stored = 0;
        for (std::uint32_t c = 0; c < view.chunkCount; ++c) {
            const std::string_view name = chunkNames[firstName + c];
            const std::uint32_t found = tables.chunkIds.find(name);
            if (found == SRC_NONE) {
                if (hasChunks)
                    reportAt(SrcCode::DANGLING_CHUNK, name,
                             {"bufferViews", view.id, "chunks", std::to_string(c)}, quoted(name));
                markBad(tables.badBufferViews, i);
            } else if (found < tables.badChunks.size() && tables.badChunks[found]) {
                markBad(tables.badBufferViews, i);
            } else {
                stored = std::min(stored + tables.chunks[found].byteLength, SATURATED);
            }
            tables.viewChunks.push_back(found);
        }
        const bool usable = i >= tables.badBufferViews.size() || !tables.badBufferViews[i];
        if (usable && stored != view.byteLength && sink.wantsAll()) {
            reportAt(SrcCode::VIEW_LENGTH, view.id, {"bufferViews", view.id, "byteLength"},
                     std::to_string(view.byteLength) + ", its chunks hold " + std::to_string(stored));
        }
        view.storedBytes = std::min(stored, view.byteLength);
    }

    /// The stored bytes of the buffer view of that name, or false after a report.
    bool resolveBuffer(std::string_view name, std::string_view kind, std::string_view id, std::uint32_t& view,
                       std::uint64_t& bytes) {
        view = tables.bufferViewIds.find(name);
        if (view == SRC_NONE) {
            if (hasBufferViews)
                reportAt(SrcCode::DANGLING_BUFFER_VIEW, name, {"accessors", kind, id, "bufferView"},
                         quoted(name));
            return false;
        }
        bytes = tables.bufferViews[view].storedBytes;
        return view >= tables.badBufferViews.size() || !tables.badBufferViews[view];
    }

    /// Every byte of every element lies inside `bytes`.
    static bool fits(std::uint64_t offset, std::uint64_t count, std::uint64_t stride, std::uint64_t element,
                     std::uint64_t bytes) {
        if (offset > bytes) return false;
        if (count == 0) return true;
        const std::uint64_t room = bytes - offset;
        return element <= room && (count - 1) <= (room - element) / stride;
    }

    void reportPastEnd(std::string_view kind, std::string_view id, std::uint64_t offset, std::uint64_t count,
                       std::uint64_t stride, std::uint64_t bytes) {
        reportAt(SrcCode::VIEW_PAST_END, id, {"accessors", kind, id},
                 std::to_string(count) + " elements, " + std::to_string(stride) + " bytes apart, from byte " +
                     std::to_string(offset) + " of " + std::to_string(bytes));
    }

    void resolveIndexView(std::size_t i) {
        SrcIndexView& view = tables.indexViews[i];
        if (i < tables.badIndexViews.size() && tables.badIndexViews[i]) return;
        std::uint64_t bytes = 0;
        if (!resolveBuffer(indexBuffers[i], "indexViews", view.id, view.bufferView, bytes)) {
            markBad(tables.badIndexViews, i);
            return;
        }
        const std::uint64_t size = kel::mesh::getComponentSizeInBytes(view.componentType);
        if (!fits(view.byteOffset, view.count, size, size, bytes)) {
            markBad(tables.badIndexViews, i);
            reportPastEnd("indexViews", view.id, view.byteOffset, view.count, size, bytes);
        }
    }

    void resolveAttributeView(std::size_t i) {
        SrcAttributeView& view = tables.attributeViews[i];
        if (i < tables.badAttributeViews.size() && tables.badAttributeViews[i]) return;
        std::uint64_t bytes = 0;
        if (!resolveBuffer(attributeBuffers[i], "attributeViews", view.id, view.bufferView, bytes)) {
            markBad(tables.badAttributeViews, i);
            return;
        }
        const std::uint64_t element = std::uint64_t(view.components) * view.componentBytes;
        if (!fits(view.byteOffset, view.count, view.byteStride, element, bytes)) {
            markBad(tables.badAttributeViews, i);
            reportPastEnd("attributeViews", view.id, view.byteOffset, view.count, view.byteStride, bytes);
        }
    }

    void resolveMesh(std::size_t i) {
        SrcMesh& mesh = tables.meshes[i];
        const MeshReferences& names = meshNames[i];
        if (!names.indices.empty()) {
            mesh.indexView = tables.indexViewIds.find(names.indices);
            if (mesh.indexView == SRC_NONE) {
                markBad(tables.badMeshes, i);
                if (hasIndexViews)
                    reportAt(SrcCode::DANGLING_INDEX_VIEW, names.indices, {"meshes", mesh.id, "indices"},
                             quoted(names.indices));
            }
        }
        if (!names.material.empty()) {
            mesh.material = tables.materialIds.find(names.material);
            if (mesh.material == SRC_NONE && sink.wantsAll())
                reportAt(SrcCode::DANGLING_MATERIAL, names.material, {"meshes", mesh.id, "material"},
                         quoted(names.material));
        }
        for (std::uint32_t a = 0; a < mesh.attributeCount; ++a) {
            SrcAttribute& attribute = tables.attributes[mesh.firstAttribute + a];
            const std::string_view name = attributeNames[mesh.firstAttribute + a];
            attribute.view = tables.attributeViewIds.find(name);
            if (attribute.view == SRC_NONE) {
                markBad(tables.badMeshes, i);
                if (hasAttributeViews)
                    reportAt(SrcCode::DANGLING_ATTRIBUTE_VIEW, name,
                             {"meshes", mesh.id, "attributes", attribute.name}, quoted(name));
                continue;
            }
            SrcAttributeView& view = tables.attributeViews[attribute.view];
            if (view.owner == SRC_NONE) view.owner = static_cast<std::uint32_t>(i);
        }
    }

    HeaderText in;
    const ReadLimits& limits;
    FindingSink& sink;
    HeaderTables& tables;
    std::uint64_t charged = 0;
    // What names an entry of a section that is missing is not told on top.
    bool hasChunks = false, hasBufferViews = false, hasIndexViews = false, hasAttributeViews = false;
    std::array<std::string_view, 8> path; // the walk goes no deeper by name; what it passes over is not named
    std::size_t steps = 0;

    std::vector<std::string_view> chunkNames;       // of all buffer views, in order
    std::vector<std::string_view> indexBuffers;     // beside indexViews
    std::vector<std::string_view> attributeBuffers; // beside attributeViews
    std::vector<std::string_view> attributeNames;   // beside attributes
    std::vector<std::string_view> techniqueNames;   // beside materials
    std::vector<MeshReferences> meshNames;          // beside meshes
};

std::uint32_t wordAt(const unsigned char* bytes) {
    return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
           static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

} // namespace

std::uint64_t HeaderTables::payloadEnd() const {
    std::uint64_t end = 0;
    for (std::size_t i = 0; i < chunks.size(); ++i) {
        if (i < badChunks.size() && badChunks[i]) continue;
        end = std::max(end, chunks[i].byteOffset + chunks[i].byteLength);
    }
    return end;
}

void ThrowingSink::report(SrcCode code, std::uint64_t offset, std::string path, std::string detail) {
    if (infoOf(code).refused) throw SrcError(code, offset, std::move(path), std::move(detail));
}

bool readPreamble(ByteView bytes, const ReadLimits& limits, FindingSink& sink, Preamble& preamble) {
    // No more than a stream has read by now, so that both say the same.
    const std::string_view text(reinterpret_cast<const char*>(bytes.data),
                                std::min(bytes.size, Preamble::BYTES));
    const auto refuse = [&](SrcCode code, std::uint64_t offset, std::string detail) {
        sink.report(code, offset, {}, std::move(detail));
        return false;
    };
    if (text.empty()) return refuse(SrcCode::EMPTY_FILE, 0, {});
    const bool signatureIsWrong =
        text.substr(0, 4) != std::string_view("\x17\0\0\0", 4).substr(0, text.size());
    if (signatureIsWrong) {
        if (text.substr(0, 4) == "glTF") return refuse(SrcCode::LOOKS_LIKE_GLB, 0, {});
        const std::size_t mark = text.substr(0, 3) == "\xef\xbb\xbf" ? 3 : 0;
        const std::size_t first = std::min(text.find_first_not_of(" \t\r\n", mark), text.size());
        if (text.substr(first, 1) == "<") return refuse(SrcCode::LOOKS_LIKE_HTML, first, {});
        return refuse(SrcCode::WRONG_SIGNATURE, 0, {});
    }
    if (text.size() < Preamble::BYTES)
        return refuse(SrcCode::TRUNCATED_PREAMBLE, text.size(), std::to_string(text.size()) + " bytes");
    if (wordAt(bytes.data + 4) != 42)
        return refuse(SrcCode::UNKNOWN_LAYOUT, 4, "found " + std::to_string(wordAt(bytes.data + 4)));
    preamble.headerBytes = wordAt(bytes.data + 8);
    if (preamble.headerBytes == 0) return refuse(SrcCode::HEADER_EMPTY, 8, {});
    if (preamble.headerBytes > limits.headerBytes) {
        return refuse(SrcCode::LIMIT_EXCEEDED, 8,
                      "a header of " + std::to_string(preamble.headerBytes) + " bytes; headerBytes is " +
                          std::to_string(limits.headerBytes));
    }
    return true;
}

bool readHeader(std::string_view text, const ReadLimits& limits, FindingSink& sink, HeaderTables& tables) {
    try {
        if (HeaderText::memoryFor(text.size()) > limits.memoryBytes) {
            sink.report(SrcCode::LIMIT_EXCEEDED, 8, {},
                        "memoryBytes is " + std::to_string(limits.memoryBytes));
            return false;
        }
        Walker(text, limits, sink, tables).walk();
        return true;
    } catch (const JsonFault& fault) {
        sink.report(SrcCode::JSON_SYNTAX, Preamble::BYTES + fault.position, {}, fault.detail);
    } catch (const JsonTooDeep& fault) {
        sink.report(SrcCode::LIMIT_EXCEEDED, Preamble::BYTES + fault.position, {},
                    "nested more than " + std::to_string(limits.depth) + " deep; that is the limit depth");
    } catch (const Walker::LimitReached&) {
    }
    return false;
}

void checkChunks(HeaderTables& tables, std::uint64_t dataBytes, FindingSink& sink) {
    for (std::size_t i = 0; i < tables.chunks.size(); ++i) {
        if (i < tables.badChunks.size() && tables.badChunks[i]) continue;
        const SrcChunk& chunk = tables.chunks[i];
        if (chunk.byteOffset + chunk.byteLength <= dataBytes) continue;
        if (i < tables.badChunks.size()) tables.badChunks[i] = true;
        sink.report(SrcCode::CHUNK_PAST_END, SrcError::NO_OFFSET,
                    text::jsonPointer({"bufferChunks", chunk.id}),
                    std::to_string(chunk.byteLength) + " bytes from byte " +
                        std::to_string(chunk.byteOffset) + " of " + std::to_string(dataBytes));
    }
    // Against the end of the last chunk, which a stream knows too, and not against what may follow it.
    const std::uint64_t end = tables.payloadEnd();
    for (std::size_t i = 0; i < tables.bufferViews.size(); ++i) {
        const SrcBufferView& view = tables.bufferViews[i];
        bool usable = i >= tables.badBufferViews.size() || !tables.badBufferViews[i];
        for (std::uint32_t c = 0; usable && !tables.badChunks.empty() && c < view.chunkCount; ++c) {
            const std::uint32_t chunk = tables.viewChunks[view.firstChunk + c];
            if (chunk < tables.badChunks.size() && tables.badChunks[chunk]) usable = false;
        }
        if (usable && view.storedBytes > end) {
            usable = false;
            sink.report(SrcCode::REPEATED_CHUNKS, SrcError::NO_OFFSET,
                        text::jsonPointer(std::initializer_list<std::string_view>{"bufferViews", view.id}),
                        std::to_string(view.storedBytes) + " of " + std::to_string(end) + " bytes");
        }
        if (!usable && i < tables.badBufferViews.size()) tables.badBufferViews[i] = true;
    }
}

} // namespace kel::src::detail
