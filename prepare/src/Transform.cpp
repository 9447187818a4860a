#include <kel/prepare/detail/Steps.h>

#include "SceneSteps.h"

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

/// The right angle about the third axis that takes `from` onto `to`.
Matrix turn(UpAxis from, UpAxis to) {
    Matrix matrix{1, 0, 0, 0, 1, 0, 0, 0, 1};
    if (from == to) return matrix;
    const auto f = static_cast<std::size_t>(from);
    const auto t = static_cast<std::size_t>(to);
    matrix[3 * f + f] = matrix[3 * t + t] = 0.0;
    matrix[3 * t + f] = 1.0;
    matrix[3 * f + t] = -1.0; // keeps left and right: the determinant is 1
    return matrix;
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

/// Whether the transform changes attributes of this name.
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
        for (const AttributePtr& buffer : detail::attributesOf(entry.mesh)) {
            if (!buffer || !isChanged(buffer->getAttributeName(), turns)) continue;
            if (!kel::src::detail::isAttributeVec3f(buffer))
                refuse(": attribute \"" + buffer->getAttributeName() +
                       "\" is not three floats per vertex and cannot be transformed; convert it.");
        }
    }
}

AttributePtr transformed(const AttributePtr& buffer, const Matrix& matrix) {
    const detail::PackedFloats values(*buffer);
    detail::Bytes bytes(values.size() * sizeof(float));
    auto* out = reinterpret_cast<float*>(bytes.data());
    // Every row of a turn has one entry; the sum of three would turn an infinity into NaN.
    std::array<std::size_t, 3> source{};
    std::array<double, 3> factor{};
    for (std::size_t row = 0; row < 3; ++row) {
        for (std::size_t column = 0; column < 3; ++column) {
            if (matrix[3 * row + column] == 0.0) continue;
            source[row] = column;
            factor[row] = matrix[3 * row + column];
        }
    }
    for (std::size_t i = 0; i < values.size(); i += 3) {
        for (std::size_t row = 0; row < 3; ++row) {
            const double value = static_cast<double>(values.data()[i + source[row]]);
            out[i + row] = static_cast<float>(value * factor[row] + 0.0); // + 0 makes -0 a 0
        }
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

void steps::transform(Scene& scene, const TransformOptions& options) {
    if (!std::isfinite(options.scale) || !(options.scale > 0.0)) {
        throw std::invalid_argument("The scale must be a finite number greater than 0.");
    }
    const bool turns = options.fromUp != options.toUp;
    if (!turns && options.scale == 1.0) return;
    requireTransformable(scene, turns);

    const Matrix rotation = turn(options.fromUp, options.toUp);
    format::Transform record;
    record.from = *axisName(options.fromUp);
    record.to = *axisName(options.toUp);
    record.scale = options.scale;
    for (std::size_t i = 0; i < rotation.size(); ++i)
        record.matrix[i] = rotation[i] * options.scale;

    detail::SharedBuffers<AttributePtr> shared;
    detail::changeAttributes(scene, [&](std::size_t m, std::vector<AttributePtr>& attributes) {
        for (AttributePtr& buffer : attributes) {
            if (!buffer || !isChanged(buffer->getAttributeName(), turns)) continue;
            const bool scales = buffer->getAttributeName() == kel::mesh::DEFAULT_POSITIONS_NAME;
            const Matrix& matrix = scales ? record.matrix : rotation;
            buffer = shared.of(buffer, [&](const AttributePtr& old) { return transformed(old, matrix); });
        }
        scene.meshes[m].setMetaData(format::metadata::TRANSFORM,
                                    format::transformText(combined(scene, m, record)));
        return true;
    });
}

} // namespace kel::prepare
