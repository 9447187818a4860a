#include <kel/src/SrcLibWriterImpl.h>

#include <kel/material/MaterialClassic.h>
#include <kel/mesh/AttributeNames.h>
#include <kel/mesh/QuantizeVec3.h>
#include <kel/mesh/Transforms.h>
#include <kel/mesh/detail/AttributeBufferDataView.h>
#include <kel/src/MeshUtils.h>
#include <kel/src/PackedAccess.h>
#include <kel/src/SrcWriter.h>
#include <kel/src/format/ElementTypes.h>
#include <kel/src/format/FileLayout.h>
#include <kel/src/format/MaterialParameters.h>
#include <kel/src/kernels/Kernels.h>
#include <kel/src/text/JsonWriter.h>

#include <logging/Logger.h>
#include <src/SrcWriter.h>
#include <src/Technique.h>
#include <src/builder/MaterialBuilder.h>
#include <src/builder/TechniqueBuilder.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <stdexcept>
#include <utility>

namespace kel::src::detail {

namespace {

using kel::mesh::AttributeBuffer;
using kel::mesh::DEFAULT_NORMALS_NAME;
using kel::mesh::DEFAULT_POSITIONS_NAME;
using Doubles = std::shared_ptr<std::vector<double>>;
/// An array on its way to the builder, which frees what it takes.
using Bytes = std::unique_ptr<unsigned char[]>;

constexpr const char* SOURCE_FILE = "kel/src/SrcLibWriterImpl";
// What the log names as the function. A fixed text, because a compiler's own spelling differs from one compiler to
// the next, and filters match this one.
constexpr const char* DRIVER_FUNCTION =
    "void kel::src::detail::writeMeshSrcTemplate(const std::vector<std::shared_ptr<kel::mesh::Mesh> >&, "
    "const std::map<std::shared_ptr<kel::mesh::Mesh>, std::shared_ptr<std::map<std::basic_string<char>, "
    "std::basic_string<char> > > >&, const std::set<std::shared_ptr<kel::material::Material> >&, const "
    "std::map<std::shared_ptr<kel::mesh::Mesh>, std::shared_ptr<kel::material::Material> >&, std::ostream&, "
    "MeshCreateFunction) [with MeshCreateFunction = void (*)(const std::shared_ptr<kel::mesh::Mesh>&, "
    "std::shared_ptr<src::builder::MeshBuilder>&, std::shared_ptr<src::builder::SrcBuilder>&); std::ostream "
    "= std::basic_ostream<char>]";

constexpr std::size_t POSITION_CODE_BYTES = 3 * sizeof(std::uint16_t);
constexpr std::size_t PACKED_VERTEX_BYTES = 8;
constexpr std::size_t NORMAL_OFFSET = 6;

std::size_t arraySize(std::size_t count, std::size_t elementSize) {
    std::size_t bytes = 0;
    if (__builtin_mul_overflow(count, elementSize, &bytes)) throw std::bad_array_new_length();
    return bytes;
}

// ---- Indices ---------------------------------------------------------------------------------------------

std::shared_ptr<::src::IndexView> addIndexView(const kel::mesh::Mesh& mesh,
                                               ::src::builder::SrcBuilder& builder) {
    const auto indices = mesh.getIndexBuffer();
    if (!indices) return {};
    const std::size_t count = indices->getElementCount();
    std::unique_ptr<unsigned short[]> narrowed(new unsigned short[count]);
    // Indices above 65535 wrap: whoever has them cuts the mesh before.
    forEachIndex(*indices, count, [to = narrowed.get()](std::size_t k, std::size_t index) {
        to[k] = static_cast<unsigned short>(index);
    });
    return builder.addDefaultIndexView(narrowed.release(), ::src::UNSIGNED_SHORT, count);
}

// ---- Attributes ------------------------------------------------------------------------------------------

void addAttributeAsStored(const AttributeBuffer& buffer, ::src::builder::MeshBuilder& meshBuilder,
                          ::src::builder::SrcBuilder& builder) {
    const std::size_t count = buffer.getElementCount();
    const std::size_t elementSize = buffer.getElementSizeInBytes();
    const std::size_t size = arraySize(count, elementSize);
    Bytes bytes(new unsigned char[size]);
    copyElements(buffer, count, elementSize, bytes.get());

    const ::src::ComponentType type = meshComponentTypeToSrcComponentType(buffer.getComponentType());
    const std::size_t components = buffer.getComponentCountPerElement();
    // The builder knows the array's length by this description only. A buffer whose own element size falls
    // short of it would have the builder read past the end.
    const std::size_t componentSize = format::componentType(type)->bytes;
    const std::size_t declared = arraySize(count, arraySize(components, componentSize));
    if (declared > size) {
        Bytes longer(new unsigned char[declared]());
        std::copy_n(bytes.get(), size, longer.get());
        bytes = std::move(longer);
    }
    const auto view =
        builder.addDefaultAttributeView(bytes.release(), type, components, count, nullptr, nullptr);
    meshBuilder.addAttribute(buffer.getAttributeName(), view);
}

/// The box of positions as the compressing encoders use it.
struct QuantizationBox {
    explicit QuantizationBox(const std::shared_ptr<AttributeBuffer>& positions) {
        glm::vec3 center;
        computeBoundingBoxCenterSize(positions, center, size);
        for (int axis = 0; axis < 3; ++axis) {
            min[axis] = center[axis] - size[axis] * 0.5f;
            max[axis] = center[axis] + size[axis] * 0.5f;
        }
    }

