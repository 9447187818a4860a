#include <kel/convert/ComparableScene.h>

#include "ComparableFromScene.h"
#include "MeshFacts.h"

#include <kel/convert/ConvertError.h>
#include <kel/convert/OpenSrc.h>
#include <kel/importer/detail/ImportScene.h>
#include <kel/mesh/AttributeNames.h>
#include <kel/mesh/ForEachPrimitive.h>
#include <kel/mesh/Mesh.h>
#include <kel/src/PackedAccess.h>
#include <kel/src/encoding/EncodingPresets.h>
#include <kel/src/format/FileLayout.h>
#include <kel/src/format/MetadataKeys.h>
#include <kel/src/text/JsonPointer.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

namespace kel::convert {

namespace {

namespace format = kel::src::format;
using kel::mesh::DEFAULT_NORMALS_NAME;
using kel::mesh::DEFAULT_POSITIONS_NAME;
using kel::src::DecodedAttribute;
using kel::src::SRC_NONE;
using kel::src::SrcAttributeView;
using kel::src::SrcFile;
using kel::src::SrcFit;
using kel::src::SrcMesh;

constexpr double FLOAT_EPSILON = std::numeric_limits<float>::epsilon();
/// Writers find steps and codes in single precision, in a few operations each.
constexpr double CODE_ROUNDING = 4.0 * FLOAT_EPSILON;
constexpr double STEP_ROUNDING = 1.0 + 1e-4;
/// Two-byte normals are off by 0.64 degrees at most; the rest is rounding.
constexpr double OCTAHEDRAL_DEGREES = 0.65;

/// Lists single primitives; `indexAt` gives the vertex of a position in the index list. False when an index
/// is not below the number of vertices.
template<typename IndexAt>
bool fillCorners(kel::mesh::PrimitiveType type, std::size_t count, const IndexAt& indexAt,
                 ComparableMesh& mesh) {
    mesh.cornersPerPrimitive = kel::mesh::cornersPerPrimitive(type);
    mesh.corners.reserve(kel::mesh::primitiveCount(type, count) * mesh.cornersPerPrimitive);
    bool inside = true;
    kel::mesh::forEachPrimitive(type, count, [&](const std::array<std::size_t, 3>& places, std::size_t size) {
        std::array<std::size_t, 3> vertex{};
        for (std::size_t i = 0; i < size; ++i) {
            vertex[i] = indexAt(places[i]);
            inside = inside && vertex[i] < mesh.positions.size();
        }
        const bool twice = (size > 1 && vertex[0] == vertex[1]) ||
                           (size > 2 && (vertex[1] == vertex[2] || vertex[2] == vertex[0]));
        mesh.degenerate += twice;
        for (std::size_t i = 0; i < size && !twice; ++i)
            mesh.corners.push_back(static_cast<std::uint32_t>(vertex[i]));
    });
    return inside;
}

/// What the texts of a mesh say about how to read it.
void readMetadata(ComparableMesh& mesh) {
    const auto text = [&](std::string_view key) -> std::string_view {
        const auto found = mesh.metadata.find(std::string(key));
        return found == mesh.metadata.end() ? std::string_view() : std::string_view(found->second);
    };
    mesh.name = format::readName(text(format::metadata::NAME));
    mesh.node = format::readName(text(format::metadata::NODE));
    if (const auto source = format::readSource(text(format::metadata::SOURCE))) {
        // Some readers call the root after the file.
        const std::string root = kel::src::text::jsonPointer({source->file}).substr(1) + '/';
        if (mesh.node.compare(0, root.size(), root) == 0) mesh.node.erase(0, root.size());
    }
    mesh.origin = format::readOrigin(text(format::metadata::ORIGIN)).value_or(format::Origin{});
    for (std::string& name : textsOf(text(format::metadata::FILLED)))
        mesh.filled.insert(std::move(name));
}

/// Takes one attribute, with its fit undone.
///
/// exact  the values before they were rounded, where that is known; else empty
void addAttribute(ComparableMesh& mesh, const std::string& name, std::size_t components,
                  std::vector<float> values, const SrcFit* fit, const std::vector<double>& exact = {}) {
    const auto original = [&](std::size_t i, std::size_t c) {
        const double value = exact.empty() ? static_cast<double>(values[i]) : exact[i];
        return fit ? value * fit->scale[c] + fit->offset[c] : value;
    };
    if (name != DEFAULT_POSITIONS_NAME || components != 3) {
        for (std::size_t i = 0; fit && i < values.size(); ++i)
            values[i] = static_cast<float>(original(i, i % components));
        mesh.attributes[name] = {components, std::move(values), 0, 0};
        return;
    }
    mesh.positions.resize(values.size() / 3);
    double largest = 0;
    for (std::size_t i = 0; i + 2 < values.size(); i += 3) {
        for (std::size_t c = 0; c < 3; ++c) {
            const double value = original(i + c, c);
            largest = std::max(largest, std::abs(value));
            mesh.positions[i / 3][c] = value + mesh.origin[c];
        }
    }
    mesh.positionRounding = std::sqrt(3.0) * 0.5 * FLOAT_EPSILON * largest;
}

/// The fit of an attribute; null where it has none, or none of its width.
const SrcFit* fitFor(const std::vector<SrcFit>& fits, const std::string& name, std::size_t components) {
    const auto found = std::find_if(fits.begin(), fits.end(), [&](const SrcFit& fit) {
        return fit.attribute == name && fit.scale.size() == components;
    });
    return found == fits.end() ? nullptr : &*found;
}

/// Leaves out what has not one element per vertex.
void keepWholeAttributes(ComparableMesh& mesh) {
    for (auto entry = mesh.attributes.begin(); entry != mesh.attributes.end();) {
        const ComparableAttribute& attribute = entry->second;
        const bool isWhole = attribute.components != 0 &&
                             attribute.values.size() == mesh.positions.size() * attribute.components;
        entry = isWhole ? std::next(entry) : mesh.attributes.erase(entry);
    }
}

// ---- Files ----------------------------------------------------------------------------------------------

/// How far quantizing may have moved each component of an attribute; 0 for what is stored as floats.
std::array<double, 4> lossOf(const SrcAttributeView& view, const std::vector<float>& values,
                             const SrcFit* fit) {
    std::array<double, 4> loss{};
    if (view.componentType == kel::mesh::FLOAT || !view.decoded) return loss;
    const std::size_t components = std::min<std::size_t>(view.components, fit ? fit->scale.size() : 4);
    const std::size_t width = std::max<std::size_t>(1, components);
    std::array<double, 4> largest{};
    for (std::size_t i = 0; i < values.size(); ++i)
        largest[i % width] = std::max(largest[i % width], static_cast<double>(std::abs(values[i])));
    for (std::size_t c = 0; c < components; ++c) {
        const double step = std::abs(1.0 / view.decodeScale[c]);
        loss[c] = (step * STEP_ROUNDING + CODE_ROUNDING * largest[c]) *
                  (fit ? std::abs(fit->scale[c]) * STEP_ROUNDING : 1.0);
    }
    return loss;
}

/// A mesh that was made seamless has vertices where a neighbour's larger step has put them.
void shareLosses(ComparableScene& scene) {
    double largest = 0;
    const auto forEachSeamless = [&](const auto& visit) {
        for (ComparableMesh& mesh : scene.meshes) {
            const auto bounds = mesh.metadata.find(std::string(format::metadata::BOUNDS));
            if (bounds != mesh.metadata.end() && format::readBounds(bounds->second)) visit(mesh);
        }
    };
    forEachSeamless([&](const ComparableMesh& mesh) { largest = std::max(largest, mesh.positionLoss); });
    forEachSeamless([&](ComparableMesh& mesh) { mesh.positionLoss = largest; });
}

/// Takes one file's meshes; `materials` as the file lists them.
class FileMeshes {
public:
    FileMeshes(const SrcFile& file, const std::string& name) : file(file), fileName(name) {
        for (const auto& [attribute, bits] : kel::src::detail::SRCEncodingConfig().precision)
            containerAttributes.insert(attribute);
        for (const auto& source : file.materials())
            addMaterial(source);
    }

