#include <kel/mesh/AttributeNames.h>
#include <kel/mesh/Transforms.h>
#include <kel/src/SrcDecode.h>
#include <kel/src/SrcJson.h>
#include <kel/src/format/FileLayout.h>
#include <kel/src/format/MetadataKeys.h>
#include <kel/src/reader/FileData_p.h>

#include <algorithm>

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

const DecodedAttribute* DecodedMesh::find(std::string_view name) const {
    const auto found =
        std::find_if(attributes.begin(), attributes.end(),
                     [&](const DecodedAttribute& attribute) { return attribute.name == name; });
    return found == attributes.end() ? nullptr : &*found;
}

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
    const SrcRange<SrcAttribute> all = file.attributes(mesh);
    for (const SrcAttribute& attribute : options.ownAttributesOnly ? detail::ownAttributes(file, mesh)
                                                                   : std::vector(all.begin(), all.end())) {
        const SrcAttributeView& view = file.attributeViews()[attribute.view];
        charge(view.count * 6);
        if (isCombinedPositionNormal(attribute, view)) {
            decoded.attributes.push_back(
                {kel::mesh::DEFAULT_POSITIONS_NAME, 3, decodeAttribute(file, detail::positionPart(view))});
            decoded.attributes.push_back(
                {kel::mesh::DEFAULT_NORMALS_NAME, 3, decodeCombinedNormals(file, view)});
        } else {
            decoded.attributes.push_back(
                {std::string(attribute.name), view.components, decodeAttribute(file, view)});
        }
    }
    if (!options.applyFit) return decoded;
    for (const SrcFit& fit : fitOf(mesh)) {
        for (DecodedAttribute& attribute : decoded.attributes) {
            if (attribute.name != fit.attribute || attribute.components != fit.scale.size()) continue;
            for (std::size_t i = 0; i < attribute.values.size(); ++i) {
                const std::size_t c = i % attribute.components;
                attribute.values[i] = static_cast<float>(
                    static_cast<double>(attribute.values[i]) * fit.scale[c] + fit.offset[c]);
            }
        }
    }
    return decoded;
}

} // namespace kel::src
