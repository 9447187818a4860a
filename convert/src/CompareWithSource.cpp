#include "CompareWithSource.h"

#include "ComparableFromScene.h"

#include <kel/convert/Verify.h>
#include <kel/mesh/AttributeNames.h>
#include <kel/src/encoding/EncodingPresets.h>
#include <kel/src/format/MetadataKeys.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace kel::convert {

namespace {

namespace metadata = kel::src::format::metadata;
using kel::prepare::Target;
using kel::prepare::TransformOptions;
using kel::scene::SceneMesh;

/// The right angle about the third axis that takes one axis onto another: left and right stay.
void turn(double* vector, const TransformOptions& change) {
    const auto from = static_cast<std::size_t>(change.fromUp), to = static_cast<std::size_t>(change.toUp);
    if (from == to) return;
    const double up = vector[from];
    vector[from] = -vector[to];
    vector[to] = up;
}

void transform(Point& place, const TransformOptions& change) {
    turn(place.data(), change);
    for (double& coordinate : place)
        coordinate *= change.scale;
}

void transform(ComparableMesh& mesh, const TransformOptions& change) {
    for (Point& position : mesh.positions)
        transform(position, change);
    transform(mesh.origin, change);
    mesh.positionRounding *= change.scale;
    if (change.scale != 1.0) mesh.positionLoss += mesh.positionRounding; // they become floats again
    const auto normals = mesh.attributes.find(kel::mesh::DEFAULT_NORMALS_NAME);
    if (normals == mesh.attributes.end() || normals->second.components != 3) return;
    std::vector<float>& values = normals->second.values;
    for (std::size_t i = 0; i < values.size(); i += 3) {
        Point normal{};
        std::copy_n(values.begin() + static_cast<std::ptrdiff_t>(i), 3, normal.begin());
        turn(normal.data(), change);
        for (std::size_t c = 0; c < 3; ++c)
            values[i + c] = static_cast<float>(normal[c]);
    }
}

/// Into the box of a preset, for what it stores as codes.
void clamp(ComparableMesh& mesh, Target target) {
    const auto& precision = kel::src::detail::getSRCEncodingPreset(targetName(target)).precision;
    for (const auto& [name, bits] : precision) {
        if (bits == 32) continue;
        if (name == kel::mesh::DEFAULT_POSITIONS_NAME) {
            for (Point& position : mesh.positions) {
                for (double& coordinate : position)
                    coordinate = std::clamp(coordinate, -0.5, 0.5);
            }
        }
        const auto attribute = mesh.attributes.find(name);
        if (attribute == mesh.attributes.end()) continue;
        for (float& value : attribute->second.values)
            value = std::clamp(value, -0.5f, 0.5f);
    }
}

/// The limits of a file whose codes were rounded: without that knowledge a whole step is allowed.
void tighten(ComparableScene& scene, Target target, const std::vector<kel::prepare::ReachedError>& reached) {
    constexpr double HALF = 0.5 + 0.005; // with the roundings of what was moved into a preset's box
    constexpr double ROUNDING = 1.0 + 1e-9;
    for (std::size_t m = 0; m < scene.meshes.size(); ++m) {
        ComparableMesh& mesh = scene.meshes[m];
        if (!isContainerTarget(target)) {
            // The origin, added on both sides, rounds sums.
            const auto& [x, y, z] = mesh.origin;
            const double rounding =
                1e-8 * mesh.positionRounding + 1e-15 * (std::abs(x) + std::abs(y) + std::abs(z));
            if (m < reached.size())
                mesh.positionLoss = std::min(mesh.positionLoss, reached[m].position * ROUNDING + rounding);
            continue;
        }
        mesh.positionLoss *= HALF;
        for (auto& [name, attribute] : mesh.attributes)
            attribute.loss *= HALF;
    }
}

/// The container writer takes what is not of floats as floats, bit by bit.
bool hasOnlyFloats(const SceneMesh& entry) {
    for (std::size_t i = 0; entry.mesh && i < entry.mesh->getNumAttributeBuffers(); ++i) {
        const auto buffer = entry.mesh->getAttributeBuffer(i);
        if (buffer && buffer->getComponentType() != kel::mesh::FLOAT) return false;
    }
    return true;
}

} // namespace

CompareReport compareWithSource(kel::scene::Scene source, const Recipe& recipe, Target target,
                                const TransformOptions& change, const kel::src::SrcFile& file,
                                const std::vector<kel::prepare::ReachedError>* reached) {
    CompareLimits limits;
    const bool isContainer = isContainerTarget(target);
    auto& entries = source.meshes;
    if (isContainer || recipe.onlyTriangles) {
        const auto isLeftOut = [](const SceneMesh& entry) {
            return entry.mesh && entry.mesh->getPrimitiveType() != kel::mesh::TRIANGLES;
        };
        entries.erase(std::remove_if(entries.begin(), entries.end(), isLeftOut), entries.end());
    }
    if (isContainer && !std::all_of(entries.begin(), entries.end(), hasOnlyFloats))
        limits.ignored.push_back(DifferenceKind::ATTRIBUTES);

    ComparableScene expected = comparableScene(std::move(source)), found = comparableScene(file, "");
    const bool isChanged = recipe.scale != 1.0 || recipe.toUnit || recipe.toUp;
    for (ComparableMesh& mesh : expected.meshes) {
        if (isChanged) transform(mesh, change);
        if (isContainer && !recipe.fit) clamp(mesh, target);
    }
    for (ComparableScene* scene : {&expected, &found}) {
        for (ComparableMesh& mesh : scene->meshes) {
            // They tell of the change.
            if (isChanged) mesh.metadata.erase(std::string(metadata::TRANSFORM));
            if (isChanged) mesh.metadata.erase(std::string(metadata::SOURCE));
        }
    }
    if (reached) tighten(found, target, *reached);
    return compare(expected, found, limits);
}

CompareReport compareWithSource(const kel::src::SrcWriterInput& source, const Recipe& recipe, Target target,
                                const TransformOptions& change, const kel::src::SrcFile& file) {
    return compareWithSource(kel::scene::fromInput(source), recipe, target, change, file, nullptr);
}

} // namespace kel::convert