    void setBounds(::src::builder::MeshBuilder& meshBuilder) const {
        meshBuilder.setBoundingBoxMinMax({min.x, min.y, min.z}, {max.x, max.y, max.z});
    }

    /// What a reader decodes the codes with.
    std::pair<Doubles, Doubles> decodeOffsetAndScale() const {
        std::pair decode(std::make_shared<std::vector<double>>(3), std::make_shared<std::vector<double>>(3));
        auto& [offset, scale] = decode;
        for (int axis = 0; axis < 3; ++axis) {
            scale->at(axis) = 65535.0f / size[axis];
            offset->at(axis) = static_cast<double>(min[axis]) * scale->at(axis);
        }
        return decode;
    }

    glm::vec3 min, max, size;
};

/// All elements of a three-float buffer, if they lie packed in a buffer of exactly our own; nothing is asked
/// of any other buffer. With another mesh library nothing is read so: only its own transforms run.
PositionsInMemory packedVec3f(const AttributeBuffer& buffer) {
#if KELSRC_BUNDLED_MESH
    if (elementsInMemory(buffer, 1).isPacked(3 * sizeof(float))) {
        const std::size_t count = buffer.getElementCount();
        if (const ElementSpan span = elementsInMemory(buffer, count)) return {span.first, span.stride, count};
    }
#else
    static_cast<void>(buffer);
#endif
    return {};
}

/// Position codes by the library's own way: through a buffer that transformAttributes fills.
Bytes transformPositions(const std::shared_ptr<AttributeBuffer>& positions, const QuantizationBox& box,
                         std::size_t& count) {
    const auto quantized =
        AttributeBuffer::createDefault(kel::mesh::UNSIGNED_SHORT, 3, DEFAULT_POSITIONS_NAME);
    quantized->resize(positions->getElementCount());
    kel::mesh::transformAttributes(positions, quantized,
                                   kel::mesh::quantizeVec3<float, unsigned short>(box.min, box.max));
    count = quantized->getElementCount();
    Bytes codes(new unsigned char[arraySize(count, POSITION_CODE_BYTES)]);
    copyElements(*quantized, count, POSITION_CODE_BYTES, codes.get());
    return codes;
}

void addQuantizedPositions(const std::shared_ptr<AttributeBuffer>& positions,
                           ::src::builder::MeshBuilder& meshBuilder, ::src::builder::SrcBuilder& builder) {
    const QuantizationBox box(positions);
    box.setBounds(meshBuilder);

    Bytes codes;
    std::size_t count = 0;
    if (const auto packed = packedVec3f(*positions); packed.first) {
        count = packed.count;
        codes.reset(new unsigned char[arraySize(count, POSITION_CODE_BYTES)]);
        quantizePositions(packed.first, count, &box.min.x, &box.max.x, codes.get(), POSITION_CODE_BYTES);
    } else {
        codes = transformPositions(positions, box, count);
    }

    const auto [offset, scale] = box.decodeOffsetAndScale();
    const auto view =
        builder.addDefaultAttributeView(codes.release(), ::src::UNSIGNED_SHORT, 3, count, offset, scale);
    meshBuilder.addAttribute(DEFAULT_POSITIONS_NAME, view);
}

/// The bytes of the interleaved vertices, which the mesh library's views fill and the builder then owns. Not
/// zeroed at first: touching fresh memory twice costs more than filling it.
class VertexBytes final : public kel::mesh::detail::BufferData {
public:
    explicit VertexBytes(std::size_t size) : bytes(new unsigned char[size]), size(size) {}

