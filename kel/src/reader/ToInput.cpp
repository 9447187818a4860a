#include <kel/material/MaterialClassic.h>
#include <kel/mesh/KelMesh.h>
#include <kel/src/SrcDecode.h>
#include <kel/src/SrcJson.h>
#include <kel/src/SrcToInput.h>
#include <kel/src/encoding/Quantization.h>
#include <kel/src/format/ElementTypes.h>
#include <kel/src/format/FileLayout.h>
#include <kel/src/format/MaterialParameters.h>
#include <kel/src/format/MetadataKeys.h>
#include <kel/src/reader/FileData_p.h>
#include <kel/src/reader/RestorePositions_p.h>
#include <kel/src/text/JsonPointer.h>
#include <kel/src/text/JsonValues.h>

#include <map>
#include <utility>

namespace kel::src {

namespace {

using kel::material::MaterialClassic;
using kel::mesh::AttributeBuffer;
using kel::mesh::DefaultMesh;
using kel::mesh::IndexBuffer;

/// The bits of the container writer's quantizer when a view shows its fixed box, -0.5 to 0.5; else 0.
unsigned int bitsOfFixedBox(const SrcAttributeView& view) {
    constexpr unsigned int MOST = 24; // of more, the slots of three bytes do not hold the upper ones
    for (unsigned int bits = 1; bits <= MOST; ++bits) {
        const double largest = detail::getMaxCode(bits);
        bool matches = true;
        for (std::size_t c = 0; c < view.components; ++c)
            matches &= view.decodeScale[c] == largest && view.decodeOffset[c] == -0.5 * largest;
        if (matches && format::codeBytes(bits) == view.componentBytes) return bits;
    }
    return 0;
}

/// A decoded value of the fixed box, moved onto its code.
float onItsCode(float value, unsigned int bits) {
    const double largest = detail::getMaxCode(bits);
    const auto code = static_cast<std::uint32_t>(std::lround((static_cast<double>(value) + 0.5) * largest));
    return detail::onItsCode(value, code, 1.0 / largest, [&](float moved) {
        unsigned char stored[4];
        detail::quantizeValueUInt32(moved, bits, -0.5f, 1.0f, stored);
        return format::readUint32(stored);
    });
}

/// What sets each of format::MATERIAL_PARAMETERS. A parameter of one number has it in `value.x`.
using SetParameter = void (*)(MaterialClassic& material, const glm::vec3& value);
constexpr SetParameter SET_PARAMETER[] = {
    [](MaterialClassic& material, const glm::vec3& value) { material.setAmbient(value.x); },
    [](MaterialClassic& material, const glm::vec3& value) { material.setDiffuse(value); },
    [](MaterialClassic& material, const glm::vec3& value) { material.setEmissive(value); },
    [](MaterialClassic& material, const glm::vec3& value) { material.setShininess(value.x); },
    [](MaterialClassic& material, const glm::vec3& value) { material.setSpecular(value); },
    [](MaterialClassic& material, const glm::vec3& value) { material.setTransparency(value.x); },
};
static_assert(std::size(SET_PARAMETER) == std::size(format::MATERIAL_PARAMETERS));

bool hasKey(const std::vector<SrcMember>& members, std::string_view key) {
    return std::any_of(members.begin(), members.end(), [&](const SrcMember& m) { return m.key == key; });
}

class InputMaker {
public:
    InputMaker(const SrcFile& file, const ReadLimits& limits)
        : file(file), left(limits.memoryBytes), attributeBuffers(file.attributeViews().size()),
          indexBuffers(file.indexViews().size()) {}

    SrcWriterInput make() {
        for (const SrcMaterial& material : file.materials())
            addMaterial(material);
        for (const SrcMesh& mesh : file.meshes())
            addMesh(mesh);
        return std::move(input);
    }

private:
    void charge(std::uint32_t bufferView, std::uint64_t bytes) {
        const SrcBufferView& buffer = file.bufferViews()[bufferView];
        const std::uint64_t cost = bytes + buffer.chunkCount;
        if (cost > left)
            throw SrcError(SrcCode::LIMIT_EXCEEDED, SrcError::NO_OFFSET,
                           text::jsonPointer({format::section::BUFFER_VIEWS, buffer.id}),
                           "copies of the views need more than memoryBytes");
        left -= cost;
    }

