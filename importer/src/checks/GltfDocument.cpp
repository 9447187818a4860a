#include "GltfDocument.h"

#include <kel/src/text/JsonWriter.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <set>
#include <utility>

namespace kel::importer::detail {

namespace {

constexpr std::size_t DEEPEST_NODE = 512;
constexpr double LARGEST_WHOLE = 9007199254740992.0; // doubles hold every integer up to there
constexpr std::uint32_t JSON_CHUNK = 0x4E4F534A;
constexpr std::uint32_t BINARY_CHUNK = 0x004E4942;
/// Whatever is wrong with a part of the document, whoever wrote it has to write it again.
const std::string EXPORT_AGAIN(infoOf(ImportCode::INVALID_MODEL).remedy);

const picojson::array& arrayOf(const picojson::value* value) {
    static const picojson::array NONE;
    return value && value->is<picojson::array>() ? value->get<picojson::array>() : NONE;
}

const picojson::object& objectOf(const picojson::value* value) {
    static const picojson::object NONE;
    return value && value->is<picojson::object>() ? value->get<picojson::object>() : NONE;
}

std::string at(const std::string& array, std::size_t index) {
    return array + "[" + std::to_string(index) + "]";
}

std::uint64_t bytesOfComponent(std::uint64_t type) {
    switch (type) {
    case 5120:
    case 5121:
        return 1;
    case 5122:
    case 5123:
        return 2;
    case 5125:
    case 5126:
        return 4;
    default:
        return 0;
    }
}

std::uint64_t componentsOf(const std::string& type) {
    static const std::map<std::string, std::uint64_t> COMPONENTS = {
        {"SCALAR", 1}, {"VEC2", 2}, {"VEC3", 3}, {"VEC4", 4}, {"MAT2", 4}, {"MAT3", 9}, {"MAT4", 16}};
    const auto found = COMPONENTS.find(type);
    return found == COMPONENTS.end() ? 0 : found->second;
}

int base64Digit(char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+' || c == '-') return 62;
    if (c == '/' || c == '_') return 63;
    return -1;
}

/// The bytes of one buffer, wherever they are.
class BufferBytes {
public:
    void setRange(std::shared_ptr<const Content> from, std::uint64_t offset, std::uint64_t count) {
        content = std::move(from);
        start = offset;
        length = count;
    }
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

    std::uint64_t size() const { return length; }
    void read(std::uint64_t offset, void* out, std::size_t count) const {
        if (content) {
            content->read(start + offset, out, count);
        } else {
            std::memcpy(out, decoded.data() + offset, count);
        }
    }

private:
    std::shared_ptr<const Content> content;
    std::uint64_t start = 0;
    std::uint64_t length = 0;
    std::string decoded;
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
    std::uint64_t component = 0; // WebGL type
    std::string type;
    bool sparse = false;
    std::uint64_t bytes() const { return bytesOfComponent(component) * componentsOf(type); }
};

/// Walks through the document once, front to back of the references: buffers, views, accessors, primitives.
class Checker {
public:
    Checker(const Source& source, const GltfDocument& document, Findings& findings)
        : source(source), document(document), findings(findings) {}

    void run(std::shared_ptr<const Content> whole, std::uint64_t binaryOffset, std::uint64_t binaryLength);

private:
    const Source& source;
    const GltfDocument& document;
    Findings& findings;
    std::vector<BufferBytes> buffers;
    std::vector<View> views;
    std::vector<Accessor> accessors;
    std::uint64_t allBytes = 0;
    std::multiset<std::string> customAttributes;

    const picojson::array& list(const char* name) const { return arrayOf(member(&document.json(), name)); }
    [[noreturn]] void refuse(ImportCode code, const std::string& what, const std::string& place) const {
        source.refuse(code, what, place, EXPORT_AGAIN);
    }
    /// A whole number, `fallback` where it is missing.
    std::uint64_t number(const picojson::value* object, const char* name, std::uint64_t fallback,
                         const std::string& place) const;
    std::optional<std::size_t> reference(const picojson::value* object, const char* name, std::size_t size,
                                         const std::string& place) const;