    unsigned char* getData() override { return bytes.get(); }
    const unsigned char* getData() const override { return bytes.get(); }
    std::size_t getSizeInBytes() const override { return size; }
    /// Only ever grows: where there are fewer normals than positions, transformAttributes asks for less than the
    /// positions fill.
    void resize(std::size_t newSize) override {
        if (newSize <= size) return;
        Bytes resized(new unsigned char[newSize]());
        std::copy_n(bytes.get(), size, resized.get());
        bytes = std::move(resized);
        size = newSize;
    }

    Bytes release() { return std::move(bytes); }

private:
    Bytes bytes;
    std::size_t size;
};

/// Fills the vertices: position codes, and zeros where the normals go.
void packPositions(const std::shared_ptr<AttributeBuffer>& positions, const QuantizationBox& box,
                   const std::shared_ptr<VertexBytes>& vertices) {
    if (const auto packed = packedVec3f(*positions); packed.first) {
        quantizePositions(packed.first, packed.count, &box.min.x, &box.max.x, vertices->getData(),
                          PACKED_VERTEX_BYTES);
        return;
    }
    std::fill_n(vertices->getData(), vertices->getSizeInBytes(), static_cast<unsigned char>(0));
    const auto view = std::make_shared<kel::mesh::detail::AttributeBufferDataView>(
        kel::mesh::UNSIGNED_SHORT, 3, PACKED_VERTEX_BYTES, 0, vertices, "pos3us");
    kel::mesh::transformAttributes(positions, view,
                                   kel::mesh::quantizeVec3<float, unsigned short>(box.min, box.max));
}

/// Encodes the normals. Where there are fewer than vertices, the other vertices keep their zeros; where there are
/// more, the bytes grow beyond the vertices.
void packNormals(const std::shared_ptr<AttributeBuffer>& normals, std::size_t vertexCount,
                 const std::shared_ptr<VertexBytes>& vertices) {
#if KELSRC_BUNDLED_MESH
    if (const auto packed = packedVec3f(*normals); packed.first) {
        encodeNormals(packed.first, std::min(packed.count, vertexCount), vertices->getData() + NORMAL_OFFSET,
                      PACKED_VERTEX_BYTES);
        return;
    }
#else
    static_cast<void>(vertexCount);
#endif
    const auto view = std::make_shared<kel::mesh::detail::AttributeBufferDataView>(
        kel::mesh::UNSIGNED_BYTE, 2, PACKED_VERTEX_BYTES, NORMAL_OFFSET, vertices, "nor2ub_oct");
    kel::mesh::transformAttributes(normals, view, kel::mesh::quantizeNormals());
}

/// Whether a buffer may hold positions. One of ours that does not hold three floats is refused; a foreign one is not
/// asked, and its elements are read as three floats.
bool mayHoldPositions(const std::shared_ptr<AttributeBuffer>& buffer) {
    return buffer && (!hasKnownStorage(*buffer) || isAttributeVec3f(buffer));
}

std::string jsonValueText(const std::map<std::string, std::string>& values) {
    std::string text;
    text.reserve(40 * values.size()); // entries are mostly shorter
    text::appendSeparated(text, "{}", values, [&](const auto& entry) {
        text.append(1, '"').append(entry.first).append("\" : ").append(entry.second);
    });
    return text;
}

} // namespace

::src::ComponentType meshComponentTypeToSrcComponentType(kel::mesh::ComponentType type) {
    const auto value = static_cast<std::uint32_t>(type);
    return value >= ::src::UNSIGNED_BYTE && value <= ::src::FLOAT ? static_cast<::src::ComponentType>(value)
                                                                  : ::src::BYTE;
}

// ---- The three encoders ----------------------------------------------------------------------------------

void createMeshUncompressed(const kel::mesh::MeshPtr& mesh, MeshBuilderPtr& meshBuilder,
                            SrcBuilderPtr& builder) {
    const std::size_t count = mesh->getNumAttributeBuffers();
    for (std::size_t k = 0; k < count; ++k)
        addAttributeAsStored(*mesh->getAttributeBuffer(k), *meshBuilder, *builder);

    const auto positions = mesh->getAttributeBuffer(DEFAULT_POSITIONS_NAME);
    if (!isAttributeVec3f(positions)) return;
    glm::vec3 min(0.0f, 0.0f, 0.0f), max(0.0f, 0.0f, 0.0f);
    computeBoundingBoxMinMax(positions, min, max);
    meshBuilder->setBoundingBoxMinMax({min.x, min.y, min.z}, {max.x, max.y, max.z});
}

void createMeshPosCompressed(const kel::mesh::MeshPtr& mesh, MeshBuilderPtr& meshBuilder,
                             SrcBuilderPtr& builder) {
    for (;;) {
        const auto positions = mesh->getAttributeBuffer(DEFAULT_POSITIONS_NAME);
        if (positions && positions->isVec3f()) break;
        // Starts over with the same mesh, so it does not end. Callers make sure beforehand.
    }
    const std::size_t count = mesh->getNumAttributeBuffers();
    for (std::size_t k = 0; k < count; ++k) {
        const auto buffer = mesh->getAttributeBuffer(k);
        if (buffer->getAttributeName() == DEFAULT_POSITIONS_NAME && buffer->isVec3f()) {
            addQuantizedPositions(buffer, *meshBuilder, *builder);
        } else {
            addAttributeAsStored(*buffer, *meshBuilder, *builder);
        }
    }
}

void createMeshPosNormalCompressed(const kel::mesh::MeshPtr& mesh, MeshBuilderPtr& meshBuilder,
                                   SrcBuilderPtr& builder) {
    if (const auto found = mesh->getAttributeBuffer(DEFAULT_NORMALS_NAME); !found || !found->isVec3f()) {
        createMeshPosCompressed(mesh, meshBuilder, builder);
        return;
    }
    const auto positions = mesh->getAttributeBuffer(DEFAULT_POSITIONS_NAME);
    const auto normals = mesh->getAttributeBuffer(DEFAULT_NORMALS_NAME);
    if (!mayHoldPositions(positions))
        throw std::invalid_argument("A mesh with normals but without positions of three floats cannot be "
                                    "written with positions and normals compressed: give it an attribute "
                                    "\"position\" of three floats or write it uncompressed.");
    const QuantizationBox box(positions);
    const std::size_t count = positions->getElementCount();
    const auto vertices = std::make_shared<VertexBytes>(arraySize(count, PACKED_VERTEX_BYTES));
    packPositions(positions, box, vertices);
    packNormals(normals, count, vertices);
    Bytes bytes = vertices->release();
    const auto bufferView = builder->addBufferView(bytes.release(), count * PACKED_VERTEX_BYTES);

    const auto [offset, scale] = box.decodeOffsetAndScale();
    // The fourth component is the packed normal, which is not scaled.
    scale->push_back(1.0);
    offset->push_back(0.0);
    const auto view = builder->addAttributeView(bufferView, 0, PACKED_VERTEX_BYTES, ::src::UNSIGNED_SHORT, 4,
                                                count, offset, scale);
    meshBuilder->addAttribute(std::string(format::COMBINED_POSITION_NORMAL), view);
    box.setBounds(*meshBuilder);
}

// ---- Materials and metadata ------------------------------------------------------------------------------

std::shared_ptr<::src::Material> createSrcMaterial(std::shared_ptr<kel::material::Material> material,
                                                   std::shared_ptr<::src::Technique> technique,
                                                   const std::string& name) {
    if (!std::dynamic_pointer_cast<kel::material::MaterialClassic>(material)) return {};
    const auto materialBuilder = ::src::builder::MaterialBuilder::create(name, technique);
    for (const auto& parameter : technique->getParameters()) {
        const auto row =
            std::find_if(std::begin(format::MATERIAL_PARAMETERS), std::end(format::MATERIAL_PARAMETERS),
                         [&](const auto& known) { return parameter.first == known.name; });
        if (row == std::end(format::MATERIAL_PARAMETERS)) continue;
        const std::string attribute(row->attribute);
        if (!material->getDescription()->hasAttribute(attribute)) continue;
        const auto values = material->getAttribute(attribute);
        materialBuilder->addParameterValue(parameter.first,
                                           std::vector<double>(values.begin(), values.end()));
    }
    return materialBuilder->build();
}

std::map<std::shared_ptr<kel::material::Material>, std::shared_ptr<::src::Material>>
processMaterials(SrcBuilderPtr& builder, const decltype(SrcWriterInput::materials)& materials) {
    const auto technique = ::src::builder::TechniqueBuilder::createStandardTechnique();
    builder->addTechnique(technique);
    std::map<std::shared_ptr<kel::material::Material>, std::shared_ptr<::src::Material>> table;
    for (const auto& material : materials) {
        std::string name;
        if (material) {
            name = format::id_prefix::PUBLIC_MATERIAL;
            name += std::to_string(material->identifier);
        }
        const auto srcMaterial = createSrcMaterial(material, technique, name);
        table.emplace_hint(table.end(), material, srcMaterial);
        builder->addMaterial(srcMaterial);
    }
    return table;
}

std::string createJsonValueString(std::map<std::string, std::string> values) {
    return jsonValueText(values);
}

// ---- The driver ------------------------------------------------------------------------------------------

template<typename MeshCreateFunction>
void writeMeshSrcTemplate(const decltype(SrcWriterInput::meshes)& meshes,
                          const decltype(SrcWriterInput::metaData)& metaData,
                          const decltype(SrcWriterInput::materials)& materials,
                          const decltype(SrcWriterInput::meshMaterials)& meshMaterials, std::ostream& out,
                          MeshCreateFunction createMesh) {
    SrcBuilderPtr builder = ::src::builder::SrcBuilder::create();
    const auto srcMaterials = processMaterials(builder, materials);
    const auto meshSrcMaterials = concatenate(meshMaterials, srcMaterials);

    std::size_t position = 0;
    for (const auto& mesh : meshes) {
        const auto indexView = addIndexView(*mesh, *builder);
        const auto type = static_cast<std::uint32_t>(mesh->getPrimitiveType());
        const auto primitive = static_cast<::src::PrimitiveType>(type >= 1 && type <= 6 ? type : 0);
        std::string name(format::id_prefix::PUBLIC_MESH);
        name += std::to_string(position);
        MeshBuilderPtr meshBuilder = ::src::builder::MeshBuilder::create(name, indexView, primitive);
        ++position;
        createMesh(mesh, meshBuilder, builder);

        const auto material = meshSrcMaterials.find(mesh);
        if (material != meshSrcMaterials.end()) meshBuilder->setMaterial(material->second);

        const auto meta = metaData.find(mesh);
        if (meta != metaData.end() && meta->second) {
            addStatisticsMetaData(mesh, meta->second);
            meshBuilder->setMetaJsonString(jsonValueText(*meta->second));
        } else {
            const auto logger = logging::Logger::getBoostLogger(__LINE__, DRIVER_FUNCTION, SOURCE_FILE);
            BOOST_LOG_SEV(*logger, boost::log::trivial::error) << "Missing meta data";
        }
        builder->addMesh(meshBuilder->build());
    }
    const auto document = builder->build();
    ::src::SrcWriter::create()->write(document, out);
}

void writeMeshSrcUncompressed(const SrcWriterInput& input, std::ostream& out) {
    writeMeshSrcTemplate<MeshEncoder>(input.meshes, input.metaData, input.materials, input.meshMaterials, out,
                                      createMeshUncompressed);
}
void writeMeshSrcPosCompressed(const SrcWriterInput& input, std::ostream& out) {
    writeMeshSrcTemplate<MeshEncoder>(input.meshes, input.metaData, input.materials, input.meshMaterials, out,
                                      createMeshPosCompressed);
}
void writeMeshSrcPosNormalCompressed(const SrcWriterInput& input, std::ostream& out) {
    writeMeshSrcTemplate<MeshEncoder>(input.meshes, input.metaData, input.materials, input.meshMaterials, out,
                                      createMeshPosNormalCompressed);
}

template void writeMeshSrcTemplate<MeshEncoder>(const decltype(SrcWriterInput::meshes)&,
                                                const decltype(SrcWriterInput::metaData)&,
                                                const decltype(SrcWriterInput::materials)&,
                                                const decltype(SrcWriterInput::meshMaterials)&, std::ostream&,
                                                MeshEncoder);

} // namespace kel::src::detail

namespace kel::src {

void SrcWriter::write(const SrcWriterInput& input, std::ostream& out, Compression mode) {
    switch (mode) {
    case UNCOMPRESSED:
        return detail::writeMeshSrcUncompressed(input, out);
    case POSITION_COMPRESSED:
        return detail::writeMeshSrcPosCompressed(input, out);
    case POSITION_NORMAL_COMPRESSED:
        return detail::writeMeshSrcPosNormalCompressed(input, out);
    }
    throw std::invalid_argument("Unknown compression parameter!!!");
}

} // namespace kel::src
