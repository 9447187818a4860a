#include <kel/prepare/detail/Steps.h>

#include "MeshBuffers.h"

#include <kel/mesh/AttributeNames.h>
#include <kel/src/MeshUtils.h>
#include <kel/src/format/MetadataKeys.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>

namespace kel::prepare {

namespace {

using detail::AttributePtr;
using kel::scene::Scene;
using kel::scene::SceneMesh;
using Matrix = std::array<double, 9>; // row by row
namespace format = kel::src::format;

/// A turn: each axis is one of the old ones, kept or reversed.
struct Turn {
    std::array<std::size_t, 3> source{0, 1, 2};
    std::array<double, 3> sign{1.0, 1.0, 1.0};
};

/// The right angle about the third axis that takes `from` onto `to`.
Turn turnOf(UpAxis from, UpAxis to) {
    Turn turn;
    if (from == to) return turn;
    const auto f = static_cast<std::size_t>(from);
    const auto t = static_cast<std::size_t>(to);
    std::swap(turn.source[f], turn.source[t]);
    turn.sign[f] = -1.0; // keeps left and right: the determinant is 1
    return turn;
}

Matrix product(const Matrix& a, const Matrix& b) {
    Matrix c{};
    for (std::size_t row = 0; row < 3; ++row) {
        for (std::size_t column = 0; column < 3; ++column) {
            for (std::size_t k = 0; k < 3; ++k)
                c[3 * row + column] += a[3 * row + k] * b[3 * k + column];
        }
    }
    return c;
}

bool isChanged(const std::string& attribute, bool turns) {
    return attribute == kel::mesh::DEFAULT_POSITIONS_NAME ||
           (turns && attribute == kel::mesh::DEFAULT_NORMALS_NAME);
}

void requireTransformable(const Scene& scene, bool turns) {
    for (std::size_t m = 0; m < scene.meshes.size(); ++m) {
        const auto refuse = [&](const std::string& reason) {
            throw std::invalid_argument(placeOfMesh(scene, m) + reason);
        };
        const SceneMesh& entry = scene.meshes[m];
        if (!entry.mesh) continue;
        if (entry.find(format::metadata::FIT))
            refuse(" was fitted to a range already; transform it before that.");
        if (entry.find(format::metadata::BOUNDS)) refuse(" is seamless already; transform it before that.");
        for (const AttributePtr& buffer : detail::attributesOf(entry.mesh)) {
            if (!buffer || !isChanged(buffer->getAttributeName(), turns)) continue;
            if (!kel::src::detail::isAttributeVec3f(buffer))
                refuse(": attribute \"" + buffer->getAttributeName() +
                       "\" is not three floats per vertex and cannot be transformed; convert it.");
        }
    }
}

/// squaredRounding  becomes the largest square of a distance that rounding to floats adds
AttributePtr transformed(const AttributePtr& buffer, const Turn& turn, double scale,
                         double& squaredRounding) {
    const detail::PackedFloats values(*buffer);
    detail::Bytes bytes(values.size() * sizeof(float));
    auto* out = reinterpret_cast<float*>(bytes.data());
    // Not by a matrix, whose sum of three products would turn an infinity into NaN.
    for (std::size_t i = 0; i < values.size(); i += 3) {
        double squared = 0.0;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const double value =
                static_cast<double>(values.data()[i + turn.source[axis]]) * (turn.sign[axis] * scale);
            out[i + axis] = static_cast<float>(value + 0.0); // + 0 makes -0 a 0
            const double off = static_cast<double>(out[i + axis]) - value;
            squared += off * off;
        }
        squaredRounding = std::max(squaredRounding, squared); // which NaN leaves as it is
    }
    return detail::makeAttribute(kel::mesh::FLOAT, 3, std::move(bytes), buffer->getAttributeName());
}

/// The record of `now` done after what the mesh's metadata tell.
format::Transform combined(const Scene& scene, std::size_t position, const format::Transform& now) {
    const std::string* text = scene.meshes[position].find(format::metadata::TRANSFORM);
    const auto earlier = text ? format::readTransform(*text) : std::nullopt;
    if (!earlier) return now;
    format::Transform both = now;
    both.matrix = product(now.matrix, earlier->matrix);
    both.scale *= earlier->scale;
    both.from = earlier->from;
    const auto isFinite = [](double number) { return std::isfinite(number); };
    if (isFinite(both.scale) && std::all_of(both.matrix.begin(), both.matrix.end(), isFinite)) return both;
    throw std::invalid_argument(placeOfMesh(scene, position) +
                                ": its metadata tell of a transform that, combined with this one, is too "
                                "large for a number; remove their entry \"transform\".");
}

/// The mesh's origin is a place of the model, which is transformed as its positions are.
void transformOrigin(Scene& scene, std::size_t position, const Turn& turn, double scale) {
    const std::string* text = scene.meshes[position].find(format::metadata::ORIGIN);
    const auto old = text ? format::readOrigin(*text) : std::nullopt;
    if (!old) return;
    format::Origin origin{};
    for (std::size_t axis = 0; axis < 3; ++axis)
        origin[axis] = (*old)[turn.source[axis]] * (turn.sign[axis] * scale) + 0.0;
    if (!std::all_of(origin.begin(), origin.end(), [](double number) { return std::isfinite(number); }))
        throw std::invalid_argument(placeOfMesh(scene, position) +
                                    ": its origin, scaled, is too large for a number.");
    scene.meshes[position].setMetaData(format::metadata::ORIGIN, format::originText(origin));
}

} // namespace

