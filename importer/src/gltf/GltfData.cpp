#include "GltfData.h"

#include "GltfCompression.h"

#include <kel/src/format/ElementTypes.h>

#include <algorithm>
#include <utility>

namespace kel::importer::detail {

namespace {

std::string text(std::uint64_t number) {
    return std::to_string(number);
}

bool isFallback(const GltfObject& buffer, const char* extension) {
    const GltfPlace extensions(buffer.place(), "extensions");
    const GltfPlace place(&extensions, extension);
    return buffer.child("extensions", extensions).child(extension, place).flag("fallback");
}

/// Refuses what does not lie within its buffer.
GltfBytes within(const GltfObject& object, const GltfBytes& buffer) {
    const std::uint64_t offset = object.whole("byteOffset", 0);
    const std::uint64_t length = object.whole("byteLength", 0);
    if (offset > buffer.length || length > buffer.length - offset) {
        object.refuse(ImportCode::IMPOSSIBLE_COUNT, "it takes " + text(length) + " bytes from " +
                                                        text(offset) + " on, the buffer has " +
                                                        text(buffer.length));
    }
    return {buffer.data ? buffer.data + offset : nullptr, length};
}

class DataReader {
public:
    DataReader(const GltfObject& document, const Content& file, std::string_view chunk)
        : document(document), chunk(chunk) {
        data.files.push_back(file);
        data.fileBytes = file.size();
    }

    GltfData read() {
        document.forEachObject("buffers", [&](const GltfObject& buffer) { addBuffer(buffer); });
        data.views.reserve(document.sizeOf("bufferViews"));
        data.accessors.reserve(document.sizeOf("accessors"));
        document.forEachObject("bufferViews", [&](const GltfObject& view) { addView(view); });
        document.forEachObject("accessors", [&](const GltfObject& accessor) { addAccessor(accessor); });
        return std::move(data);
    }

private:
    const GltfObject& document;
    std::string_view chunk;
    std::vector<GltfBytes> buffers;
    GltfData data;

    static GltfBytes bytesIn(std::string_view text) {
        return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
    }

    void addBuffer(const GltfObject& buffer) {
        const std::uint64_t stated = buffer.whole("byteLength", 0);
        GltfBytes bytes;
        if (!buffer.has("uri")) {
            if (buffers.empty() && chunk.data()) {
                bytes = bytesIn(chunk);
            } else if (isFallback(buffer, "EXT_meshopt_compression") ||
                       isFallback(buffer, "KHR_meshopt_compression")) {
                bytes.length = stated; // stands for what views decode to, and takes no memory
            }
        } else {
            const std::string_view uri = buffer.string("uri");
            if (uri.substr(0, 5) == "data:") {
                bytes = bytesIn(data.decoded.emplace_back(bytesOfDataUri(uri)));
            } else {
                Content file = contentBeside(buffer.model(), std::string(uri));
                if (!file.opened()) {
                    buffer.model().refuse(ImportCode::MISSING_FILE,
                                          "it needs the file \"" + std::string(uri) +
                                              "\", which cannot be opened",
                                          buffer.place()->text());
                }
                bytes = bytesIn({file.data(), static_cast<std::size_t>(file.size())});
                data.fileBytes += bytes.length;
                data.files.push_back(std::move(file));
            }
        }
        if (stated > bytes.length) {
            buffer.model().refuse(ImportCode::TRUNCATED,
                                  "a buffer announces " + text(stated) + " bytes, there are " +
                                      text(bytes.length),
                                  buffer.place()->text());
        }
        buffers.push_back(bytes);
    }

    void addView(const GltfObject& object) {
        GltfView view;
        view.bytes = within(object, buffers[object.needed("buffer", buffers.size())]);
        view.stride = object.whole("byteStride", 0);
        const GltfPlace extensions(object.place(), "extensions");
        const GltfObject extended = object.child("extensions", extensions);
        for (const char* name : {"EXT_meshopt_compression", "KHR_meshopt_compression"}) {
            const GltfPlace place(&extensions, name);
            if (const GltfObject packed = extended.child(name, place)) addPacked(packed, view);
        }
        data.views.push_back(std::move(view));
    }

    void addPacked(const GltfObject& object, GltfView& view) {
        view.packed = std::make_unique<GltfPackedView>();
        GltfPackedView& packed = *view.packed;
        packed.packed = within(object, buffers[object.needed("buffer", buffers.size())]);
        packed.stride = object.whole("byteStride", 0);
        packed.count = object.whole("count", 0);
        const auto choose = [&](const char* name, std::string_view fallback,
                                std::initializer_list<std::string_view> names) {
            const std::string_view given = object.has(name) ? object.string(name) : fallback;
            const auto found = std::find(names.begin(), names.end(), given);
            if (found == names.end()) {
                object.model().refuse(ImportCode::UNSUPPORTED_FEATURE,
                                      "the data are compressed with the unknown " + std::string(name) +
                                          " \"" + std::string(given) + "\"",
                                      object.place()->text());
            }
            return static_cast<std::uint8_t>(found - names.begin());
        };
        packed.mode =
            static_cast<GltfPackedView::Mode>(choose("mode", "", {"ATTRIBUTES", "TRIANGLES", "INDICES"}));
        packed.filter = static_cast<GltfPackedView::Filter>(
            choose("filter", "NONE", {"NONE", "OCTAHEDRAL", "QUATERNION", "EXPONENTIAL"}));
        checkPackedView(object, packed);
        // The view itself may lie in a buffer that has no bytes; what it says of their number has to be true.
        if (view.bytes.length > packed.count * packed.stride) {
            object.refuse(ImportCode::IMPOSSIBLE_COUNT, "the view has " + text(view.bytes.length) +
                                                            " bytes, but decodes to " +
                                                            text(packed.count * packed.stride));
        }
    }