    void checkExtensions();
    void readBuffers(std::shared_ptr<const Content> whole, std::uint64_t binaryOffset,
                     std::uint64_t binaryLength);
    void readViews();
    void readAccessors();
    void checkSparse(const picojson::value& sparse, const Accessor& accessor, const std::string& place) const;
    void checkPrimitives();
    void checkPrimitive(const picojson::value& primitive, const std::string& place);
    void checkIndices(const Accessor& accessor, std::uint64_t vertices, const std::string& place) const;
};

std::uint64_t Checker::number(const picojson::value* object, const char* name, std::uint64_t fallback,
                              const std::string& place) const {
    const picojson::value* value = member(object, name);
    if (!value) return fallback;
    const auto whole = wholeNumber(value);
    if (!whole)
        refuse(ImportCode::INVALID_MODEL, std::string("\"") + name + "\" is not a whole number", place);
    return *whole;
}

std::optional<std::size_t> Checker::reference(const picojson::value* object, const char* name,
                                              std::size_t size, const std::string& place) const {
    if (!member(object, name)) return std::nullopt;
    const std::uint64_t index = number(object, name, 0, place);
    if (index >= size) {
        refuse(ImportCode::INDEX_OUT_OF_RANGE,
               std::string("\"") + name + "\" is " + std::to_string(index) + ", but there are only " +
                   std::to_string(size),
               place);
    }
    return static_cast<std::size_t>(index);
}

void Checker::checkExtensions() {
    // Geometry in a form that the reader would take for plain numbers.
    static const std::set<std::string> FOREIGN = {"EXT_meshopt_compression", "KHR_meshopt_compression"};
    for (const picojson::value& name : list("extensionsRequired")) {
        if (FOREIGN.count(textOf(&name)) == 0) continue;
        source.refuse(ImportCode::UNSUPPORTED_FEATURE, "it needs the extension " + textOf(&name),
                      "extensionsRequired");
    }
    static const std::set<std::string> CARRIED = {
        "KHR_draco_mesh_compression", "KHR_mesh_quantization", "KHR_materials_unlit",
        "KHR_materials_pbrSpecularGlossiness", "KHR_lights_punctual"};
    std::string names;
    std::size_t count = 0;
    for (const picojson::value& name : list("extensionsUsed")) {
        if (CARRIED.count(textOf(&name)) > 0) continue;
        names += (count++ == 0 ? "" : ", ") + textOf(&name);
    }
    if (count > 0) findings.dropped.push_back({"glTF extensions", count, names});
}

void Checker::readBuffers(std::shared_ptr<const Content> whole, std::uint64_t binaryOffset,
                          std::uint64_t binaryLength) {
    allBytes = whole->size();
    const picojson::array& all = list("buffers");
    buffers.resize(all.size());
    for (std::size_t b = 0; b < all.size(); ++b) {
        const std::string place = at("buffers", b);
        const std::uint64_t stated = number(&all[b], "byteLength", 0, place);
        const picojson::value* uri = member(&all[b], "uri");
        if (!uri) {
            // Only the first may stand for the binary chunk; others are filled by an extension.
            if (b == 0) buffers[b].setRange(whole, binaryOffset, binaryLength);
        } else if (!uri->is<std::string>()) {
            refuse(ImportCode::INVALID_MODEL, "\"uri\" is not a string", place);
        } else if (uri->get<std::string>().compare(0, 5, "data:") == 0) {
            const std::string& text = uri->get<std::string>();
            const std::size_t comma = text.find(',');
            if (comma == std::string::npos || text.rfind(";base64", comma) == std::string::npos) continue;
            buffers[b].setBase64(text, comma + 1);
        } else {
            const std::string name = uri->get<std::string>();
            const auto slash = source.path.rfind('/');
            const std::string folder = slash == std::string::npos ? "" : source.path.substr(0, slash + 1);
            auto file = std::make_shared<Content>(folder + name);
            if (!file->opened()) file = std::make_shared<Content>(folder + percentDecoded(name));
            if (!file->opened()) {
                source.refuse(ImportCode::MISSING_FILE,
                              "it needs the file \"" + name + "\", which cannot be opened", place);
            }
            allBytes += file->size();
            const std::uint64_t size = file->size();
            buffers[b].setRange(std::move(file), 0, size);
        }
        if (stated > buffers[b].size()) {
            source.refuse(ImportCode::TRUNCATED,
                          "a buffer announces " + std::to_string(stated) + " bytes, there are " +
                              std::to_string(buffers[b].size()),
                          place);
        }
    }
}

void Checker::readViews() {
    const picojson::array& all = list("bufferViews");
    for (std::size_t v = 0; v < all.size(); ++v) {
        const std::string place = at("bufferViews", v);
        const auto buffer = reference(&all[v], "buffer", buffers.size(), place);
        if (!buffer) refuse(ImportCode::INVALID_MODEL, "\"buffer\" is missing", place);
        View view;
        view.buffer = *buffer;
        view.offset = number(&all[v], "byteOffset", 0, place);
        view.length = number(&all[v], "byteLength", 0, place);
        view.stride = number(&all[v], "byteStride", 0, place);
        const std::uint64_t size = buffers[*buffer].size();
        if (view.offset > size || view.length > size - view.offset) {
            refuse(ImportCode::IMPOSSIBLE_COUNT,
                   "it takes " + std::to_string(view.length) + " bytes from " + std::to_string(view.offset) +
                       " on, the buffer has " + std::to_string(size),
                   place);
        }
        views.push_back(view);
    }
}

void Checker::checkSparse(const picojson::value& sparse, const Accessor& accessor,
                          const std::string& place) const {
    const std::uint64_t count = number(&sparse, "count", 0, place);
    const picojson::value* indices = member(&sparse, "indices");
    const picojson::value* values = member(&sparse, "values");
    const auto indexView = reference(indices, "bufferView", views.size(), place);
    const auto valueView = reference(values, "bufferView", views.size(), place);
    if (!indexView || !valueView)
        refuse(ImportCode::INVALID_MODEL, "\"sparse\" lacks its indices or values", place);
    const std::uint64_t type = number(indices, "componentType", 0, place);
    const std::uint64_t width = bytesOfComponent(type);
    const std::uint64_t indexOffset = number(indices, "byteOffset", 0, place);
    const std::uint64_t valueOffset = number(values, "byteOffset", 0, place);
    const View& from = views[*indexView];
    const View& with = views[*valueView];
    if (width == 0 || count > accessor.count || indexOffset > from.length ||
        count > (from.length - indexOffset) / width || valueOffset > with.length ||
        count > (with.length - valueOffset) / std::max<std::uint64_t>(1, accessor.bytes())) {
        refuse(ImportCode::IMPOSSIBLE_COUNT, "\"sparse\" announces more elements than its buffer views hold",
               place);
    }
    for (std::uint64_t i = 0; i < count; ++i) {
        std::uint32_t index = 0; // little endian, as the file
        buffers[from.buffer].read(from.offset + indexOffset + i * width, &index, width);
        if (index >= accessor.count) {
            refuse(ImportCode::INDEX_OUT_OF_RANGE,
                   "\"sparse\" replaces element " + std::to_string(index) + " of " +
                       std::to_string(accessor.count),
                   place);
        }
    }
}

void Checker::readAccessors() {
    const picojson::array& all = list("accessors");
    for (std::size_t a = 0; a < all.size(); ++a) {
        const std::string place = at("accessors", a);
        Accessor accessor;
        accessor.view = reference(&all[a], "bufferView", views.size(), place);
        accessor.offset = number(&all[a], "byteOffset", 0, place);
        accessor.count = number(&all[a], "count", 0, place);
        accessor.component = number(&all[a], "componentType", 0, place);
        accessor.type = textOf(member(&all[a], "type"));
        accessor.sparse = member(&all[a], "sparse") != nullptr;
        if (accessor.bytes() == 0)
            refuse(ImportCode::INVALID_MODEL, "its type or component type is unknown", place);
        std::uint64_t fits = 0;
        if (accessor.view) {
            const View& view = views[*accessor.view];
            const std::uint64_t step = view.stride > 0 ? view.stride : accessor.bytes();
            if (accessor.offset <= view.length && accessor.bytes() <= view.length - accessor.offset) {
                fits = (view.length - accessor.offset - accessor.bytes()) / step + 1;
            }
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
        if (accessor.sparse) checkSparse(*member(&all[a], "sparse"), accessor, place);
        accessors.push_back(accessor);
    }
}

void Checker::checkIndices(const Accessor& accessor, std::uint64_t vertices, const std::string& place) const {
    if (!accessor.view || accessor.sparse) return;
    const View& view = views[*accessor.view];
    const std::uint64_t width = accessor.bytes();
    const std::uint64_t step = view.stride > 0 ? view.stride : width;
    constexpr std::uint64_t BLOCK = 16384;
    std::vector<unsigned char> block;
    for (std::uint64_t first = 0; first < accessor.count; first += BLOCK) {
        const std::uint64_t here = std::min(BLOCK, accessor.count - first);
        block.assign(static_cast<std::size_t>((here - 1) * step + width), 0);
        buffers[view.buffer].read(view.offset + accessor.offset + first * step, block.data(), block.size());
        for (std::uint64_t i = 0; i < here; ++i) {
            std::uint32_t index = 0;
            std::memcpy(&index, block.data() + i * step, static_cast<std::size_t>(width));
            if (index >= vertices) {
                refuse(ImportCode::INDEX_OUT_OF_RANGE,
                       "index " + std::to_string(first + i) + " is " + std::to_string(index) +
                           ", but there are only " + std::to_string(vertices) + " vertices",
                       place);
            }
        }
    }
}

void Checker::checkPrimitive(const picojson::value& primitive, const std::string& place) {
    const bool draco = member(member(&primitive, "extensions"), "KHR_draco_mesh_compression") != nullptr;
    std::optional<std::uint64_t> vertices;
    const picojson::value* attributes = member(&primitive, "attributes");
    for (const auto& entry : objectOf(attributes)) {
        const std::string& name = entry.first;
        const std::string where = place + ".attributes." + name;
        const auto index = reference(attributes, name.c_str(), accessors.size(), where);
        const Accessor& accessor = accessors[*index];
        if (!accessor.view && !accessor.sparse && !draco) {
            refuse(ImportCode::INVALID_MODEL, "the attribute has no data", where);
        }
        if (name == "POSITION") vertices = accessor.count;
        const bool spatial = name == "POSITION" || name == "NORMAL" || name == "TANGENT";
        if (!name.empty() && name[0] == '_') customAttributes.insert(name);
        if (!spatial && name.compare(0, 9, "TEXCOORD_") != 0) continue;
        const std::string expected = name == "TANGENT" ? "VEC4" : spatial ? "VEC3" : "VEC2";
        if (accessor.component != 5126 || accessor.type != expected) {
            // The reader copies the bytes, whatever they mean.
            source.refuse(ImportCode::UNSUPPORTED_FEATURE,
                          "the attribute is not stored as " + expected + " of 32-bit floats", where,
                          "export the model with float attributes, without quantization");
        }
    }
    if (!vertices) refuse(ImportCode::INVALID_MODEL, "the primitive has no positions", place);
    for (const auto& entry : objectOf(attributes)) {
        const Accessor& accessor = accessors[static_cast<std::size_t>(*wholeNumber(&entry.second))];
        if (accessor.count != *vertices) {
            refuse(ImportCode::INVALID_MODEL,
                   "the attribute has " + std::to_string(accessor.count) + " elements for " +
                       std::to_string(*vertices) + " vertices",
                   place + ".attributes." + entry.first);
        }
    }

    std::uint64_t corners = *vertices;
    if (const auto index = reference(&primitive, "indices", accessors.size(), place)) {
        const Accessor& accessor = accessors[*index];
        const bool whole =
            accessor.component == 5121 || accessor.component == 5123 || accessor.component == 5125;
        if (accessor.type != "SCALAR" || !whole) {
            refuse(ImportCode::INVALID_MODEL, "the indices are not unsigned whole numbers",
                   place + ".indices");
        }
        if (!accessor.view && !draco)
            refuse(ImportCode::INVALID_MODEL, "the indices have no data", place + ".indices");
        if (!draco) checkIndices(accessor, *vertices, place + ".indices");
        corners = accessor.count;
    }
    const std::uint64_t mode = number(&primitive, "mode", 4, place);
    static constexpr std::array<std::uint64_t, 7> LEAST = {1, 2, 2, 2, 3, 3, 3};
    if (mode > 6) refuse(ImportCode::INVALID_MODEL, "\"mode\" is " + std::to_string(mode), place);
    if (corners < LEAST[mode]) {
        refuse(ImportCode::INVALID_MODEL, "the primitive has too few corners: " + std::to_string(corners),
               place);
    }
    const std::uint64_t each = mode == 1 ? 2 : mode == 4 ? 3 : 1;
    if (corners % each != 0) {
        findings.notes.push_back("The last " + std::to_string(corners % each) + " corners of " + place +
                                 " make no whole primitive and were left out");
    }
}

void Checker::checkPrimitives() {
    const picojson::array& meshes = list("meshes");
    for (std::size_t m = 0; m < meshes.size(); ++m) {
        const picojson::array& primitives = arrayOf(member(&meshes[m], "primitives"));
        for (std::size_t p = 0; p < primitives.size(); ++p) {
            const std::string place = at("meshes", m) + "." + at("primitives", p);
            reference(&primitives[p], "material", list("materials").size(), place);
            checkPrimitive(primitives[p], place);
        }
    }
    const picojson::array& nodes = list("nodes");
    for (std::size_t n = 0; n < nodes.size(); ++n) {
        reference(&nodes[n], "mesh", meshes.size(), at("nodes", n));
    }
}

void Checker::run(std::shared_ptr<const Content> whole, std::uint64_t binaryOffset,
                  std::uint64_t binaryLength) {
    checkExtensions();
    readBuffers(std::move(whole), binaryOffset, binaryLength);
    readViews();
    readAccessors();
    checkPrimitives();
    if (!customAttributes.empty()) {
        findings.dropped.push_back({"custom attributes", customAttributes.size(), *customAttributes.begin()});
    }
    const std::size_t scenes = list("scenes").size();
    if (scenes > 1) findings.dropped.push_back({"scenes besides the default one", scenes - 1, ""});
}

[[noreturn]] void refuseShort(const Source& source, const std::string& what, std::uint64_t offset) {
    source.refuse(ImportCode::TRUNCATED, what, "byte " + std::to_string(offset));
}

/// Where the two chunks of a GLB are.
struct Chunks {
    std::uint64_t jsonOffset = 0;
    std::uint64_t jsonLength = 0;
    std::uint64_t binaryOffset = 0;
    std::uint64_t binaryLength = 0;
    std::uint32_t version = 2;
};

Chunks readChunks(const Source& source, const Content& content) {
    std::array<std::uint32_t, 3> header{};
    if (content.read(0, header.data(), sizeof header) != sizeof header) {
        refuseShort(source, "the file ends within its header of 12 bytes", content.size());
    }
    Chunks chunks;
    chunks.version = header[1];
    if (header[2] > content.size()) {
        refuseShort(source,
                    "the header announces " + std::to_string(header[2]) + " bytes, the file has " +
                        std::to_string(content.size()),
                    8);
    }
    if (chunks.version != 2) return chunks;
    std::uint64_t offset = sizeof header;
    for (int index = 0; offset + 8 <= header[2]; ++index) {
        std::array<std::uint32_t, 2> chunk{};
        content.read(offset, chunk.data(), sizeof chunk);
        const std::uint64_t start = offset + sizeof chunk;
        if (chunk[0] > header[2] - start) {
            refuseShort(source,
                        "a chunk announces " + std::to_string(chunk[0]) + " bytes, the file has " +
                            std::to_string(header[2] - start) + " left",
                        offset);
        }
        if (index == 0) {
            if (chunk[1] != JSON_CHUNK) {
                source.refuse(ImportCode::INVALID_MODEL, "the first chunk is not JSON",
                              "byte " + std::to_string(offset));
            }
            chunks.jsonOffset = start;
            chunks.jsonLength = chunk[0];
        } else if (chunk[1] == BINARY_CHUNK && chunks.binaryOffset == 0) {
            chunks.binaryOffset = start;
            chunks.binaryLength = chunk[0];
        }
        offset = start + chunk[0];
    }
    if (chunks.jsonOffset == 0) refuseShort(source, "the file ends before its JSON", offset);
    return chunks;
}

picojson::value parse(const Source& source, const std::string& text) {
    picojson::value root;
    std::string problem;
    std::string::const_iterator end = text.begin();
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) end += 3;
    try {
        end = picojson::parse(root, end, text.end(), &problem);
    } catch (const std::overflow_error&) {
        problem = "a number is too large";
    }
    if (problem.empty() && !root.is<picojson::object>()) problem = "it is not an object";
    if (problem.empty() &&
        text.find_first_not_of(std::string(" \t\r\n\0", 5), static_cast<std::size_t>(end - text.begin())) !=
            std::string::npos) {
        problem = "more text follows its end";
    }
    if (!problem.empty()) {
        while (!problem.empty() && (problem.back() == ' ' || problem.back() == ':'))
            problem.pop_back();
        source.refuse(ImportCode::INVALID_JSON, "the JSON is broken: " + problem,
                      "line " + std::to_string(1 + std::count(text.begin(), end, '\n')));
    }
    return root;
}

bool isSkinning(const std::string& attribute) {
    return attribute.compare(0, 7, "JOINTS_") == 0 || attribute.compare(0, 8, "WEIGHTS_") == 0;
}

/// Takes out what no mesh needs and what the reader stumbles over: skins, animations and morph targets.
/// False when there is nothing of the kind.
bool reduce(picojson::value& root, Findings& findings) {
    picojson::object& document = root.get<picojson::object>();
    bool changed = false;
    const auto takeOut = [&](picojson::value& from, const char* name) {
        if (!from.is<picojson::object>()) return;
        changed |= from.get<picojson::object>().erase(name) > 0;
    };
    const auto each = [](picojson::object& object, const char* name, const auto& visit) {
        const auto found = object.find(name);
        if (found == object.end() || !found->second.is<picojson::array>()) return;
        for (picojson::value& value : found->second.get<picojson::array>()) {
            if (value.is<picojson::object>()) visit(value);
        }
    };

    // They are read from here; the reader gives up on those that are no objects, which they may be.
    for (auto& entry : document) {
        if (!entry.second.is<picojson::array>()) continue;
        for (picojson::value& value : entry.second.get<picojson::array>()) {
            const picojson::value* extras = member(&value, "extras");
            if (extras && !extras->is<picojson::object>()) takeOut(value, "extras");
        }
    }

    std::size_t bones = 0;
    each(document, "skins", [&](picojson::value& skin) { bones += arrayOf(member(&skin, "joints")).size(); });
    if (bones > 0) findings.dropped.push_back({"bones", bones, ""});
    const std::size_t animations = arrayOf(member(&root, "animations")).size();
    if (animations > 0) findings.dropped.push_back({"animations", animations, ""});
    takeOut(root, "skins");
    takeOut(root, "animations");
    each(document, "nodes", [&](picojson::value& node) {
        takeOut(node, "skin");
        takeOut(node, "weights");
    });
    std::size_t targets = 0;
    each(document, "meshes", [&](picojson::value& mesh) {
        takeOut(mesh, "weights");
        each(mesh.get<picojson::object>(), "primitives", [&](picojson::value& primitive) {
            targets += arrayOf(member(&primitive, "targets")).size();
            takeOut(primitive, "targets");
            std::vector<std::string> skinning;
            for (const auto& entry : objectOf(member(&primitive, "attributes"))) {
                if (isSkinning(entry.first)) skinning.push_back(entry.first);
            }
            for (const std::string& name : skinning) {
                takeOut(primitive.get<picojson::object>()["attributes"], name.c_str());
            }
        });
    });
    if (targets > 0) findings.dropped.push_back({"morph targets", targets, ""});
    return changed;
}

void appendWord(std::string& bytes, std::uint64_t value) {
    for (int shift = 0; shift < 32; shift += 8)
        bytes += static_cast<char>(value >> shift & 0xFF);
}

} // namespace

const picojson::value* member(const picojson::value* value, const char* name) {
    if (!value || !value->is<picojson::object>()) return nullptr;
    const picojson::object& object = value->get<picojson::object>();
    const auto found = object.find(name);
    return found == object.end() ? nullptr : &found->second;
}

std::string textOf(const picojson::value* value) {
    return value && value->is<std::string>() ? value->get<std::string>() : std::string();
}

std::optional<std::uint64_t> wholeNumber(const picojson::value* value) {
    if (!value || !value->is<double>()) return std::nullopt;
    const double number = value->get<double>();
    if (number < 0.0 || number > LARGEST_WHOLE || number != std::floor(number)) return std::nullopt;
    return static_cast<std::uint64_t>(number);
}

std::string percentDecoded(const std::string& uri) {
    std::string path;
    for (std::size_t i = 0; i < uri.size(); ++i) {
        const auto digit = [&](std::size_t at_) {
            return at_ < uri.size() && std::isxdigit(static_cast<unsigned char>(uri[at_])) != 0;
        };
        if (uri[i] == '%' && digit(i + 1) && digit(i + 2)) {
            path += static_cast<char>(std::stoi(uri.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            path += uri[i];
        }
    }
    return path;
}

GltfDocument::GltfDocument(const Source& source, picojson::value json) : root(std::move(json)) {
    const picojson::array& nodes = arrayOf(member(&root, "nodes"));
    children.resize(nodes.size());
    std::vector<std::size_t> parents(nodes.size(), 0);
    const auto take = [&](const picojson::value& value, const std::string& place) {
        const auto index = wholeNumber(&value);
        if (!index || *index >= nodes.size()) {
            source.refuse(ImportCode::INDEX_OUT_OF_RANGE, "it names a node that does not exist", place);
        }
        return static_cast<std::size_t>(*index);
    };
    for (std::size_t n = 0; n < nodes.size(); ++n) {
        for (const picojson::value& value : arrayOf(member(&nodes[n], "children"))) {
            const std::size_t child = take(value, at("nodes", n) + ".children");
            // Two parents would multiply what hangs below, level by level.
            if (++parents[child] > 1) {
                source.refuse(ImportCode::INVALID_MODEL, "the node has more than one parent",
                              at("nodes", child));
            }
            children[n].push_back(child);
        }
    }
    const picojson::value* shown = scene();
    if (!shown) {
        source.refuse(ImportCode::NO_MESH, "the file has no scene", "",
                      "export a scene, with the geometry in it");
    }
    for (const picojson::value& value : arrayOf(member(shown, "nodes"))) {
        const std::size_t node = take(value, "scenes.nodes");
        if (parents[node]++ > 0) {
            source.refuse(ImportCode::INVALID_MODEL,
                          "a root of the scene is the child of a node or is named twice", at("nodes", node));
        }
        roots.push_back(node);
    }
    // Every node has one parent now, so a walk from the roots ends; how deep it goes is left.
    std::vector<std::pair<std::size_t, std::size_t>> waiting;
    for (const std::size_t node : roots)
        waiting.emplace_back(node, 1);
    while (!waiting.empty()) {
        const auto [node, depth] = waiting.back();
        waiting.pop_back();
        if (depth > DEEPEST_NODE) {
            source.refuse(ImportCode::TOO_DEEP,
                          "nodes are nested more than " + std::to_string(DEEPEST_NODE) + " deep",
                          at("nodes", node));
        }
        for (const std::size_t child : children[node])
            waiting.emplace_back(child, depth + 1);
    }
}

picojson::value GltfDocument::takeBuffers() {
    picojson::object& object = root.get<picojson::object>();
    const auto found = object.find("buffers");
    if (found == object.end()) return {};
    picojson::value buffers = std::move(found->second);
    object.erase(found);
    return buffers;
}

const picojson::value* GltfDocument::find(const char* array, std::size_t index) const {
    const picojson::array& all = arrayOf(member(&root, array));
    return index < all.size() ? &all[index] : nullptr;
}

const picojson::value* GltfDocument::scene() const {
    const auto index = wholeNumber(member(&root, "scene"));
    return find("scenes", static_cast<std::size_t>(index.value_or(0)));
}

std::optional<std::size_t> GltfDocument::meshOf(std::size_t node) const {
    const auto index = wholeNumber(member(find("nodes", node), "mesh"));
    if (!index) return std::nullopt;
    return static_cast<std::size_t>(*index);
}

const picojson::value* GltfDocument::primitive(std::size_t mesh, std::size_t index) const {
    const picojson::array& all = arrayOf(member(find("meshes", mesh), "primitives"));
    return index < all.size() ? &all[index] : nullptr;
}

std::shared_ptr<const GltfDocument> readGltf(const Source& source, const Content& content, bool binary,
                                             Findings& findings) {
    Chunks chunks;
    if (binary) {
        chunks = readChunks(source, content);
        if (chunks.version != 2) return nullptr;
    } else {
        chunks.jsonLength = content.size();
    }
    picojson::value root = parse(source, content.text(chunks.jsonOffset, chunks.jsonLength));
    const std::string version = textOf(member(member(&root, "asset"), "version"));
    // The first version keeps its lists as objects, and "asset" is optional there.
    const picojson::value* meshes = member(&root, "meshes");
    if (version.compare(0, 1, "1") == 0 || (meshes && meshes->is<picojson::object>())) return nullptr;

    auto document = std::make_shared<GltfDocument>(source, std::move(root));
    // The content lives as long as this call; buffers within it must not outlive it.
    const std::shared_ptr<const Content> whole(&content, [](const Content*) {});
    Checker(source, *document, findings).run(whole, chunks.binaryOffset, chunks.binaryLength);

    // Buffers may be most of the text: they are moved from the one to the other, not copied.
    picojson::value buffers = document->takeBuffers();
    picojson::value reduced = document->json();
    if (buffers.is<picojson::array>()) reduced.get<picojson::object>()["buffers"] = std::move(buffers);
    if (!reduce(reduced, findings)) return document;
    std::string json;
    kel::src::text::appendJson(json, reduced);
    if (!binary) {
        findings.front = std::move(json);
        return document;
    }
    json.resize((json.size() + 3) / 4 * 4, ' ');
    std::string& front = findings.front;
    appendWord(front, 0x46546C67); // "glTF"
    appendWord(front, 2);
    const std::uint64_t tail = chunks.binaryOffset == 0 ? 0 : 8 + chunks.binaryLength;
    appendWord(front, 12 + 8 + json.size() + tail);
    appendWord(front, json.size());
    appendWord(front, JSON_CHUNK);
    front += json;
    if (tail > 0) {
        // The binary chunk, with its own header, as it stands in the file.
        findings.tailOffset = chunks.binaryOffset - 8;
        findings.tailLength = tail;
    }
    return document;
}

} // namespace kel::importer::detail
