#include <kel/prepare/detail/Steps.h>

#include "MeshBuffers.h"
#include "PositionCodes.h"

#include <kel/mesh/AttributeNames.h>
#include <kel/mesh/Transforms.h>
#include <kel/src/MeshUtils.h>
#include <kel/src/kernels/Kernels.h>

#include <glm/geometric.hpp>
#include <glm/vec3.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace kel::prepare {

using detail::AttributePtr;
using detail::PackedFloats;

namespace {

/// The position error of what cannot be quantized.
constexpr double UNBOUNDED = std::numeric_limits<double>::infinity();

/// The largest distance, as each axis finds it of a value.
template<typename Axis>
double largestError(const std::array<Axis, 3>& axes, const PackedFloats& values) {
    double largest = 0.0;
    for (const float* p = values.begin(); p != values.end(); p += 3) {
        const glm::dvec3 error(axes[0].error(p[0]), axes[1].error(p[1]), axes[2].error(p[2]));
        const double square = glm::dot(error, error);
        if (!(square <= std::numeric_limits<double>::max())) return UNBOUNDED; // NaN too
        largest = std::max(largest, square);
    }
    return std::sqrt(largest);
}

double positionErrorOf(const AttributePtr& positions, Codes codes) {
    if (!kel::src::detail::isAttributeVec3f(positions)) return UNBOUNDED;
    if (positions->getElementCount() == 0) return 0.0;
    const PackedFloats values(*positions);
    return codes == Codes::ROUNDED ? largestError(detail::roundedAxesOf(positions), values)
                                   : largestError(detail::codeAxesOf(positions), values);
}

/// The largest angle in degrees of the first `count` normals.
double normalErrorOf(const kel::mesh::AttributeBuffer& normals, std::size_t count) {
    constexpr double DEGREES = 57.29577951308232;
    constexpr std::size_t BLOCK = 1024; // whose codes stay in the nearest cache
    unsigned char codes[2 * BLOCK];
    const PackedFloats values(normals);
    double largest = 0.0; // squared tangent, so that no vertex costs an arc tangent
    for (std::size_t i = 0; i < count; ++i) {
        const float* n = values.data() + 3 * i;
        if (i % BLOCK == 0)
            kel::src::detail::encodeNormals(reinterpret_cast<const unsigned char*>(n),
                                            std::min(BLOCK, count - i), codes, 2);
        const glm::dvec3 normal(n[0], n[1], n[2]);
        if (!std::isfinite(normal.x + normal.y + normal.z) || normal == glm::dvec3(0.0)) continue;
        float d[3];
        kel::mesh::decodeOctahedralNormal(codes + 2 * (i % BLOCK), d);
        const glm::dvec3 decoded(d[0], d[1], d[2]), cross = glm::cross(normal, decoded);
        const double dot = glm::dot(normal, decoded);
        if (dot <= 0.0) return 180.0; // the code's cell is far smaller than a right angle
        largest = std::max(largest, glm::dot(cross, cross) / (dot * dot));
    }
    return std::atan(std::sqrt(largest)) * DEGREES;
}

AttributePtr positionsOf(const kel::mesh::Mesh& mesh) {
    return mesh.getAttributeBuffer(kel::mesh::DEFAULT_POSITIONS_NAME);
}

/// The normals that position-normal packs; empty where it codes the mesh as position does.
AttributePtr packedNormalsOf(const kel::mesh::MeshPtr& mesh) {
    const AttributePtr normals = mesh ? mesh->getAttributeBuffer(kel::mesh::DEFAULT_NORMALS_NAME) : nullptr;
    return kel::src::detail::isAttributeVec3f(normals) ? normals : nullptr;
}

/// For messages: four significant digits, the same in any locale.
std::string numberText(double value) {
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, value, std::chars_format::general, 4);
    return std::string(text, end.ptr);
}

/// What position-normal would lose of a mesh, as the end of a sentence; empty when it keeps all of it.
std::string lostByPacking(const kel::mesh::MeshPtr& mesh, const AttributePtr& normals) {
    const AttributePtr positions = positionsOf(*mesh);
    if (normals->getElementCount() != positions->getElementCount())
        return "has " + std::to_string(normals->getElementCount()) + " normals for " +
               std::to_string(positions->getElementCount()) + " positions";
    for (const AttributePtr& buffer : detail::attributesOf(mesh)) {
        if (buffer && buffer != positions && buffer != normals)
            return "has \"" + buffer->getAttributeName() + "\", which position-normal leaves out";
    }
    return {};
}

