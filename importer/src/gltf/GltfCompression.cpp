#include "GltfCompression.h"

#include <draco/compression/decode.h>
#include <meshoptimizer.h>

#include <algorithm>
#include <memory>
#include <string>

namespace kel::importer::detail {

namespace {

using Mode = GltfPackedView::Mode;
using Filter = GltfPackedView::Filter;

/// The codec for vertices writes zeros in a 64th of their bytes, and the others come to less.
constexpr std::uint64_t LARGEST_RATIO = 64;

std::optional<kel::mesh::ComponentType> componentTypeOf(draco::DataType type) {
    switch (type) {
    case draco::DT_INT8:
        return kel::mesh::BYTE;
    case draco::DT_UINT8:
    case draco::DT_BOOL:
        return kel::mesh::UNSIGNED_BYTE;
    case draco::DT_INT16:
        return kel::mesh::SHORT;
    case draco::DT_UINT16:
        return kel::mesh::UNSIGNED_SHORT;
    case draco::DT_INT32:
        return kel::mesh::INT;
    case draco::DT_UINT32:
        return kel::mesh::UNSIGNED_INT;
    case draco::DT_FLOAT32:
        return kel::mesh::FLOAT;
    default:
        return std::nullopt;
    }
}

} // namespace

void checkPackedView(const GltfObject& object, const GltfPackedView& view) {
    const auto refuse = [&](const std::string& what) { object.refuse(ImportCode::INVALID_MODEL, what); };
    const std::uint64_t stride = view.stride;
    if (!view.packed.data) refuse("its buffer has no bytes");
    if (view.mode == Mode::ATTRIBUTES ? stride == 0 || stride > 256 || stride % 4 != 0
                                      : stride != 2 && stride != 4)
        refuse("\"byteStride\" is " + std::to_string(stride));
    if (view.mode == Mode::TRIANGLES && view.count % 3 != 0)
        refuse("\"count\" is " + std::to_string(view.count) + ", which makes no whole triangles");
    const bool fits = view.filter == Filter::OCTAHEDRAL   ? stride == 4 || stride == 8
                      : view.filter == Filter::QUATERNION ? stride == 8
                                                          : true;
    if (!fits || (view.filter != Filter::NONE && view.mode != Mode::ATTRIBUTES))
        refuse("its \"filter\" does not go with its \"mode\" and \"byteStride\"");
    // Every block has a head of its own, which counts where there is little else.
    if (view.count > LARGEST_RATIO * view.packed.length / stride + 256) {
        object.refuse(ImportCode::IMPOSSIBLE_COUNT, "it announces " + std::to_string(view.count) +
                                                        " elements, but has " +
                                                        std::to_string(view.packed.length) + " bytes");
    }
}

void decodePackedView(const ModelSource& source, const GltfPlace& place, GltfPackedView& view) {
    const auto count = static_cast<std::size_t>(view.count);
    const auto stride = static_cast<std::size_t>(view.stride);
    const auto length = static_cast<std::size_t>(view.packed.length);
    std::vector<unsigned char> bytes(count * stride);
    int failure = 0;
    switch (view.mode) {
    case Mode::ATTRIBUTES:
        failure = meshopt_decodeVertexBuffer(bytes.data(), count, stride, view.packed.data, length);
        break;
    case Mode::TRIANGLES:
        failure = meshopt_decodeIndexBuffer(bytes.data(), count, stride, view.packed.data, length);
        break;
    case Mode::INDICES:
        failure = meshopt_decodeIndexSequence(bytes.data(), count, stride, view.packed.data, length);
        break;
    }
    if (failure != 0) {
        // The first byte is the codec in one half, and its version in the other.
        const unsigned codec = view.mode == Mode::ATTRIBUTES  ? 0xA0
                               : view.mode == Mode::TRIANGLES ? 0xE0
                                                              : 0xD0;
        const unsigned known = view.mode == Mode::ATTRIBUTES ? 0 : 1;
        const unsigned first = length > 0 ? view.packed.data[0] : 0u;
        const unsigned version = first & 0x0Fu;
        if ((first & 0xF0u) == codec && version > known) {
            source.refuse(ImportCode::UNSUPPORTED_FEATURE,
                          "it is compressed by version " + std::to_string(version) +
                              " of a codec of which version " + std::to_string(known) + " is known",
                          place.text(), "compress the model with an older version");
        }
        refuseGltf(source, ImportCode::INVALID_MODEL, "its compressed bytes are damaged", place.text());
    }
    if (view.filter == Filter::OCTAHEDRAL) {
        meshopt_decodeFilterOct(bytes.data(), count, stride);
    } else if (view.filter == Filter::QUATERNION) {
        meshopt_decodeFilterQuat(bytes.data(), count, stride);
    } else if (view.filter == Filter::EXPONENTIAL) {
        meshopt_decodeFilterExp(bytes.data(), count, stride);
    }
    view.bytes = std::move(bytes);
}

DracoMesh decodeDraco(const ModelSource& source, const GltfPlace& place, const GltfBytes& bytes,
                      const std::vector<std::uint32_t>& identifiers) {
    const auto refuse = [&](const std::string& what) {
        refuseGltf(source, ImportCode::INVALID_MODEL, what, place.text());
    };
    draco::DecoderBuffer buffer;
    buffer.Init(reinterpret_cast<const char*>(bytes.data), static_cast<std::size_t>(bytes.length));
    draco::Decoder decoder;
    auto decoded = decoder.DecodeMeshFromBuffer(&buffer);
    if (!decoded.ok()) refuse(std::string("its Draco data are damaged: ") + decoded.status().error_msg());
    const std::unique_ptr<draco::Mesh> mesh = std::move(decoded).value();

    DracoMesh result;
    result.vertices = mesh->num_points();
    result.indices.reserve(3 * std::size_t{mesh->num_faces()});
    for (draco::FaceIndex f(0); f < mesh->num_faces(); ++f) {
        for (const draco::PointIndex& corner : mesh->face(f)) {
            if (corner.value() >= result.vertices) refuse("its Draco data use a vertex that does not exist");
            result.indices.push_back(corner.value());
        }
    }
    for (const std::uint32_t identifier : identifiers) {
        const draco::PointAttribute* attribute = mesh->GetAttributeByUniqueId(identifier);
        if (!attribute) refuse("its Draco data have no attribute " + std::to_string(identifier));
        const auto type = componentTypeOf(attribute->data_type());
        if (!type) {
            source.refuse(ImportCode::UNSUPPORTED_FEATURE,
                          "the numbers of attribute " + std::to_string(identifier) +
                              " of its Draco data have a type that glTF does not have",
                          place.text());
        }
        DracoAttribute& out = result.attributes.emplace_back();
        out.type = *type;
        out.width = static_cast<std::uint32_t>(attribute->num_components());
        const auto each = static_cast<std::size_t>(attribute->byte_stride());
        out.bytes.resize(result.vertices * each);
        for (draco::PointIndex p(0); p < mesh->num_points(); ++p) {
            const draco::AttributeValueIndex value = attribute->mapped_index(p);
            if (value.value() >= attribute->size()) refuse("its Draco data use a value that does not exist");
            attribute->GetValue(value, &out.bytes[p.value() * each]);
        }
    }
    return result;
}

} // namespace kel::importer::detail
