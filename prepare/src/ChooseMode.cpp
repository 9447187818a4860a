#include <kel/prepare/detail/Steps.h>

#include "QuantizationErrors.h"

#include <kel/mesh/AttributeNames.h>
#include <kel/src/MeshUtils.h>

#include <algorithm>
#include <charconv>

namespace kel::prepare {

namespace {

using detail::AttributePtr;
using kel::scene::Scene;

/// For messages: four significant digits, the same in any locale.
std::string numberText(double value) {
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, value, std::chars_format::general, 4);
    return std::string(text, end.ptr);
}

AttributePtr positionsOf(const kel::mesh::Mesh& mesh) {
    return mesh.getAttributeBuffer(kel::mesh::DEFAULT_POSITIONS_NAME);
}

/// What position-normal would lose of a mesh, as the end of a sentence; empty when it keeps all of it.
std::string lostByPacking(const kel::mesh::Mesh& mesh) {
    const AttributePtr normals = detail::packedNormalsOf(mesh);
    if (!normals) return {};
    const AttributePtr positions = positionsOf(mesh);
    if (normals->getElementCount() != positions->getElementCount()) {
        return "has " + std::to_string(normals->getElementCount()) + " normals for " +
               std::to_string(positions->getElementCount()) + " positions";
    }
    for (const AttributePtr& buffer : detail::attributesOf(mesh)) {
        if (buffer && buffer != positions && buffer != normals) {
            return "has \"" + buffer->getAttributeName() + "\", which position-normal leaves out";
        }
    }
    return {};
}

ReachedError largestOf(const std::vector<ReachedError>& errors) {
    ReachedError largest;
    for (const ReachedError& error : errors) {
        largest.position = std::max(largest.position, error.position);
        largest.normalDegrees = std::max(largest.normalDegrees, error.normalDegrees);
    }
    return largest;
}

/// Why the positions of a mesh with this error are not quantized, as the end of a sentence.
std::string whyPositionsStay(const kel::mesh::Mesh& mesh, double error, double accepted) {
    if (!kel::src::detail::isAttributeVec3f(positionsOf(mesh)))
        return " has no three-float positions to quantize.";
    if (error == detail::UNBOUNDED) return " has positions that are not finite or whose extent overflows.";
    return " would have positions off by " + numberText(error) + ", and " + numberText(accepted) +
           " is accepted.";
}

} // namespace

ModeChoice steps::chooseMode(const Scene& scene, const MaxError& accepted) {
    ModeChoice uncompressed;
    uncompressed.meshes.resize(scene.meshes.size());

    ModeChoice position;
    position.mode = Target::POSITION_COMPRESSED;
    position.meshes.reserve(scene.meshes.size());
    for (std::size_t m = 0; m < scene.meshes.size(); ++m) {
        const kel::mesh::MeshPtr& mesh = scene.meshes[m].mesh;
        const ReachedError error = detail::errorOf(mesh, position.mode);
        position.meshes.push_back(error);
        if (!mesh || (error.position <= accepted.position && error.position != detail::UNBOUNDED)) continue;
        uncompressed.whyNotSmaller =
            placeOfMesh(scene, m) + whyPositionsStay(*mesh, error.position, accepted.position);
        return uncompressed;
    }
    position.largest = largestOf(position.meshes);

    ModeChoice packed = position;
    packed.mode = Target::POSITION_NORMAL_COMPRESSED;
    bool anyNormals = false;
    for (std::size_t m = 0; m < scene.meshes.size(); ++m) {
        const kel::mesh::MeshPtr& mesh = scene.meshes[m].mesh;
        if (!mesh || !detail::packedNormalsOf(*mesh)) continue;
        anyNormals = true;
        const std::string lost = lostByPacking(*mesh);
        if (!lost.empty()) {
            position.whyNotSmaller = placeOfMesh(scene, m) + ' ' + lost + '.';
            return position;
        }
    }
    if (!anyNormals) return position; // position-normal would write the same
    for (std::size_t m = 0; m < scene.meshes.size(); ++m) {
        const kel::mesh::MeshPtr& mesh = scene.meshes[m].mesh;
        const AttributePtr normals = mesh ? detail::packedNormalsOf(*mesh) : nullptr;
        if (!normals) continue;
        ReachedError& error = packed.meshes[m];
        error.normalDegrees = detail::normalErrorOf(*normals, normals->getElementCount());
        if (error.normalDegrees > accepted.normalDegrees) {
            position.whyNotSmaller = placeOfMesh(scene, m) + " would have normals off by " +
                                     numberText(error.normalDegrees) + " degrees, and " +
                                     numberText(accepted.normalDegrees) + " is accepted.";
            return position;
        }
    }
    packed.largest = largestOf(packed.meshes);
    return packed;
}

ModeChoice chooseMode(const kel::src::SrcWriterInput& input, const MaxError& accepted) {
    return steps::chooseMode(kel::scene::fromInput(input), accepted);
}

} // namespace kel::prepare