    ComparableMesh take(const SrcMesh& source) const {
        ComparableMesh mesh;
        for (auto& member : kel::src::jsonMembers(source.metadata))
            mesh.metadata.emplace(std::move(member.key), member.json);
        readMetadata(mesh);
        kel::src::DecodeOptions options;
        options.applyFit = false;
        options.leaveOutAddedVertices = true;
        kel::src::DecodedMesh decoded = decodeMesh(file, source, options);
        const std::vector<SrcFit> fits = fitOf(source);
        const bool isContainer =
            source.id.substr(0, format::id_prefix::PUBLIC_MESH.size()) != format::id_prefix::PUBLIC_MESH;
        mesh.storesTransparency = !isContainer;
        if (isContainer) mesh.storable = containerAttributes;
        for (DecodedAttribute& attribute : decoded.attributes)
            addDecoded(mesh, source, attribute, fits);
        keepWholeAttributes(mesh);
        const bool inside = fillCorners(
            source.primitive, decoded.indexed ? decoded.indices.size() : mesh.positions.size(),
            [&](std::size_t place) -> std::size_t {
                return decoded.indexed ? decoded.indices[place] : place;
            },
            mesh);
        if (!inside) throw ConvertError(ConvertCode::INDEX_WITHOUT_VERTEX, fileName, source.id);
        mesh.hasMaterial = source.material != SRC_NONE;
        if (mesh.hasMaterial) mesh.material = materials[source.material];
        return mesh;
    }

private:
    void addMaterial(const kel::src::SrcMaterial& source) {
        auto& material = materials.emplace_back();
        for (const auto& parameter : format::MATERIAL_PARAMETERS)
            material[std::string(parameter.name)] = file.materialParameter(source, parameter.name);
        // Not the technique's default: its writer has no word for transparency.
        auto& transparency = material[std::string(parameterName(format::TRANSPARENCY))];
        transparency = {0.0};
        for (const auto& member : kel::src::jsonMembers(source.values)) {
            if (member.key == parameterName(format::TRANSPARENCY))
                kel::src::jsonNumbers(member.json, transparency);
        }
    }

