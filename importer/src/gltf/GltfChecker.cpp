#include "GltfDocument.h"

#include <kel/mesh/ComponentType.h>
#include <kel/mesh/PrimitiveType.h>
#include <kel/src/format/ElementTypes.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <set>
#include <utility>

namespace kel::importer::detail {

namespace {

std::uint64_t bytesOfComponent(std::uint64_t type) {
    // glTF has no signed integers of four bytes.
    const auto* row = type == kel::mesh::INT ? nullptr : kel::src::format::componentType(type);
    return row ? row->bytes : 0;
}

std::uint64_t componentsOf(const std::string& type) {
    const auto* const first = std::begin(kel::src::format::ELEMENT_TYPES);
    const auto* const end = std::end(kel::src::format::ELEMENT_TYPES);
    const auto* const found = std::find(first, end, type);
    if (found != end) return static_cast<std::uint64_t>(found - first) + 1;
    return type == "MAT2" ? 4 : type == "MAT3" ? 9 : type == "MAT4" ? 16 : 0;
}

int base64Digit(char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+' || c == '-') return 62;
    if (c == '/' || c == '_') return 63;
    return -1;
}

/// The first of `count` indices that is not below `vertices`, or `count`.
template<typename Index>
std::uint64_t firstOutOfRange(const unsigned char* bytes, std::uint64_t count, std::uint64_t step,
                              std::uint64_t vertices, std::uint32_t& found) {
    for (std::uint64_t i = 0; i < count; ++i) {
        Index index; // little-endian, as the file
        std::memcpy(&index, bytes + i * step, sizeof index);
        if (index < vertices) continue;
        found = index;
        return i;
    }
    return count;
}

/// The bytes of one buffer, wherever they are.
struct Buffer {
    const Content* content = nullptr; ///< from `start` on; null: they are `decoded`
    std::unique_ptr<const Content> file;
    std::uint64_t start = 0;
    std::uint64_t length = 0;
    std::string decoded;

    /// The text behind its first `first` characters.
    void setBase64(const std::string& text, std::size_t first) {
        std::uint32_t bits = 0;
        int have = 0;
        decoded.reserve((text.size() - first) / 4 * 3);
        for (std::size_t i = first; i < text.size(); ++i) {
            const int digit = base64Digit(text[i]);
            if (digit < 0) continue;
            bits = bits << 6 | static_cast<std::uint32_t>(digit);
            have += 6;
            if (have < 8) continue;
            have -= 8;
            decoded.push_back(static_cast<char>(bits >> have & 0xFF));
        }
        length = decoded.size();
    }

    void read(std::uint64_t offset, void* out, std::size_t count) const {
        if (content) {
            content->read(start + offset, out, count);
        } else {
            std::memcpy(out, decoded.data() + offset, count);
        }
    }
};

struct View {
    std::size_t buffer = 0;
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
    std::uint64_t stride = 0;
};

struct Accessor {
    std::optional<std::size_t> view;
    std::uint64_t offset = 0;
    std::uint64_t count = 0;
    std::uint64_t component = 0; ///< WebGL type
    std::string type;
    bool sparse = false;

    /// Of an element; 0 when its type or component type is unknown.
    std::uint64_t bytes() const { return bytesOfComponent(component) * componentsOf(type); }
};

/// Refuses accessors that do not lie within their view, views that do not lie within their buffer, and
/// primitives whose accessors cannot be theirs.
class Checker {
public:
    Checker(const ModelSource& source, const picojson::value& document, Findings& findings)
        : source(source), document(document), findings(findings) {}