/// Why the positions of a mesh with this error are not quantized, as the end of a sentence.
std::string whyPositionsStay(const kel::mesh::Mesh& mesh, double error, double accepted) {
    if (!kel::src::detail::isAttributeVec3f(positionsOf(mesh)))
        return " has no three-float positions to quantize.";
    if (error == UNBOUNDED) return " has positions that are not finite or whose extent overflows.";
    return " would have positions off by " + numberText(error) + ", and " + numberText(accepted) +
           " is accepted.";
}

} // namespace

std::vector<double> steps::positionErrors(const Scene& scene, Codes codes) {
    std::vector<double> errors(scene.meshes.size());
    for (std::size_t m = 0; m < errors.size(); ++m) {
        if (const kel::mesh::MeshPtr& mesh = scene.meshes[m].mesh)
            errors[m] = positionErrorOf(positionsOf(*mesh), codes);
    }
    return errors;
}

std::vector<ReachedError> steps::measureErrors(const Scene& scene, Target mode,
                                               const std::vector<double>& positionErrors) {
    if (isContainerTarget(mode))
        throw std::invalid_argument("Errors are measured for the public writer's modes, not for a preset.");
    std::vector<ReachedError> errors(scene.meshes.size());
    for (std::size_t m = 0; m < errors.size() && mode != Target::UNCOMPRESSED; ++m) {
        const kel::mesh::MeshPtr& mesh = scene.meshes[m].mesh;
        if (!mesh) continue;
        const AttributePtr positions = positionsOf(*mesh);
        errors[m].position = positionErrors.at(m);
        if (mode != Target::POSITION_NORMAL_COMPRESSED || !positions) continue;
        if (const AttributePtr normals = packedNormalsOf(mesh))
            errors[m].normalDegrees =
                normalErrorOf(*normals, std::min(normals->getElementCount(), positions->getElementCount()));
    }
    return errors;
}

ModeChoice steps::chooseMode(const Scene& scene, const MaxError& accepted,
                             const std::vector<double>& positionErrors) {
    const std::size_t count = scene.meshes.size();
    const auto because = [&](ModeChoice choice, std::size_t mesh, const std::string& reason) {
        choice.whyNotSmaller = placeOfMesh(scene, mesh) + reason;
        return choice;
    };
    ModeChoice uncompressed;
    uncompressed.meshes.resize(count);

    ModeChoice position = uncompressed;
    position.mode = Target::POSITION_COMPRESSED;
    for (std::size_t m = 0; m < count; ++m) {
        const kel::mesh::MeshPtr& mesh = scene.meshes[m].mesh;
        if (!mesh) continue;
        const double error = positionErrors.at(m);
        if (!(error <= accepted.position) || error == UNBOUNDED)
            return because(std::move(uncompressed), m, whyPositionsStay(*mesh, error, accepted.position));
        position.meshes[m].position = error;
        position.largest.position = std::max(position.largest.position, error);
    }

    std::vector<std::pair<std::size_t, AttributePtr>> normals; ///< by mesh
    for (std::size_t m = 0; m < count; ++m) {
        AttributePtr buffer = packedNormalsOf(scene.meshes[m].mesh);
        if (!buffer) continue;
        const std::string lost = lostByPacking(scene.meshes[m].mesh, buffer);
        if (!lost.empty()) return because(std::move(position), m, ' ' + lost + '.');
        normals.emplace_back(m, std::move(buffer));
    }
    if (normals.empty()) return position; // position-normal would write the same
    ModeChoice packed = position;
    packed.mode = Target::POSITION_NORMAL_COMPRESSED;
    for (const auto& [m, buffer] : normals) {
        const double error = normalErrorOf(*buffer, buffer->getElementCount());
        if (error > accepted.normalDegrees)
            return because(std::move(position), m,
                           " would have normals off by " + numberText(error) + " degrees, and " +
                               numberText(accepted.normalDegrees) + " is accepted.");
        packed.meshes[m].normalDegrees = error;
        packed.largest.normalDegrees = std::max(packed.largest.normalDegrees, error);
    }
    return packed;
}

} // namespace kel::prepare
