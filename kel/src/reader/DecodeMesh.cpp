#include <kel/mesh/AttributeNames.h>
#include <kel/mesh/Transforms.h>
#include <kel/src/SrcDecode.h>
#include <kel/src/SrcJson.h>
#include <kel/src/format/FileLayout.h>
#include <kel/src/format/MetadataKeys.h>
#include <kel/src/reader/FileData_p.h>

#include <algorithm>
#include <cmath>

namespace kel::src {

bool isCombinedPositionNormal(const SrcAttribute& attribute, const SrcAttributeView& view) {
    return attribute.name == format::COMBINED_POSITION_NORMAL &&
           view.componentType == kel::mesh::UNSIGNED_SHORT && view.components == 4;
}

std::vector<float> decodeCombinedNormals(const SrcFile& file, const SrcAttributeView& view) {
    constexpr std::size_t CODE_AT = 6;
    std::vector<float> normals(static_cast<std::size_t>(view.count) * 3);
    detail::forEachRun(file, view, [&](const unsigned char* source, std::uint64_t first, std::size_t count) {
        for (std::size_t e = 0; e < count; ++e)
            kel::mesh::decodeOctahedralNormal(source + e * view.byteStride + CODE_AT,
                                              normals.data() + (first + e) * 3);
    });
    return normals;
}

namespace {

/// The fit of an attribute; null where it has none, or none of its width.
const SrcFit* fitFor(const std::vector<SrcFit>& fits, std::string_view name, std::size_t components) {
    const auto found = std::find_if(fits.begin(), fits.end(), [&](const SrcFit& fit) {
        return fit.attribute == name && fit.scale.size() == components;
    });
    return found == fits.end() ? nullptr : &*found;
}

/// What the metadata tell.
std::optional<format::Bounds> statedBounds(const SrcMesh& mesh) {
    for (const SrcMember& member : jsonMembers(mesh.metadata))
        if (member.key == format::metadata::BOUNDS) return format::readBounds(member.json);
    return std::nullopt;
}

} // namespace

std::vector<SrcFit> fitOf(const SrcMesh& mesh) {
    for (const SrcMember& member : jsonMembers(mesh.metadata))
        if (member.key == format::metadata::FIT) return format::readFit(member.json);
    return {};
}

std::array<double, 3> originOf(const SrcMesh& mesh) {
    for (const SrcMember& member : jsonMembers(mesh.metadata))
        if (member.key == format::metadata::ORIGIN)
            return format::readOrigin(member.json).value_or(format::Origin{});
    return {};
}

std::optional<SrcBox> boundsOf(const SrcMesh& mesh) {
    if (const auto bounds = statedBounds(mesh)) return SrcBox{(*bounds)[0], (*bounds)[1]};
    if (!mesh.hasBounds) return std::nullopt;
    SrcBox box;
    const std::vector<SrcFit> fits = fitOf(mesh);
    const SrcFit* fit = fitFor(fits, kel::mesh::DEFAULT_POSITIONS_NAME, 3);
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const double scale = fit ? fit->scale[axis] : 1.0, offset = fit ? fit->offset[axis] : 0.0;
        const double center = mesh.boundsCenter[axis] * scale + offset;
        const double half = std::abs(mesh.boundsSize[axis] * scale) / 2;
        box.min[axis] = center - half;
        box.max[axis] = center + half;
    }
    return box;
}

const DecodedAttribute* DecodedMesh::find(std::string_view name) const {
    const auto found =
        std::find_if(attributes.begin(), attributes.end(),
                     [&](const DecodedAttribute& attribute) { return attribute.name == name; });
    return found == attributes.end() ? nullptr : &*found;
}