    void readBuffers(const Content& whole, std::uint64_t binaryOffset, std::uint64_t binaryLength) {
        allBytes = whole.size();
        const picojson::array& all = list("buffers");
        buffers.resize(all.size());
        for (std::size_t b = 0; b < all.size(); ++b) {
            const GltfPlace place("buffers", b);
            const std::uint64_t stated = number(&all[b], "byteLength", place);
            const picojson::value* uri = member(&all[b], "uri");
            Buffer& buffer = buffers[b];
            if (!uri) {
                // Only the first may stand for the binary chunk; others are filled by an extension.
                if (b == 0) {
                    buffer.content = &whole;
                    buffer.start = binaryOffset;
                    buffer.length = binaryLength;
                }
            } else if (!uri->is<std::string>()) {
                refuse(ImportCode::INVALID_MODEL, "\"uri\" is not a string", place);
            } else if (uri->get<std::string>().compare(0, 5, "data:") == 0) {
                const std::string& text = uri->get<std::string>();
                const std::size_t comma = text.find(',');
                if (comma == std::string::npos || text.rfind(";base64", comma) == std::string::npos) continue;
                buffer.setBase64(text, comma + 1);
            } else {
                openFile(uri->get<std::string>(), place, buffer);
            }
            if (stated > buffer.length) {
                source.refuse(ImportCode::TRUNCATED,
                              "a buffer announces " + std::to_string(stated) + " bytes, there are " +
                                  std::to_string(buffer.length),
                              place.text());
            }
        }
    }

    void readViews() {
        const picojson::array& all = list("bufferViews");
        views.reserve(all.size());
        for (std::size_t v = 0; v < all.size(); ++v) {
            const GltfPlace place("bufferViews", v);
            const auto buffer = reference(&all[v], "buffer", buffers.size(), place);
            if (!buffer) refuse(ImportCode::INVALID_MODEL, "\"buffer\" is missing", place);
            const View view{*buffer, number(&all[v], "byteOffset", place),
                            number(&all[v], "byteLength", place), number(&all[v], "byteStride", place)};
            const std::uint64_t size = buffers[*buffer].length;
            if (view.offset > size || view.length > size - view.offset) {
                refuse(ImportCode::IMPOSSIBLE_COUNT,
                       "it takes " + std::to_string(view.length) + " bytes from " +
                           std::to_string(view.offset) + " on, the buffer has " + std::to_string(size),
                       place);
            }
            views.push_back(view);
        }
    }

    void readAccessors() {
        const picojson::array& all = list("accessors");
        accessors.reserve(all.size());
        for (std::size_t a = 0; a < all.size(); ++a) {
            const GltfPlace place("accessors", a);
            const picojson::value* sparse = member(&all[a], "sparse");
            Accessor accessor{reference(&all[a], "bufferView", views.size(), place),
                              number(&all[a], "byteOffset", place),
                              number(&all[a], "count", place),
                              number(&all[a], "componentType", place),
                              stringOf(member(&all[a], "type")),
                              sparse != nullptr};
            const std::uint64_t bytes = accessor.bytes();
            if (bytes == 0) refuse(ImportCode::INVALID_MODEL, "its type or component type is unknown", place);
            std::uint64_t fits = 0;
            if (accessor.view) {
                const View& view = views[*accessor.view];
                const std::uint64_t step = view.stride > 0 ? view.stride : bytes;
                if (accessor.offset <= view.length && bytes <= view.length - accessor.offset)
                    fits = (view.length - accessor.offset - bytes) / step + 1;
            } else {
                // Zeros, or compressed: not in the file, but no model is a thousandfold of its file.
                fits = 1000 * allBytes;
            }
            if (accessor.count > fits) {
                refuse(ImportCode::IMPOSSIBLE_COUNT,
                       "it announces " + std::to_string(accessor.count) + " elements, there is room for " +
                           std::to_string(fits),
                       place);
            }
            if (sparse) checkSparse(*sparse, accessor, place);
            accessors.push_back(std::move(accessor));
        }
    }