    static std::uint32_t identifierOf(std::string_view id, std::uint32_t otherwise) {
        const std::string_view digits = id.substr(detail::IdTable::withoutNumber(id).size());
        double number = 0;
        if (!text::parseJsonNumber(digits, number) || number > 4294967295.0) return otherwise;
        return static_cast<std::uint32_t>(number);
    }

    void addMaterial(const SrcMaterial& source) {
        const auto position = static_cast<std::uint32_t>(materials.size());
        auto material = std::make_shared<MaterialClassic>(identifierOf(source.id, position));
        const std::vector<SrcMember> own = jsonMembers(source.values);
        for (std::size_t p = 0; p < std::size(format::MATERIAL_PARAMETERS); ++p) {
            const format::MaterialParameter& parameter = format::MATERIAL_PARAMETERS[p];
            if (!hasKey(own, parameter.name)) material->removeAttribute(std::string(parameter.attribute));
            const std::vector<double> values = file.materialParameter(source, parameter.name);
            if (values.size() != parameter.components) continue;
            glm::vec3 value(0.0f);
            for (std::size_t c = 0; c < values.size(); ++c)
                value[static_cast<int>(c)] = static_cast<float>(values[c]);
            SET_PARAMETER[p](*material, value);
        }
        input.materials.insert(material);
        materials.push_back(std::move(material));
    }

    template<typename Index>
    std::shared_ptr<IndexBuffer> typedIndices(const SrcIndexView& view) {
        std::vector<Index> indices(static_cast<std::size_t>(view.count));
        detail::copyElements(file, view, indices.data());
        return std::make_shared<kel::mesh::DefaultIndexBuffer<Index>>(std::move(indices));
    }

    std::shared_ptr<IndexBuffer> indicesOf(std::uint32_t position) {
        std::shared_ptr<IndexBuffer>& made = indexBuffers[position];
        if (made) return made;
        const SrcIndexView& view = file.indexViews()[position];
        const std::size_t size = kel::mesh::getComponentSizeInBytes(view.componentType);
        charge(view.bufferView, view.count * size);
        made = size == 1   ? typedIndices<std::uint8_t>(view)
               : size == 2 ? typedIndices<std::uint16_t>(view)
                           : typedIndices<std::uint32_t>(view);
        return made;
    }

    template<typename T>
    static std::shared_ptr<AttributeBuffer> packedBuffer(kel::mesh::ComponentType type,
                                                         std::size_t components, std::vector<T> values,
                                                         std::string_view name) {
        const std::size_t element = components * kel::mesh::getComponentSizeInBytes(type);
        return std::make_shared<kel::mesh::detail::DefaultAttributeBuffer>(
            type, components, element, 0,
            std::make_shared<kel::mesh::detail::TypedBufferData<T>>(std::move(values)), std::string(name));
    }

    static std::shared_ptr<AttributeBuffer> floatBuffer(std::size_t components, std::vector<float> values,
                                                        std::string_view name) {
        return packedBuffer(kel::mesh::FLOAT, components, std::move(values), name);
    }

    std::shared_ptr<AttributeBuffer> storedBuffer(const SrcAttributeView& view, std::string_view name) {
        std::vector<unsigned char> bytes(static_cast<std::size_t>(view.count) * view.components *
                                         view.componentBytes);
        detail::copyElements(file, view, bytes.data());
        return packedBuffer(view.componentType, view.components, std::move(bytes), name);
    }

    /// Decoded positions of the public writer, moved onto their codes.
    std::vector<float> positionsOf(const SrcMesh& mesh, const SrcAttributeView& view) {
        std::vector<float> values = decodeAttribute(file, view);
        std::vector<std::uint16_t> codes(values.size());
        detail::copyElements(file, view, codes.data());
        detail::restorePositions(mesh, view, codes, values);
        return values;
    }

    std::shared_ptr<AttributeBuffer> decodedBuffer(const SrcMesh& mesh, const SrcAttributeView& view,
                                                   std::string_view name) {
        const unsigned int bits = bitsOfFixedBox(view);
        const bool isPublic = bits == 0 && name == kel::mesh::DEFAULT_POSITIONS_NAME &&
                              view.components == 3 && view.componentType == kel::mesh::UNSIGNED_SHORT;
        if (isPublic) return floatBuffer(3, positionsOf(mesh, view), name);
        std::vector<float> values = decodeAttribute(file, view);
        if (bits != 0) {
            input.useCompressedPreset = true;
            for (float& value : values)
                value = onItsCode(value, bits);
        }
        return floatBuffer(view.components, std::move(values), name);
    }