const char* axisName(UpAxis axis) {
    return axis == UpAxis::X ? "x" : axis == UpAxis::Y ? "y" : "z";
}

std::optional<double> metresPer(std::string_view unit) {
    struct Unit {
        std::string_view name;
        double metres;
    };
    for (const Unit& known :
         {Unit{"mm", 0.001}, Unit{"cm", 0.01}, Unit{"dm", 0.1}, Unit{"m", 1.0}, Unit{"km", 1000.0},
          Unit{"in", 0.0254}, Unit{"ft", 0.3048}, Unit{"yd", 0.9144}, Unit{"mi", 1609.344}}) {
        if (known.name == unit) return known.metres;
    }
    return std::nullopt;
}

void steps::transform(Scene& scene, const TransformOptions& options, double* rounding) {
    if (!std::isfinite(options.scale) || !(options.scale > 0.0))
        throw std::invalid_argument("The scale must be a finite number greater than 0.");
    const bool turns = options.fromUp != options.toUp;
    if (!turns && options.scale == 1.0) return;
    requireTransformable(scene, turns);

    const Turn turn = turnOf(options.fromUp, options.toUp);
    format::Transform record;
    record.from = *axisName(options.fromUp);
    record.to = *axisName(options.toUp);
    record.scale = options.scale;
    record.matrix = {};
    for (std::size_t axis = 0; axis < 3; ++axis)
        record.matrix[3 * axis + turn.source[axis]] = turn.sign[axis] * options.scale;

    double positions = 0.0, normals = 0.0; // squares of the largest roundings
    detail::SharedBuffers<AttributePtr> shared;
    detail::changeAttributes(scene, [&](std::size_t m, std::vector<AttributePtr>& attributes) {
        for (AttributePtr& buffer : attributes) {
            if (!buffer || !isChanged(buffer->getAttributeName(), turns)) continue;
            const bool scales = buffer->getAttributeName() == kel::mesh::DEFAULT_POSITIONS_NAME;
            const double scale = scales ? options.scale : 1.0;
            buffer = shared.of(buffer, [&](const AttributePtr& old) {
                return transformed(old, turn, scale, scales ? positions : normals);
            });
        }
        transformOrigin(scene, m, turn, options.scale);
        scene.meshes[m].setMetaData(format::metadata::TRANSFORM,
                                    format::transformText(combined(scene, m, record)));
        return true;
    });
    if (rounding) *rounding = std::sqrt(positions);
}

} // namespace kel::prepare