    void addDecoded(ComparableMesh& mesh, const SrcMesh& source, DecodedAttribute& attribute,
                    const std::vector<SrcFit>& fits) const {
        const SrcAttributeView* view = file.findAttribute(source, attribute.name);
        const bool isCombined = !view;
        if (isCombined) {
            view = file.findAttribute(source, format::COMBINED_POSITION_NORMAL);
            mesh.storable = std::set<std::string>{DEFAULT_NORMALS_NAME};
        }
        const SrcFit* fit = fitFor(fits, attribute.name, attribute.components);
        const std::array<double, 4> loss = lossOf(*view, attribute.values, fit);
        std::vector<double> exact;
        if (fit && !isCombined && attribute.name == DEFAULT_POSITIONS_NAME) {
            exact.resize(static_cast<std::size_t>(view->count) * view->components);
            kel::src::decodeAttribute(file, *view, exact.data());
        }
        convert::addAttribute(mesh, attribute.name, attribute.components, std::move(attribute.values), fit,
                              exact);
        const auto added = mesh.attributes.find(attribute.name);
        if (added == mesh.attributes.end()) {
            mesh.positionLoss = std::hypot(loss[0], loss[1], loss[2]);
        } else if (isCombined) {
            added->second.lossDegrees = OCTAHEDRAL_DEGREES;
        } else {
            added->second.loss = *std::max_element(loss.begin(), loss.end());
        }
    }

