#include <kel/prepare/detail/Steps.h>

#include "PackedReading.h"
#include "QuantizationErrors.h"

#include <kel/mesh/AttributeNames.h>
#include <kel/mesh/QuantizeVec3.h>
#include <kel/mesh/Transforms.h>
#include <kel/src/MeshUtils.h>
#include <kel/src/kernels/OctahedralNormals.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>

namespace kel::prepare {

using detail::AttributePtr;

namespace {

using Code = std::uint16_t; // of one component of a position
constexpr float LARGEST_CODE = std::numeric_limits<Code>::max();

/// Quantizes and decodes one axis of positions.
class Axis {
public:
    Axis(float center, float size)
        : min(center - size * 0.5f), max(center + size * 0.5f),
          scale(static_cast<double>(LARGEST_CODE / size)), offset(static_cast<double>(min) * scale) {}

    double error(float value) const {
        const auto code = kel::mesh::quantizeComponent<float, Code>(value, min, max);
        const auto decoded = static_cast<float>((static_cast<double>(code) + offset) / scale);
        return static_cast<double>(decoded) - static_cast<double>(value);
    }

private:
    float min;
    float max;
    double scale;
    double offset;
};

double positionErrorOf(const AttributePtr& positions) {
    if (!kel::src::detail::isAttributeVec3f(positions)) return detail::UNBOUNDED;
    if (positions->getElementCount() == 0) return 0.0;
    glm::vec3 center, size;
    kel::src::detail::computeBoundingBoxCenterSize(positions, center, size);
    const Axis x(center.x, size.x), y(center.y, size.y), z(center.z, size.z);
    double largest = 0.0;
    const detail::PackedFloats values(*positions);
    for (const float* p = values.begin(); p != values.end(); p += 3) {
        const double dx = x.error(p[0]), dy = y.error(p[1]), dz = z.error(p[2]);
        const double square = dx * dx + dy * dy + dz * dz;
        if (!(square <= std::numeric_limits<double>::max())) return detail::UNBOUNDED; // NaN too
        largest = std::max(largest, square);
    }
    return std::sqrt(largest);
}

} // namespace

double detail::normalErrorOf(const kel::mesh::AttributeBuffer& normals, std::size_t count) {
    constexpr double DEGREES = 57.29577951308232;
    constexpr std::size_t BLOCK = 1024; // whose codes stay in the nearest cache
    unsigned char codes[2 * BLOCK];
    const PackedFloats values(normals);
    double largest = 0.0; // squared tangent, so that no vertex costs an arc tangent
    for (std::size_t i = 0; i < count; ++i) {
        const float* n = values.data() + 3 * i;
        if (i % BLOCK == 0) {
            kel::src::detail::encodeNormals(reinterpret_cast<const unsigned char*>(n),
                                            std::min(BLOCK, count - i), codes, 2);
        }
        const double x = static_cast<double>(n[0]), y = static_cast<double>(n[1]),
                     z = static_cast<double>(n[2]);
        if (!std::isfinite(x + y + z) || (x == 0.0 && y == 0.0 && z == 0.0)) continue;
        float decoded[3];
        kel::mesh::decodeOctahedralNormal(codes + 2 * (i % BLOCK), decoded);
        const double u = static_cast<double>(decoded[0]), v = static_cast<double>(decoded[1]),
                     w = static_cast<double>(decoded[2]);
        const double cx = y * w - z * v, cy = z * u - x * w, cz = x * v - y * u;
        const double dot = x * u + y * v + z * w;
        if (dot <= 0.0) return 180.0; // the code's cell is far smaller than a right angle
        largest = std::max(largest, (cx * cx + cy * cy + cz * cz) / (dot * dot));
    }
    return std::atan(std::sqrt(largest)) * DEGREES;
}

AttributePtr detail::packedNormalsOf(const kel::mesh::Mesh& mesh) {
    const AttributePtr normals = mesh.getAttributeBuffer(kel::mesh::DEFAULT_NORMALS_NAME);
    return kel::src::detail::isAttributeVec3f(normals) ? normals : nullptr;
}

ReachedError detail::errorOf(const kel::mesh::MeshPtr& mesh, Target mode) {
    if (!mesh || mode == Target::UNCOMPRESSED) return {};
    ReachedError error;
    const AttributePtr positions = mesh->getAttributeBuffer(kel::mesh::DEFAULT_POSITIONS_NAME);
    error.position = positionErrorOf(positions);
    if (mode == Target::POSITION_NORMAL_COMPRESSED && positions) {
        if (const AttributePtr normals = packedNormalsOf(*mesh)) {
            error.normalDegrees =
                normalErrorOf(*normals, std::min(normals->getElementCount(), positions->getElementCount()));
        }
    }
    return error;
}

std::vector<ReachedError> steps::measureErrors(const Scene& scene, Target mode) {
    if (isContainerTarget(mode)) {
        throw std::invalid_argument("Errors are measured for the public writer's modes, not for a preset.");
    }
    std::vector<ReachedError> errors;
    errors.reserve(scene.meshes.size());
    for (const kel::scene::SceneMesh& entry : scene.meshes)
        errors.push_back(detail::errorOf(entry.mesh, mode));
    return errors;
}

std::vector<ReachedError> measureErrors(const kel::src::SrcWriterInput& input, Target mode) {
    return steps::measureErrors(kel::scene::fromMeshes(input.meshes), mode);
}

} // namespace kel::prepare