namespace {

/// Decodes a view with its fit undone, one run of elements after the other.
std::vector<float> decodeFitted(const SrcFile& file, const SrcAttributeView& view, const SrcFit& fit) {
    std::vector<double> exact(static_cast<std::size_t>(view.count) * view.components);
    decodeAttribute(file, view, exact.data());
    std::vector<float> values(exact.size());
    for (std::size_t i = 0; i < values.size(); ++i) {
        const std::size_t c = i % view.components;
        values[i] = static_cast<float>(exact[i] * fit.scale[c] + fit.offset[c]);
    }
    return values;
}

/// The lower corner of the mesh, and a place that is not below its upper one.
bool stretchBox(const float* lower, const float* upper, const format::Bounds& bounds) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
        if (static_cast<double>(lower[axis]) != bounds[0][axis] ||
            static_cast<double>(upper[axis]) < bounds[1][axis])
            return false;
    }
    return true;
}

void leaveOutAddedVertices(const SrcMesh& mesh, DecodedMesh& decoded) {
    constexpr std::size_t ADDED = 2;
    const auto bounds = statedBounds(mesh);
    const DecodedAttribute* positions = decoded.find(kel::mesh::DEFAULT_POSITIONS_NAME);
    if (!bounds || !positions || positions->components != 3) return;
    const std::size_t count = positions->values.size() / 3;
    if (count < ADDED) return;
    const std::size_t kept = count - ADDED;
    const float* added = positions->values.data() + kept * 3;
    if (!stretchBox(added, added + 3, *bounds) ||
        std::any_of(decoded.indices.begin(), decoded.indices.end(),
                    [&](std::uint32_t index) { return index >= kept; }))
        return;
    for (DecodedAttribute& attribute : decoded.attributes) {
        if (attribute.values.size() == count * attribute.components)
            attribute.values.resize(kept * attribute.components);
    }
}

} // namespace

DecodedMesh decodeMesh(const SrcFile& file, const SrcMesh& mesh, const DecodeOptions& options) {
    DecodedMesh decoded;
    std::uint64_t taken = 0;
    const auto charge = [&](std::uint64_t numbers) {
        if (numbers > (options.memoryBytes - taken) / sizeof(float))
            throw SrcError(SrcCode::LIMIT_EXCEEDED, SrcError::NO_OFFSET, "/meshes/" + std::string(mesh.id),
                           "memoryBytes is " + std::to_string(options.memoryBytes));
        taken += numbers * sizeof(float);
    };
    if (mesh.indexView != SRC_NONE) {
        const SrcIndexView& view = file.indexViews()[mesh.indexView];
        charge(view.count);
        decoded.indexed = true;
        decoded.indices = decodeIndices(file, view);
    }
    const std::vector<SrcFit> fits = options.applyFit ? fitOf(mesh) : std::vector<SrcFit>();
    const auto values = [&](std::string_view name, const SrcAttributeView& view) {
        const SrcFit* fit = fitFor(fits, name, view.components);
        if (!fit) return decodeAttribute(file, view);
        charge(view.count * view.components * 2); // doubles, for a while
        return decodeFitted(file, view, *fit);
    };
    const SrcRange<SrcAttribute> all = file.attributes(mesh);
    for (const SrcAttribute& attribute : options.ownAttributesOnly ? detail::ownAttributes(file, mesh)
                                                                   : std::vector(all.begin(), all.end())) {
        const SrcAttributeView& view = file.attributeViews()[attribute.view];
        charge(view.count * 6);
        if (isCombinedPositionNormal(attribute, view)) {
            decoded.attributes.push_back(
                {kel::mesh::DEFAULT_POSITIONS_NAME, 3,
                 values(kel::mesh::DEFAULT_POSITIONS_NAME, detail::positionPart(view))});
            decoded.attributes.push_back(
                {kel::mesh::DEFAULT_NORMALS_NAME, 3, decodeCombinedNormals(file, view)});
        } else {
            decoded.attributes.push_back(
                {std::string(attribute.name), view.components, values(attribute.name, view)});
        }
    }
    if (options.leaveOutAddedVertices && decoded.indexed) leaveOutAddedVertices(mesh, decoded);
    return decoded;
}

} // namespace kel::src
