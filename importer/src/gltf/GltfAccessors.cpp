#include "GltfAccessors.h"

#include <kel/mesh/ComponentType.h>
#include <kel/src/format/ElementTypes.h>

#include <algorithm>
#include <cstring>

namespace kel::importer::detail {

namespace {

std::uint64_t bytesOfComponent(std::uint64_t type) {
    // glTF has no signed integers of four bytes.
    const auto* row = type == kel::mesh::INT ? nullptr : kel::src::format::componentType(type);
    return row ? row->bytes : 0;
}

std::uint64_t componentsOf(const std::string& type) {
    const auto* const end = std::end(kel::src::format::ELEMENT_TYPES);
    const auto* const found = std::find(std::begin(kel::src::format::ELEMENT_TYPES), end, type);
    if (found != end)
        return static_cast<std::uint64_t>(found - std::begin(kel::src::format::ELEMENT_TYPES)) + 1;
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

} // namespace

// ---- Fields ---------------------------------------------------------------------------------------------

void GltfFields::refuse(ImportCode code, const std::string& what, const GltfPlace& place) const {
    // Whatever is wrong with a part of the document, whoever wrote it has to write it again.
    source.refuse(code, what, place.text(), std::string(infoOf(ImportCode::INVALID_MODEL).remedy));
}

std::uint64_t GltfFields::number(const picojson::value* object, const char* name, std::uint64_t fallback,
                                 const GltfPlace& place) const {
    const picojson::value* value = member(object, name);
    if (!value) return fallback;
    const auto whole = wholeNumber(value);
    if (!whole)
        refuse(ImportCode::INVALID_MODEL, std::string("\"") + name + "\" is not a whole number", place);
    return *whole;
}

std::optional<std::size_t> GltfFields::reference(const picojson::value* object, const char* name,
                                                 std::size_t size, const GltfPlace& place) const {
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

// ---- Buffers --------------------------------------------------------------------------------------------

void GltfBufferBytes::setRange(std::shared_ptr<const Content> from, std::uint64_t offset,
                               std::uint64_t count) {
    content = std::move(from);
    start = offset;
    length = count;
}

void GltfBufferBytes::setBase64(const std::string& text, std::size_t first) {
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

void GltfBufferBytes::read(std::uint64_t offset, void* out, std::size_t count) const {
    if (content) {
        content->read(start + offset, out, count);
    } else {
        std::memcpy(out, decoded.data() + offset, count);
    }
}

// ---- Accessors ------------------------------------------------------------------------------------------

std::uint64_t GltfAccessor::bytes() const {
    return bytesOfComponent(component) * componentsOf(type);
}

GltfAccessors::GltfAccessors(const GltfFields& fields, std::shared_ptr<const Content> whole,
                             std::uint64_t binaryOffset, std::uint64_t binaryLength)
    : fields(fields) {
    readBuffers(whole, binaryOffset, binaryLength);
    readViews();
    readAccessors();
}

void GltfAccessors::readBuffers(const std::shared_ptr<const Content>& whole, std::uint64_t binaryOffset,
                                std::uint64_t binaryLength) {
    const ModelSource& source = fields.source;
    allBytes = whole->size();
    const picojson::array& all = fields.list("buffers");
    buffers.resize(all.size());
    for (std::size_t b = 0; b < all.size(); ++b) {
        const GltfPlace place("buffers", b);
        const std::uint64_t stated = fields.number(&all[b], "byteLength", 0, place);
        const picojson::value* uri = member(&all[b], "uri");
        if (!uri) {
            // Only the first may stand for the binary chunk; others are filled by an extension.
            if (b == 0) buffers[b].setRange(whole, binaryOffset, binaryLength);
        } else if (!uri->is<std::string>()) {
            fields.refuse(ImportCode::INVALID_MODEL, "\"uri\" is not a string", place);
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
                              "it needs the file \"" + name + "\", which cannot be opened", place.text());
            }
            allBytes += file->size();
            const std::uint64_t size = file->size();
            buffers[b].setRange(std::move(file), 0, size);
        }
        if (stated > buffers[b].size()) {
            source.refuse(ImportCode::TRUNCATED,
                          "a buffer announces " + std::to_string(stated) + " bytes, there are " +
                              std::to_string(buffers[b].size()),
                          place.text());
        }
    }
}

void GltfAccessors::readViews() {
    const picojson::array& all = fields.list("bufferViews");
    views.reserve(all.size());
    for (std::size_t v = 0; v < all.size(); ++v) {
        const GltfPlace place("bufferViews", v);
        const auto buffer = fields.reference(&all[v], "buffer", buffers.size(), place);
        if (!buffer) fields.refuse(ImportCode::INVALID_MODEL, "\"buffer\" is missing", place);
        GltfBufferView view;
        view.buffer = *buffer;
        view.offset = fields.number(&all[v], "byteOffset", 0, place);
        view.length = fields.number(&all[v], "byteLength", 0, place);
        view.stride = fields.number(&all[v], "byteStride", 0, place);
        const std::uint64_t size = buffers[*buffer].size();
        if (view.offset > size || view.length > size - view.offset) {
            fields.refuse(ImportCode::IMPOSSIBLE_COUNT,
                          "it takes " + std::to_string(view.length) + " bytes from " +
                              std::to_string(view.offset) + " on, the buffer has " + std::to_string(size),
                          place);
        }
        views.push_back(view);
    }
}

void GltfAccessors::checkSparse(const picojson::value& sparse, const GltfAccessor& accessor,
                                const GltfPlace& place) const {
    const std::uint64_t count = fields.number(&sparse, "count", 0, place);
    const picojson::value* indices = member(&sparse, "indices");
    const picojson::value* values = member(&sparse, "values");
    const auto indexView = fields.reference(indices, "bufferView", views.size(), place);
    const auto valueView = fields.reference(values, "bufferView", views.size(), place);
    if (!indexView || !valueView)
        fields.refuse(ImportCode::INVALID_MODEL, "\"sparse\" lacks its indices or values", place);
    const std::uint64_t type = fields.number(indices, "componentType", 0, place);
    const std::uint64_t width = bytesOfComponent(type);
    const std::uint64_t indexOffset = fields.number(indices, "byteOffset", 0, place);
    const std::uint64_t valueOffset = fields.number(values, "byteOffset", 0, place);
    const GltfBufferView& from = views[*indexView];
    const GltfBufferView& with = views[*valueView];
    if (width == 0 || count > accessor.count || indexOffset > from.length ||
        count > (from.length - indexOffset) / width || valueOffset > with.length ||
        count > (with.length - valueOffset) / std::max<std::uint64_t>(1, accessor.bytes())) {
        fields.refuse(ImportCode::IMPOSSIBLE_COUNT,
                      "\"sparse\" announces more elements than its buffer views hold", place);
    }
    for (std::uint64_t i = 0; i < count; ++i) {
        std::uint32_t index = 0; // little-endian, as the file
        buffers[from.buffer].read(from.offset + indexOffset + i * width, &index, width);
        if (index >= accessor.count) {
            fields.refuse(ImportCode::INDEX_OUT_OF_RANGE,
                          "\"sparse\" replaces element " + std::to_string(index) + " of " +
                              std::to_string(accessor.count),
                          place);
        }
    }
}

void GltfAccessors::readAccessors() {
    const picojson::array& all = fields.list("accessors");
    accessors.reserve(all.size());
    for (std::size_t a = 0; a < all.size(); ++a) {
        const GltfPlace place("accessors", a);
        GltfAccessor accessor;
        accessor.view = fields.reference(&all[a], "bufferView", views.size(), place);
        accessor.offset = fields.number(&all[a], "byteOffset", 0, place);
        accessor.count = fields.number(&all[a], "count", 0, place);
        accessor.component = fields.number(&all[a], "componentType", 0, place);
        accessor.type = stringOf(member(&all[a], "type"));
        const picojson::value* sparse = member(&all[a], "sparse");
        accessor.sparse = sparse != nullptr;
        const std::uint64_t bytes = accessor.bytes();
        if (bytes == 0)
            fields.refuse(ImportCode::INVALID_MODEL, "its type or component type is unknown", place);
        std::uint64_t fits = 0;
        if (accessor.view) {
            const GltfBufferView& view = views[*accessor.view];
            const std::uint64_t step = view.stride > 0 ? view.stride : bytes;
            if (accessor.offset <= view.length && bytes <= view.length - accessor.offset)
                fits = (view.length - accessor.offset - bytes) / step + 1;
        } else {
            // Zeros, or compressed: not in the file, but no model is a thousandfold of its file.
            fits = 1000 * allBytes;
        }
        if (accessor.count > fits) {
            fields.refuse(ImportCode::IMPOSSIBLE_COUNT,
                          "it announces " + std::to_string(accessor.count) + " elements, there is room for " +
                              std::to_string(fits),
                          place);
        }
        if (sparse) checkSparse(*sparse, accessor, place);
        accessors.push_back(std::move(accessor));
    }
}

void GltfAccessors::checkIndices(const GltfAccessor& accessor, std::uint64_t vertices,
                                 const GltfPlace& place) const {
    if (!accessor.view || accessor.sparse) return;
    const GltfBufferView& view = views[*accessor.view];
    const std::uint64_t width = accessor.bytes();
    const std::uint64_t step = view.stride > 0 ? view.stride : width;
    constexpr std::uint64_t BLOCK = 16384;
    std::vector<unsigned char> block;
    for (std::uint64_t first = 0; first < accessor.count; first += BLOCK) {
        const std::uint64_t here = std::min(BLOCK, accessor.count - first);
        block.assign(static_cast<std::size_t>((here - 1) * step + width), 0);
        buffers[view.buffer].read(view.offset + accessor.offset + first * step, block.data(), block.size());
        std::uint32_t index = 0;
        const auto find = width == 1   ? firstOutOfRange<std::uint8_t>
                          : width == 2 ? firstOutOfRange<std::uint16_t>
                                       : firstOutOfRange<std::uint32_t>;
        const std::uint64_t bad = find(block.data(), here, step, vertices, index);
        if (bad == here) continue;
        fields.refuse(ImportCode::INDEX_OUT_OF_RANGE,
                      "index " + std::to_string(first + bad) + " is " + std::to_string(index) +
                          ", but there are only " + std::to_string(vertices) + " vertices",
                      place);
    }
}

} // namespace kel::importer::detail
