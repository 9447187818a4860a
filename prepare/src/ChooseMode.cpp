#include <kel/prepare/ChooseMode.h>

#include "Buffers.h"

#include <kel/mesh/AttributeNames.h>
#include <kel/mesh/QuantizeVec3.h>
#include <kel/mesh/Transforms.h>
#include <kel/src/MeshUtils.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>

namespace kel::prepare {

namespace {

using detail::AttributePtr;
using detail::PackedFloats;

constexpr double UNBOUNDED = std::numeric_limits<double>::infinity();

/// Quantizes and decodes one axis of positions.
class Axis {
public:
    Axis(float center, float size)
        : min(center - size * 0.5f), max(center + size * 0.5f), scale(static_cast<double>(65535.0f / size)),
          offset(static_cast<double>(min) * scale) {}

    double error(float value) const {
        const auto code = kel::mesh::quantizeComponent<float, std::uint16_t>(value, min, max);
        const auto decoded = static_cast<float>((static_cast<double>(code) + offset) / scale);
        return static_cast<double>(decoded) - static_cast<double>(value);
    }

private:
    float min;
    float max;
    double scale;
    double offset;
};

double positionError(const AttributePtr& positions) {
    if (!kel::src::detail::isAttributeVec3f(positions)) return UNBOUNDED;
    if (positions->getElementCount() == 0) return 0.0;
    glm::vec3 center, size;
    kel::src::detail::computeBoundingBoxCenterSize(positions, center, size);
    const Axis x(center.x, size.x), y(center.y, size.y), z(center.z, size.z);
    double largest = 0.0;
    const PackedFloats values(*positions);
    for (const float* p = values.begin(); p != values.end(); p += 3) {
        const double dx = x.error(p[0]), dy = y.error(p[1]), dz = z.error(p[2]);
        const double square = dx * dx + dy * dy + dz * dz;
        if (!(square <= std::numeric_limits<double>::max())) return UNBOUNDED; // NaN too
        largest = std::max(largest, square);
    }
    return std::sqrt(largest);
}

double normalError(const AttributePtr& normals, std::size_t count) {
    constexpr double DEGREES = 57.29577951308232;
    const PackedFloats values(*normals);
    double largest = 0.0; // squared tangent, so that no vertex costs an arc tangent
    for (const float* n = values.begin(); n != values.begin() + 3 * count; n += 3) {
        const double x = static_cast<double>(n[0]), y = static_cast<double>(n[1]),
                     z = static_cast<double>(n[2]);
        if (!std::isfinite(x + y + z) || (x == 0.0 && y == 0.0 && z == 0.0)) continue;
        unsigned char code[2];
        float decoded[3];
        kel::mesh::encodeOctahedralNormal(n, code);
        kel::mesh::decodeOctahedralNormal(code, decoded);
        const double u = static_cast<double>(decoded[0]), v = static_cast<double>(decoded[1]),
                     w = static_cast<double>(decoded[2]);
        const double cx = y * w - z * v, cy = z * u - x * w, cz = x * v - y * u;
        const double dot = x * u + y * v + z * w;
        if (dot <= 0.0) return 180.0; // the code's cell is far smaller than a right angle
        largest = std::max(largest, (cx * cx + cy * cy + cz * cz) / (dot * dot));
    }
    return std::atan(std::sqrt(largest)) * DEGREES;
}

AttributePtr positionsOf(const kel::mesh::Mesh& mesh) {
    return mesh.getAttributeBuffer(kel::mesh::DEFAULT_POSITIONS_NAME);
}

/// The normals that position-normal packs; empty where it codes the mesh as position does.
AttributePtr packedNormalsOf(const kel::mesh::Mesh& mesh) {
    const AttributePtr normals = mesh.getAttributeBuffer(kel::mesh::DEFAULT_NORMALS_NAME);
    return kel::src::detail::isAttributeVec3f(normals) ? normals : nullptr;
}

ReachedError errorOf(const kel::mesh::MeshPtr& mesh, Target mode) {
    if (!mesh || mode == Target::UNCOMPRESSED) return {};
    ReachedError error;
    const AttributePtr positions = positionsOf(*mesh);
    error.position = positionError(positions);
    if (mode == Target::POSITION_NORMAL_COMPRESSED && positions) {
        if (const AttributePtr normals = packedNormalsOf(*mesh)) {
            error.normalDegrees =
                normalError(normals, std::min(normals->getElementCount(), positions->getElementCount()));
        }
    }
    return error;
}

/// What position-normal would lose of a mesh, as the end of a sentence; empty when it keeps all of it.
std::string lostByPacking(const kel::mesh::Mesh& mesh) {
    const AttributePtr normals = packedNormalsOf(mesh);
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

} // namespace

const char* nameOf(Target target) {
    switch (target) {
    case Target::PRESET_DEFAULT:
        return "default";
    case Target::PRESET_CMP1:
        return "CMP1";
    case Target::UNCOMPRESSED:
        return "uncompressed";
    case Target::POSITION_COMPRESSED:
        return "position";
    case Target::POSITION_NORMAL_COMPRESSED:
        return "position-normal";
    }
    return "unknown";
}

std::vector<ReachedError> measureErrors(const kel::src::SrcWriterInput& input, Target mode) {
    if (isContainerTarget(mode)) {
        throw std::invalid_argument("Errors are measured for the public writer's modes, not for a preset.");
    }
    std::vector<ReachedError> errors(input.meshes.size());
    for (std::size_t m = 0; m < errors.size(); ++m)
        errors[m] = errorOf(input.meshes[m], mode);
    return errors;
}

ModeChoice chooseMode(const kel::src::SrcWriterInput& input, const MaxError& accepted) {
    ModeChoice uncompressed;
    uncompressed.meshes.resize(input.meshes.size());

    ModeChoice position;
    position.mode = Target::POSITION_COMPRESSED;
    for (std::size_t m = 0; m < input.meshes.size(); ++m) {
        const ReachedError error = errorOf(input.meshes[m], position.mode);
        position.meshes.push_back(error);
        if (error.position <= accepted.position && error.position != UNBOUNDED) continue;
        uncompressed.whyNotSmaller = detail::placeOf(input, m);
        if (!kel::src::detail::isAttributeVec3f(positionsOf(*input.meshes[m]))) {
            uncompressed.whyNotSmaller += " has no three-float positions to quantize.";
        } else if (error.position == UNBOUNDED) {
            uncompressed.whyNotSmaller += " has positions that are not finite or whose extent overflows.";
        } else {
            uncompressed.whyNotSmaller += " would have positions off by " +
                                          detail::numberText(error.position) + ", and " +
                                          detail::numberText(accepted.position) + " is accepted.";
        }
        return uncompressed;
    }
    position.largest = largestOf(position.meshes);

    ModeChoice packed = position;
    packed.mode = Target::POSITION_NORMAL_COMPRESSED;
    bool anyNormals = false;
    for (std::size_t m = 0; m < input.meshes.size(); ++m) {
        if (!input.meshes[m]) continue;
        const kel::mesh::Mesh& mesh = *input.meshes[m];
        const AttributePtr normals = packedNormalsOf(mesh);
        if (!normals) continue;
        anyNormals = true;
        const std::string lost = lostByPacking(mesh);
        if (!lost.empty()) {
            position.whyNotSmaller = detail::placeOf(input, m) + ' ' + lost + '.';
            return position;
        }
    }
    if (!anyNormals) return position; // position-normal would write the same
    for (std::size_t m = 0; m < input.meshes.size(); ++m) {
        if (!input.meshes[m]) continue;
        const AttributePtr normals = packedNormalsOf(*input.meshes[m]);
        if (!normals) continue;
        ReachedError& error = packed.meshes[m];
        error.normalDegrees = normalError(normals, normals->getElementCount());
        if (error.normalDegrees > accepted.normalDegrees) {
            position.whyNotSmaller = detail::placeOf(input, m) + " would have normals off by " +
                                     detail::numberText(error.normalDegrees) + " degrees, and " +
                                     detail::numberText(accepted.normalDegrees) + " is accepted.";
            return position;
        }
    }
    packed.largest = largestOf(packed.meshes);
    return packed;
}

} // namespace kel::prepare
