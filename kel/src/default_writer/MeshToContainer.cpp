#include <kel/src/default_writer/MeshToContainer.h>

#include <kel/mesh/AttributeNames.h>
#include <kel/src/MeshUtils.h>
#include <kel/src/PackedAccess.h>
#include <kel/src/encoding/Quantization.h>

#include <picojson.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iostream>
#include <utility>
#include <vector>

namespace kel::src::detail {

namespace {

using Bytes = std::vector<unsigned char>;

/// Bits for an adaptive precision. The exponent is compared as an unsigned number, so extents up to one half,
/// whose logarithm is not positive, count as huge and take 32 bits.
std::uint32_t adaptiveBits(const glm::tvec3<float>& size, unsigned int components) {
    float largest = size.x < 0.0f ? 0.0f : size.x;
    for (unsigned int c = 1; c < components; ++c) {
        if (largest < size[static_cast<int>(c)]) largest = size[static_cast<int>(c)];
    }
    const float exponent = std::ceil(std::log(largest) / 0.6931472f);
    // No integer holds an infinity or a NaN; the conversion's low 32 bits are then zero.
    const auto bits =
        std::isfinite(exponent) ? static_cast<std::uint32_t>(static_cast<std::int64_t>(exponent)) : 0u;
    return bits <= 8 ? 8 : bits <= 16 ? 16 : 32;
}

/// Stores packed elements, which are either the caller's `data`, to be copied, or `owned`, to be handed on.
template<unsigned int N>
void storeAttribute(const std::string& name, std::map<std::string, std::string>& attributeIds,
                    const unsigned char* data, Bytes&& owned, unsigned long count,
                    const glm::tvec3<float>& bboxCenter, const glm::tvec3<float>& bboxSize,
                    ShapeResourceContainer& container, const SRCEncodingConfig& config) {
    const auto found = config.precision.find(name);
    if (found == config.precision.end()) {
        std::cout << "Cannot create SRC attribute view: attribute precision not known for attribute \""
                  << name << "\"" << std::endl;
        return;
    }
    std::uint32_t bits = found->second;
    auto type = ShapeResourceContainer::FLOAT;
    std::size_t bytesPerElement = sizeof(float) * N;
    double decodeOffset[N] = {}, decodeScale[N];
    std::fill_n(decodeScale, N, 1.0);
    std::string bufferViewId;
    if (bits == 32) {
        bufferViewId = owned.empty() ? container.addBufferView(data, bytesPerElement * count, nullptr)
                                     : container.addBufferView(std::move(owned));
    } else {
        float min[3];
        for (int c = 0; c < 3; ++c)
            min[c] = bboxCenter[c] - 0.5f * bboxSize[c];
        if (bits == 0) {
            bits = adaptiveBits(bboxSize, N);
            // The number counts bits although the text says bytes, on purpose: log filters match the text as it is.
            std::cerr << "Writing attribute \"" << name << "\" with adaptive precision of " << bits
                      << " bytes." << std::endl;
        }
        Bytes codes;
        bytesPerElement = 0;
        quantizeToNBits(reinterpret_cast<const float*>(data), count, N, min, &bboxSize.x, bits, false, codes,
                        type, bytesPerElement, decodeOffset, decodeScale);
        bufferViewId = container.addBufferView(std::move(codes));
    }
    attributeIds[name] = container.addAttributeView<N>(bufferViewId, 0, bytesPerElement, count, type,
                                                       decodeOffset, decodeScale);
}

template<typename Index>
std::string storeIndices(const kel::mesh::IndexBuffer& indices, std::size_t count,
                         ShapeResourceContainer::SRCDataType type, ShapeResourceContainer& container) {
    const std::size_t size = count * sizeof(Index);
    if (const Index* packed = packedIndices<Index>(indices)) {
        const auto* bytes = reinterpret_cast<const unsigned char*>(packed);
        return container.addIndexView(container.addBufferView(bytes, size, nullptr), 0, count, type);
    }
    Bytes bytes(size);
    for (std::size_t i = 0; i < count; ++i) {
        const auto index = static_cast<Index>(indices.getIndex(i));
        std::memcpy(bytes.data() + i * sizeof index, &index, sizeof index);
    }
    return container.addIndexView(container.addBufferView(std::move(bytes)), 0, count, type);
}

} // namespace

template<unsigned int N>
void createAttributeView(const std::string& name, std::map<std::string, std::string>& attributeIds,
                         const unsigned char* data, unsigned long count, const glm::tvec3<float>& bboxCenter,
                         const glm::tvec3<float>& bboxSize, ShapeResourceContainer& container,
                         const SRCEncodingConfig& config) {
    storeAttribute<N>(name, attributeIds, data, {}, count, bboxCenter, bboxSize, container, config);
}

template KELSRC_EXPORT void createAttributeView<1>(const std::string&, std::map<std::string, std::string>&,
                                                   const unsigned char*, unsigned long,
                                                   const glm::tvec3<float>&, const glm::tvec3<float>&,
                                                   ShapeResourceContainer&, const SRCEncodingConfig&);
template KELSRC_EXPORT void createAttributeView<2>(const std::string&, std::map<std::string, std::string>&,
                                                   const unsigned char*, unsigned long,
                                                   const glm::tvec3<float>&, const glm::tvec3<float>&,
                                                   ShapeResourceContainer&, const SRCEncodingConfig&);
template KELSRC_EXPORT void createAttributeView<3>(const std::string&, std::map<std::string, std::string>&,
                                                   const unsigned char*, unsigned long,
                                                   const glm::tvec3<float>&, const glm::tvec3<float>&,
                                                   ShapeResourceContainer&, const SRCEncodingConfig&);

std::string addMeshToSrc(ShapeResourceContainer& container, std::map<std::string, std::string>& attributeIds,
                         unsigned long meshIndex, kel::mesh::MeshPtr mesh, MetaDataPtr metaData,
                         SRCEncodingConfig& config) {
    const auto indices = mesh->getIndexBuffer();
    if (!indices) {
        std::cerr << "Mesh " << meshIndex
                  << " has no index buffer and is skipped; give it one index per vertex.\n";
        return "";
    }
    const std::size_t indexCount = indices->getElementCount();
    const std::string indexViewId =
        indices->getElementSizeInBytes() <= 2
            ? storeIndices<std::uint16_t>(*indices, indexCount, ShapeResourceContainer::USHORT, container)
            : storeIndices<std::uint32_t>(*indices, indexCount, ShapeResourceContainer::UINT, container);

    const glm::tvec3<float> boxCenter(0.0f, 0.0f, 0.0f), boxSize(1.0f, 1.0f, 1.0f);
    const std::size_t attributeCount = mesh->getNumAttributeBuffers();
    for (std::size_t i = 0; i < attributeCount; ++i) {
        const auto buffer = mesh->getAttributeBuffer(i);
        const std::size_t components = buffer->getComponentCountPerElement();
        const std::string name = buffer->getAttributeName();
        const std::size_t count = buffer->getElementCount();
        const std::size_t elementSize = buffer->getElementSizeInBytes();
        const unsigned char* data = nullptr;
        Bytes owned;
        if (const ElementSpan span = elementsInMemory(*buffer, count); span.isPacked(elementSize)) {
            data = span.first;
        } else {
            owned.resize(count * elementSize);
            copyElements(*buffer, count, elementSize, owned.data());
            data = owned.data();
        }
        if (components == 0 || components > 3) {
            std::cout << "Invalid component count " << components << " for " << name << std::endl;
        } else if (elementSize != components * sizeof(float)) {
            std::cout << "Invalid component type " << buffer->getComponentType() << " for " << name
                      << ": only components of 4 bytes can be written" << std::endl;
        } else {
            const auto store = components == 3   ? storeAttribute<3>
                               : components == 2 ? storeAttribute<2>
                                                 : storeAttribute<1>;
            store(name, attributeIds, data, std::move(owned), count, boxCenter, boxSize, container, config);
        }
    }

    glm::vec3 center(0.0f, 0.0f, 0.0f), size(0.5f, 0.5f, 0.5f);
    const auto positions = mesh->getAttributeBuffer(kel::mesh::DEFAULT_POSITIONS_NAME);
    if (!positions) {
        std::cerr << "No attribute buffer with default positions name \"" << kel::mesh::DEFAULT_POSITIONS_NAME
                  << "\" found in mesh" << std::endl;
        return "";
    }
    computeBoundingBoxCenterSize(positions, center, size);

    const std::string meshId = std::to_string(meshIndex);
    container.addMesh(meshId, attributeIds, indexViewId, "", ShapeResourceContainer::TRIANGLES, &center.x,
                      &size.x, picojson::value());

    if (!metaData) metaData = std::make_shared<std::map<std::string, std::string>>();
    addStatisticsMetaData(mesh, metaData);
    for (const auto& [key, text] : *metaData) {
        // A text that is no JSON is no error: the value is what the parser had when it stopped, mostly null.
        picojson::value value;
        std::string ignored;
        picojson::parse(value, text.begin(), text.end(), &ignored);
        container.addMetaDataToMesh(key, value, meshId);
    }
    return meshId;
}

} // namespace kel::src::detail