    void checkExtensions() const {
        // Geometry in a form that the reader would take for plain numbers.
        static const std::set<std::string> FOREIGN = {"EXT_meshopt_compression", "KHR_meshopt_compression"};
        for (const picojson::value& name : list("extensionsRequired")) {
            if (FOREIGN.count(stringOf(&name)) == 0) continue;
            source.refuse(ImportCode::UNSUPPORTED_FEATURE, "it needs the extension " + stringOf(&name),
                          "extensionsRequired");
        }
        static const std::set<std::string> CARRIED = {
            "KHR_draco_mesh_compression", "KHR_mesh_quantization", "KHR_materials_unlit",
            "KHR_materials_pbrSpecularGlossiness", "KHR_lights_punctual"};
        std::string names;
        std::size_t count = 0;
        for (const picojson::value& name : list("extensionsUsed")) {
            if (CARRIED.count(stringOf(&name)) > 0) continue;
            names += (count++ == 0 ? "" : ", ") + stringOf(&name);
        }
        drop("glTF extensions", count, names);
    }

    void checkMeshes() {
        const picojson::array& meshes = list("meshes");
        const std::size_t materials = list("materials").size();
        for (std::size_t m = 0; m < meshes.size(); ++m) {
            const GltfPlace mesh("meshes", m);
            const picojson::array& primitives = arrayOf(member(&meshes[m], "primitives"));
            for (std::size_t p = 0; p < primitives.size(); ++p) {
                const GltfPlace place("primitives", p, &mesh);
                reference(&primitives[p], "material", materials, place);
                checkPrimitive(primitives[p], place);
            }
        }
        const picojson::array& nodes = list("nodes");
        for (std::size_t n = 0; n < nodes.size(); ++n)
            reference(&nodes[n], "mesh", meshes.size(), GltfPlace("nodes", n));

        if (!customAttributes.empty())
            drop("custom attributes", customAttributes.size(), *customAttributes.begin());
        const std::size_t scenes = list("scenes").size();
        if (scenes > 1) drop("scenes besides the default one", scenes - 1, "");
    }

private:
    const ModelSource& source;
    const picojson::value& document;
    Findings& findings;
    std::vector<Buffer> buffers;
    std::vector<View> views;
    std::vector<Accessor> accessors;
    std::uint64_t allBytes = 0; // of the model and the files beside it
    /// Names of attributes that begin with an underscore, once per use.
    std::multiset<std::string> customAttributes;

    void drop(const char* kind, std::size_t count, const std::string& detail) const {
        if (count > 0) findings.dropped.push_back({kind, count, detail});
    }

    // ---- Fields -----------------------------------------------------------------------------------------

    const picojson::array& list(const char* name) const { return arrayOf(member(&document, name)); }

    [[noreturn]] void refuse(ImportCode code, const std::string& what, const GltfPlace& place) const {
        // Whatever is wrong with a part of the document, whoever wrote it has to write it again.
        source.refuse(code, what, place.text(), std::string(infoOf(ImportCode::INVALID_MODEL).remedy));
    }

    /// A whole number, `fallback` where it is missing.
    std::uint64_t number(const picojson::value* object, const char* name, const GltfPlace& place,
                         std::uint64_t fallback = 0) const {
        const picojson::value* value = member(object, name);
        if (!value) return fallback;
        const auto whole = wholeNumber(value);
        if (!whole)
            refuse(ImportCode::INVALID_MODEL, std::string("\"") + name + "\" is not a whole number", place);
        return *whole;
    }

    /// A whole number below `size`; nothing where it is missing.
    std::optional<std::size_t> reference(const picojson::value* object, const char* name, std::size_t size,
                                         const GltfPlace& place) const {
        if (!member(object, name)) return std::nullopt;
        const std::uint64_t index = number(object, name, place);
        if (index >= size) {
            refuse(ImportCode::INDEX_OUT_OF_RANGE,
                   std::string("\"") + name + "\" is " + std::to_string(index) + ", but there are only " +
                       std::to_string(size),
                   place);
        }
        return static_cast<std::size_t>(index);
    }

    // ---- Buffers and accessors --------------------------------------------------------------------------

    void openFile(const std::string& name, const GltfPlace& place, Buffer& buffer) {
        const auto slash = source.path.rfind('/');
        const std::string folder = slash == std::string::npos ? "" : source.path.substr(0, slash + 1);
        auto file = std::make_unique<Content>(folder + name);
        if (!file->opened()) file = std::make_unique<Content>(folder + percentDecoded(name));
        if (!file->opened()) {
            source.refuse(ImportCode::MISSING_FILE,
                          "it needs the file \"" + name + "\", which cannot be opened", place.text());
        }
        buffer.length = file->size();
        allBytes += file->size();
        buffer.content = file.get();
        buffer.file = std::move(file);
    }