    void addAccessor(const GltfObject& object) {
        GltfAccessor accessor;
        accessor.view = object.reference("bufferView", data.views.size());
        accessor.offset = object.whole("byteOffset", 0);
        accessor.count = object.whole("count", 0);
        accessor.type = componentTypeOf(object);
        accessor.normalized = object.flag("normalized");
        setWidth(object, accessor);
        if (const std::uint64_t fits = roomFor(accessor); accessor.count > fits) {
            object.refuse(ImportCode::IMPOSSIBLE_COUNT, "it announces " + text(accessor.count) +
                                                            " elements, there is room for " + text(fits));
        }
        const GltfPlace place(object.place(), "sparse");
        if (const GltfObject sparse = object.child("sparse", place)) addSparse(sparse, accessor);
        data.accessors.push_back(std::move(accessor));
    }

    static kel::mesh::ComponentType componentTypeOf(const GltfObject& object) {
        const std::uint64_t type = object.whole("componentType", 0);
        if (bytesOfComponent(type) == 0)
            object.refuse(ImportCode::INVALID_MODEL, "its component type is unknown");
        return static_cast<kel::mesh::ComponentType>(type);
    }

    static void setWidth(const GltfObject& object, GltfAccessor& accessor) {
        const std::string_view type = object.string("type");
        const auto* const first = std::begin(kel::src::format::ELEMENT_TYPES);
        const auto* const end = std::end(kel::src::format::ELEMENT_TYPES);
        const auto* const found = std::find(first, end, type);
        accessor.matrix = type == "MAT2" || type == "MAT3" || type == "MAT4";
        if (found == end && !accessor.matrix) object.refuse(ImportCode::INVALID_MODEL, "its type is unknown");
        const auto rows = static_cast<std::uint32_t>(accessor.matrix ? type[3] - '0' : found - first + 1);
        accessor.width = accessor.matrix ? rows * rows : rows;
    }

    /// How many elements there can be.
    std::uint64_t roomFor(const GltfAccessor& accessor) const {
        // Zeros, or values that an extension has compressed: not in the file, but no model is a thousandfold of it.
        if (!accessor.view) return 1000 * data.fileBytes;
        const GltfView& view = data.views[*accessor.view];
        const std::uint64_t bytes = accessor.bytes();
        const std::uint64_t step = view.stride > 0 ? view.stride : bytes;
        const bool holdsNone = !view.bytes.data && !view.packed;
        if (holdsNone || accessor.offset > view.bytes.length || bytes > view.bytes.length - accessor.offset)
            return 0;
        return (view.bytes.length - accessor.offset - bytes) / step + 1;
    }

    void addSparse(const GltfObject& object, GltfAccessor& accessor) {
        const GltfPlace indexPlace(object.place(), "indices");
        const GltfPlace valuePlace(object.place(), "values");
        const GltfObject indices = object.child("indices", indexPlace);
        const GltfObject values = object.child("values", valuePlace);
        accessor.sparse = std::make_unique<GltfSparse>();
        GltfSparse& sparse = *accessor.sparse;
        sparse.count = object.whole("count", 0);
        sparse.indexView = indices.needed("bufferView", data.views.size());
        sparse.valueView = values.needed("bufferView", data.views.size());
        sparse.indexOffset = indices.whole("byteOffset", 0);
        sparse.valueOffset = values.whole("byteOffset", 0);
        sparse.indexType = componentTypeOf(indices);
        const auto fits = [&](std::size_t index, std::uint64_t offset, std::uint64_t each) {
            const GltfView& view = data.views[index];
            return (view.bytes.data || view.packed) && offset <= view.bytes.length &&
                   sparse.count <= (view.bytes.length - offset) / each;
        };
        if (sparse.count > accessor.count ||
            !fits(sparse.indexView, sparse.indexOffset, bytesOfComponent(sparse.indexType)) ||
            !fits(sparse.valueView, sparse.valueOffset, accessor.bytes())) {
            object.refuse(ImportCode::IMPOSSIBLE_COUNT,
                          "it announces more elements than its buffer views hold");
        }
        if (!kel::src::format::componentType(sparse.indexType)->forIndices)
            indices.refuse(ImportCode::INVALID_MODEL, "the indices are not unsigned whole numbers");
    }
};

} // namespace

std::uint64_t bytesOfComponent(std::uint64_t type) {
    // glTF has no signed integers of four bytes.
    const auto* row = type == kel::mesh::INT ? nullptr : kel::src::format::componentType(type);
    return row ? row->bytes : 0;
}

std::uint64_t GltfAccessor::bytes() const {
    const std::uint64_t component = bytesOfComponent(type);
    if (!matrix) return width * component;
    const std::uint64_t rows = width == 4 ? 2 : width == 9 ? 3 : 4;
    return rows * ((rows * component + 3) / 4 * 4);
}

GltfBytes GltfData::bytesOf(const ModelSource& source, std::size_t view) const {
    if (!views[view].packed) return views[view].bytes;
    GltfPackedView& packed = *views[view].packed;
    if (packed.bytes.empty()) decodePackedView(source, GltfPlace("bufferViews", view), packed);
    return {packed.bytes.data(), packed.bytes.size()};
}

GltfData readGltfData(const GltfObject& document, const Content& file, std::string_view binaryChunk) {
    return DataReader(document, file, binaryChunk).read();
}

} // namespace kel::importer::detail