    const SrcFile& file;
    const std::string& fileName;
    std::set<std::string> containerAttributes;
    std::vector<std::map<std::string, std::vector<double>>> materials;
};

// ---- Meshes in memory -----------------------------------------------------------------------------------

/// All components as floats, whatever their type.
std::vector<float> floatsOf(const kel::mesh::AttributeBuffer& buffer) {
    const std::size_t components = buffer.getComponentCountPerElement();
    const std::size_t elements = buffer.getElementCount();
    std::vector<float> values(elements * components);
    if (buffer.getComponentType() == kel::mesh::FLOAT) {
        kel::src::detail::copyElements(buffer, elements, components * sizeof(float),
                                       reinterpret_cast<unsigned char*>(values.data()));
        return values;
    }
    const auto convert = [&](auto example) {
        for (std::size_t i = 0; i < values.size(); ++i) {
            auto value = example;
            buffer.getComponent(i / components, i % components, &value);
            values[i] = static_cast<float>(value);
        }
    };
    switch (buffer.getComponentType()) {
    case kel::mesh::BYTE:
        convert(std::int8_t());
        break;
    case kel::mesh::UNSIGNED_BYTE:
        convert(std::uint8_t());
        break;
    case kel::mesh::SHORT:
        convert(std::int16_t());
        break;
    case kel::mesh::UNSIGNED_SHORT:
        convert(std::uint16_t());
        break;
    case kel::mesh::INT:
        convert(std::int32_t());
        break;
    default:
        convert(std::uint32_t());
    }
    return values;
}

} // namespace

ComparableScene comparableScene(kel::scene::Scene scene) {
    ComparableScene comparable;
    comparable.meshes.reserve(scene.meshes.size());
    for (auto& entry : scene.meshes) {
        ComparableMesh& mesh = comparable.meshes.emplace_back();
        const kel::mesh::MeshPtr source = std::move(entry.mesh);
        if (!source) continue;
        if (entry.metaData) mesh.metadata = *entry.metaData;
        readMetadata(mesh);
        std::vector<SrcFit> fits;
        if (const auto* text = entry.find(format::metadata::FIT)) fits = format::readFit(*text);
        for (std::size_t i = 0; i < source->getNumAttributeBuffers(); ++i) {
            const auto buffer = source->getAttributeBuffer(i);
            if (!buffer) continue;
            const std::string name = buffer->getAttributeName();
            const std::size_t components = buffer->getComponentCountPerElement();
            addAttribute(mesh, name, components, floatsOf(*buffer), fitFor(fits, name, components));
        }
        const auto indices = source->getIndexBuffer();
        fillCorners(
            source->getPrimitiveType(), indices ? indices->getElementCount() : mesh.positions.size(),
            [&](std::size_t place) { return indices ? indices->getIndex(place) : place; }, mesh);
        keepWholeAttributes(mesh);
        mesh.hasMaterial = entry.material != nullptr;
        for (auto& [parameter, values] : classicValues(entry.material.get()))
            mesh.material.emplace(parameterName(parameter), std::move(values));
    }
    return comparable;
}

Bounds ComparableMesh::bounds() const {
    Bounds box;
    for (const std::uint32_t corner : corners)
        box.add(positions[corner]);
    return box;
}

GeometryCounts ComparableMesh::counts() const {
    GeometryCounts counts;
    counts.meshes = 1;
    counts.vertices = positions.size();
    primitivesIn(counts, cornersPerPrimitive) = primitives() + degenerate;
    return counts;
}

ComparableScene comparableScene(const SrcFile& file, const std::string& name) {
    ComparableScene scene;
    scene.metadata.emplace();
    for (auto& member : kel::src::jsonMembers(file.metadata()))
        scene.metadata->emplace(std::move(member.key), member.json);
    const FileMeshes meshes(file, name);
    for (const auto& source : file.meshes())
        scene.meshes.push_back(meshes.take(source));
    shareLosses(scene);
    return scene;
}

ComparableScene comparableScene(const kel::src::SrcWriterInput& input) {
    return comparableScene(kel::scene::fromInput(input));
}

ComparableScene openComparable(const std::string& path, const kel::importer::ImportLimits& limits) {
    try {
        if (looksLikeSrc(path)) return comparableScene(openSrc(path), path);
        kel::importer::ImportOptions options;
        options.limits = limits;
        options.origin.choice =
            kel::importer::Origin::AUTO; // or far from zero floats would have lost too much
        auto imported = kel::importer::detail::importScene(std::filesystem::path(path), options);
        ComparableScene scene = comparableScene(std::move(imported.scene));
        scene.textures = 0;
        for (const auto& dropped : imported.report.dropped) {
            if (dropped.kind == "textures") scene.textures = dropped.count;
        }
        return scene;
    } catch (const kel::importer::ImportError& error) {
        throw ConvertError(ConvertCode::IMPORT_REFUSED, "", error.what());
    } catch (const kel::src::SrcError& error) {
        throw ConvertError(ConvertCode::SRC_REFUSED, path, error.what());
    }
}

} // namespace kel::convert