    void addAttribute(DefaultMesh& mesh, const SrcMesh& source, const SrcAttribute& attribute) {
        std::shared_ptr<AttributeBuffer>& made = attributeBuffers[attribute.view];
        if (made && made->getAttributeName() == attribute.name) return mesh.addAttribute(made);

        const SrcAttributeView& view = file.attributeViews()[attribute.view];
        charge(view.bufferView, view.count * view.components * sizeof(float));
        if (isCombinedPositionNormal(attribute, view)) {
            charge(view.bufferView, view.count * 2 * sizeof(float));
            mesh.addAttribute(floatBuffer(3, positionsOf(source, detail::positionPart(view)),
                                          kel::mesh::DEFAULT_POSITIONS_NAME));
            mesh.addAttribute(
                floatBuffer(3, decodeCombinedNormals(file, view), kel::mesh::DEFAULT_NORMALS_NAME));
            return;
        }
        const bool isStoredAsIs = !view.decoded && view.componentBytes != format::WIDE_CODE_BYTES;
        made =
            isStoredAsIs ? storedBuffer(view, attribute.name) : decodedBuffer(source, view, attribute.name);
        mesh.addAttribute(made);
    }

    /// The attributes in the order in which they were written: by where their bytes lie, and where those are
    /// none, by the numbers in the IDs of the views.
    std::vector<SrcAttribute> writtenOrder(const SrcMesh& mesh) const {
        std::vector<SrcAttribute> order = detail::ownAttributes(file, mesh);
        const auto place = [&](const SrcAttribute& attribute) {
            const SrcAttributeView& view = file.attributeViews()[attribute.view];
            const SrcBufferView& buffer = file.bufferViews()[view.bufferView];
            const std::uint64_t begin =
                buffer.chunkCount == 0 ? 0 : file.chunks()[file.viewChunks()[buffer.firstChunk]].byteOffset;
            return std::make_tuple(begin, view.byteOffset, view.id.size(), view.id);
        };
        std::stable_sort(order.begin(), order.end(),
                         [&](const SrcAttribute& a, const SrcAttribute& b) { return place(a) < place(b); });
        return order;
    }

    /// What the mesh is made of. The container writer calls everything triangles, but counts what it was.
    static kel::mesh::PrimitiveType primitiveOf(const SrcMesh& mesh, const std::vector<SrcMember>& metadata) {
        if (mesh.primitive != kel::mesh::TRIANGLES || hasKey(metadata, format::metadata::NUM_TRIANGLES))
            return mesh.primitive;
        if (hasKey(metadata, format::metadata::NUM_LINES)) return kel::mesh::LINES;
        if (hasKey(metadata, format::metadata::NUM_POINTS)) return kel::mesh::POINTS;
        return mesh.primitive;
    }

    void addMesh(const SrcMesh& source) {
        const std::vector<SrcMember> metadata = jsonMembers(source.metadata);
        auto mesh = std::make_shared<DefaultMesh>(primitiveOf(source, metadata));
        if (source.indexView != SRC_NONE) mesh->setIndexBuffer(indicesOf(source.indexView));
        for (const SrcAttribute& attribute : writtenOrder(source))
            addAttribute(*mesh, source, attribute);
        if (!source.metadata.empty() && source.metadata[0] == '{') {
            auto texts = std::make_shared<std::map<std::string, std::string>>();
            for (const SrcMember& member : metadata)
                texts->emplace(member.key, member.json);
            input.metaData[mesh] = std::move(texts);
        }
        if (source.material != SRC_NONE) input.meshMaterials[mesh] = materials[source.material];
        input.meshes.push_back(std::move(mesh));
    }

    const SrcFile& file;
    std::uint64_t left;
    SrcWriterInput input;
    std::vector<std::shared_ptr<MaterialClassic>> materials;
    std::vector<std::shared_ptr<AttributeBuffer>> attributeBuffers;
    std::vector<std::shared_ptr<IndexBuffer>> indexBuffers;
};

} // namespace

SrcWriterInput toInput(const SrcFile& file, const ReadLimits& limits) {
    return InputMaker(file, limits).make();
}

} // namespace kel::src