    void checkSparse(const picojson::value& sparse, const Accessor& accessor, const GltfPlace& place) const {
        const std::uint64_t count = number(&sparse, "count", place);
        const picojson::value* indices = member(&sparse, "indices");
        const picojson::value* values = member(&sparse, "values");
        const auto indexView = reference(indices, "bufferView", views.size(), place);
        const auto valueView = reference(values, "bufferView", views.size(), place);
        if (!indexView || !valueView)
            refuse(ImportCode::INVALID_MODEL, "\"sparse\" lacks its indices or values", place);
        const std::uint64_t width = bytesOfComponent(number(indices, "componentType", place));
        const std::uint64_t indexOffset = number(indices, "byteOffset", place);
        const std::uint64_t valueOffset = number(values, "byteOffset", place);
        const View& from = views[*indexView];
        const View& with = views[*valueView];
        if (width == 0 || count > accessor.count || indexOffset > from.length ||
            count > (from.length - indexOffset) / width || valueOffset > with.length ||
            count > (with.length - valueOffset) / std::max<std::uint64_t>(1, accessor.bytes())) {
            refuse(ImportCode::IMPOSSIBLE_COUNT,
                   "\"sparse\" announces more elements than its buffer views hold", place);
        }
        for (std::uint64_t i = 0; i < count; ++i) {
            std::uint32_t index = 0; // little-endian, as the file
            buffers[from.buffer].read(from.offset + indexOffset + i * width, &index, width);
            if (index >= accessor.count) {
                refuse(ImportCode::INDEX_OUT_OF_RANGE,
                       "\"sparse\" replaces element " + std::to_string(index) + " of " +
                           std::to_string(accessor.count),
                       place);
            }
        }
    }

    /// Refuses indices that are not below `vertices`; the accessor holds unsigned scalars.
    void checkIndexValues(const Accessor& accessor, std::uint64_t vertices, const GltfPlace& place) const {
        if (!accessor.view || accessor.sparse) return;
        const View& view = views[*accessor.view];
        const std::uint64_t width = accessor.bytes();
        const std::uint64_t step = view.stride > 0 ? view.stride : width;
        const auto find = width == 1   ? firstOutOfRange<std::uint8_t>
                          : width == 2 ? firstOutOfRange<std::uint16_t>
                                       : firstOutOfRange<std::uint32_t>;
        constexpr std::uint64_t BLOCK = 16384;
        std::vector<unsigned char> block;
        for (std::uint64_t first = 0; first < accessor.count; first += BLOCK) {
            const std::uint64_t here = std::min(BLOCK, accessor.count - first);
            block.assign(static_cast<std::size_t>((here - 1) * step + width), 0);
            const std::uint64_t offset = view.offset + accessor.offset + first * step;
            buffers[view.buffer].read(offset, block.data(), block.size());
            std::uint32_t index = 0;
            const std::uint64_t bad = find(block.data(), here, step, vertices, index);
            if (bad == here) continue;
            refuse(ImportCode::INDEX_OUT_OF_RANGE,
                   "index " + std::to_string(first + bad) + " is " + std::to_string(index) +
                       ", but there are only " + std::to_string(vertices) + " vertices",
                   place);
        }
    }

    // ---- Primitives -------------------------------------------------------------------------------------

    /// returns  how many vertices the primitive has
    std::uint64_t checkAttributes(const picojson::value& primitive, bool draco, const GltfPlace& place) {
        std::optional<std::uint64_t> vertices;
        const picojson::value* attributes = member(&primitive, "attributes");
        const GltfPlace all(place, "attributes");
        for (const auto& entry : objectOf(attributes)) {
            const std::string& name = entry.first;
            const GltfPlace where(all, name.c_str());
            const Accessor& accessor =
                accessors[*reference(attributes, name.c_str(), accessors.size(), where)];
            if (!accessor.view && !accessor.sparse && !draco)
                refuse(ImportCode::INVALID_MODEL, "the attribute has no data", where);
            if (name == "POSITION") vertices = accessor.count;
            const bool spatial = name == "POSITION" || name == "NORMAL" || name == "TANGENT";
            if (!name.empty() && name[0] == '_') customAttributes.insert(name);
            if (!spatial && name.compare(0, 9, "TEXCOORD_") != 0) continue;
            const char* expected = name == "TANGENT" ? "VEC4" : spatial ? "VEC3" : "VEC2";
            if (accessor.component != kel::mesh::FLOAT || accessor.type != expected) {
                // The reader copies the bytes, whatever they mean.
                source.refuse(ImportCode::UNSUPPORTED_FEATURE,
                              std::string("the attribute is not stored as ") + expected + " of 32-bit floats",
                              where.text(), "export the model with float attributes, without quantization");
            }
        }
        if (!vertices) refuse(ImportCode::INVALID_MODEL, "the primitive has no positions", place);
        for (const auto& entry : objectOf(attributes)) {
            const Accessor& accessor = accessors[static_cast<std::size_t>(*wholeNumber(&entry.second))];
            if (accessor.count != *vertices) {
                refuse(ImportCode::INVALID_MODEL,
                       "the attribute has " + std::to_string(accessor.count) + " elements for " +
                           std::to_string(*vertices) + " vertices",
                       GltfPlace(all, entry.first.c_str()));
            }
        }
        return *vertices;
    }

    /// returns  how many corners the primitive has
    std::uint64_t checkIndices(const picojson::value& primitive, bool draco, std::uint64_t vertices,
                               const GltfPlace& place) const {
        const auto index = reference(&primitive, "indices", accessors.size(), place);
        if (!index) return vertices;
        const GltfPlace where(place, "indices");
        const Accessor& accessor = accessors[*index];
        const auto* component = kel::src::format::componentType(accessor.component);
        if (accessor.type != "SCALAR" || !component || !component->forIndices)
            refuse(ImportCode::INVALID_MODEL, "the indices are not unsigned whole numbers", where);
        if (!accessor.view && !draco) refuse(ImportCode::INVALID_MODEL, "the indices have no data", where);
        if (!draco) checkIndexValues(accessor, vertices, where);
        return accessor.count;
    }

    void checkPrimitive(const picojson::value& primitive, const GltfPlace& place) {
        const bool draco = member(member(&primitive, "extensions"), "KHR_draco_mesh_compression") != nullptr;
        const std::uint64_t vertices = checkAttributes(primitive, draco, place);
        const std::uint64_t corners = checkIndices(primitive, draco, vertices, place);
        const std::uint64_t mode = number(&primitive, "mode", place, kel::mesh::TRIANGLES);
        static constexpr std::array<std::uint64_t, 7> LEAST = {1, 2, 2, 2, 3, 3, 3};
        if (mode > kel::mesh::TRIANGLE_FAN)
            refuse(ImportCode::INVALID_MODEL, "\"mode\" is " + std::to_string(mode), place);
        if (corners < LEAST[mode])
            refuse(ImportCode::INVALID_MODEL, "the primitive has too few corners: " + std::to_string(corners),
                   place);
        const std::uint64_t each = mode == kel::mesh::LINES ? 2 : mode == kel::mesh::TRIANGLES ? 3 : 1;
        if (corners % each != 0) {
            findings.notes.push_back("The last " + std::to_string(corners % each) + " corners of " +
                                     place.text() + " make no whole primitive and were left out");
        }
    }
};

} // namespace

void checkGltf(const ModelSource& source, const picojson::value& document, const Content& whole,
               std::uint64_t binaryOffset, std::uint64_t binaryLength, Findings& findings) {
    Checker checker(source, document, findings);
    checker.checkExtensions();
    checker.readBuffers(whole, binaryOffset, binaryLength);
    checker.readViews();
    checker.readAccessors();
    checker.checkMeshes();
}

} // namespace kel::importer::detail
