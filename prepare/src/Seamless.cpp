#include <kel/prepare/detail/Steps.h>

#include "LatticeSteps.h"
#include "MeshBuffers.h"

#include <kel/mesh/AttributeNames.h>
#include <kel/src/MeshUtils.h>
#include <kel/src/format/MetadataKeys.h>

#include <charconv>
#include <stdexcept>
#include <utility>

namespace kel::prepare {

namespace {

using detail::AttributePtr;
using detail::LatticeBox;
using detail::LatticeMesh;
using detail::LatticePoint;
using detail::stepOf;
namespace format = kel::src::format;

/// A float holds a multiple of the step, and the sum of two corners of a cube, when the lower corner is at
/// most this many steps from 0.
constexpr double MOST_STEPS = 4194303.0; // of 22 bits

/// The smallest exponent, from `exponent` on, whose step leads to the corner in so few.
int exponentAt(double offset, int exponent) {
    while (exponent <= detail::HIGHEST_EXPONENT && offset > MOST_STEPS * stepOf(exponent))
        ++exponent;
    return exponent;
}

/// For messages: four significant digits, the same in any locale.
std::string numberText(double value) {
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, value, std::chars_format::general, 4);
    return std::string(text, end.ptr);
}

/// Halfway between two multiples lies the one above, for every mesh alike.
float nearestMultiple(float value, double step) {
    return static_cast<float>(std::floor(static_cast<double>(value) / step + 0.5) * step);
}

/// Each element, and the last one twice more.
AttributePtr withAddedVertices(const AttributePtr& buffer) {
    std::vector<std::uint32_t> vertices(buffer->getElementCount());
    for (std::size_t v = 0; v < vertices.size(); ++v)
        vertices[v] = static_cast<std::uint32_t>(v);
    if (!vertices.empty()) vertices.insert(vertices.end(), SEAMLESS_VERTICES, vertices.back());
    return detail::gatherElements(*buffer, vertices);
}

/// Names every vertex in order, as a mesh without indices draws them.
detail::IndexPtr indicesOfAll(std::size_t vertices) {
    const auto fill = [&](auto indices) {
        for (std::size_t v = 0; v < vertices; ++v)
            indices.push_back(static_cast<typename decltype(indices)::value_type>(v));
        return detail::makeIndices(std::move(indices));
    };
    if (vertices <= 65535) return fill(std::vector<std::uint16_t>());
    return fill(std::vector<std::uint32_t>());
}

class Seaming {
public:
    Seaming(kel::scene::Scene& scene, bool isPreset) : scene(scene), isPreset(isPreset) {
        report.errors.resize(scene.meshes.size());
        boxes.resize(scene.meshes.size());
    }

    void run() {
        collect();
        if (parts.empty()) return;
        chooseExponents();
        std::vector<LatticeMesh> meshes;
        for (const Part& part : parts)
            meshes.push_back({part.values->data(), part.values->size() / 3, part.exponent});
        const detail::LatticeSteps steps(meshes);
        report.shared = steps.shared();
        std::size_t next = 0;
        detail::forEachMesh(scene, [&](std::size_t m) {
            if (next == parts.size() || parts[next].mesh != m) return;
            move(
                parts[next],
                [&, part = next](std::size_t vertex) {
                    return stepOf(isPreset ? steps.exponentOf(part) : steps.exponentOf(part, vertex));
                },
                stepOf(steps.exponentOf(next)));
            ++next;
        });
        repeat();
    }

    SeamlessReport report;
    std::vector<steps::PositionBox> boxes;

private:
    struct Part {
        std::size_t mesh;
        AttributePtr positions;
        std::unique_ptr<detail::PackedFloats> values;
        LatticeBox box;
        int exponent = 0;
    };

    [[noreturn]] void refuse(std::size_t mesh, const std::string& reason) const {
        throw std::invalid_argument(placeOfMesh(scene, mesh) + reason);
    }

    /// Finds what takes part, and whether it can.
    void collect() {
        std::uint64_t vertices = 0;
        const std::string* origin = nullptr; // of the first mesh that takes part
        detail::forEachMesh(scene, [&](std::size_t m) {
            const kel::scene::SceneMesh& entry = scene.meshes[m];
            Part part{m, entry.mesh->getAttributeBuffer(kel::mesh::DEFAULT_POSITIONS_NAME), nullptr, {}, 0};
            if (!kel::src::detail::isAttributeVec3f(part.positions) || part.positions->getElementCount() == 0)
                return;
            if (entry.mesh->getPrimitiveType() == kel::mesh::POINTS) {
                ++report.pointClouds;
                return;
            }
            if (entry.find(format::metadata::FIT))
                refuse(m, " was fitted to a range already; make it seamless before that.");
            if (entry.find(format::metadata::BOUNDS)) refuse(m, " is seamless already.");
            const std::string* own = entry.find(format::metadata::ORIGIN);
            if (parts.empty()) origin = own;
            if ((own ? *own : "") != (origin ? *origin : ""))
                refuse(m, " has another origin than those before it, so their positions cannot be compared; "
                          "give all of them one.");
            part.values = std::make_unique<detail::PackedFloats>(*part.positions);
            for (const float* p = part.values->begin(); p != part.values->end(); p += 3) {
                if (!std::isfinite(p[0]) || !std::isfinite(p[1]) || !std::isfinite(p[2]))
                    refuse(m, " has positions that are not finite.");
                part.box.include({p[0], p[1], p[2]});
            }
            vertices += part.positions->getElementCount();
            if (vertices >= ~std::uint32_t(0)) refuse(m, " is one mesh too many: there are 2^32 vertices.");
            parts.push_back(std::move(part));
        });
    }

    /// Of each mesh's size, and of its distance from 0.
    void chooseExponents() {
        LatticeBox all;
        for (const Part& part : parts)
            all.include(part.box);
        // A single point may have any step.
        const int whole =
            all.longestSide() > 0.0 ? detail::exponentFor(all.longestSide()) : detail::HIGHEST_EXPONENT;
        int largest = detail::LOWEST_EXPONENT;
        for (Part& part : parts) {
            const int own = detail::exponentFor(part.box.longestSide());
            part.exponent = exponentAt(part.box.offset(), own);
            largest = std::max(largest, part.exponent);
            if (own > detail::HIGHEST_EXPONENT) refuse(part.mesh, " is too large for positions of 16 bits.");
            if (part.exponent <= std::max(whole, own)) continue;
            const double steps = part.box.offset() / stepOf(own);
            refuse(part.mesh, " lies too far from 0 for its size: its box begins " +
                                  numberText(part.box.offset()) + " away, which is " + numberText(steps) +
                                  " steps of " + numberText(stepOf(own)) +
                                  " and needs more than 22 bits; store positions about an origin nearby.");
        }
        for (Part& part : parts) {
            if (isPreset) part.exponent = largest;
        }
    }

    template<typename StepOfVertex>
    void move(Part& part, const StepOfVertex& stepOfVertex, double step) {
        kel::scene::SceneMesh& entry = scene.meshes[part.mesh];
        const std::size_t count = part.values->size() / 3;
        const std::size_t added = isPreset ? 0 : SEAMLESS_VERTICES;
        detail::Bytes bytes((count + added) * sizeof(LatticePoint));
        auto* moved = reinterpret_cast<float*>(bytes.data());
        LatticeBox box;
        double squared = 0.0;
        for (std::size_t v = 0; v < count; ++v) {
            const double stepHere = stepOfVertex(v);
            LatticePoint at;
            double off = 0.0;
            for (std::size_t axis = 0; axis < 3; ++axis) {
                const float value = part.values->data()[3 * v + axis];
                at[axis] = nearestMultiple(value, stepHere);
                off += std::pow(static_cast<double>(at[axis]) - static_cast<double>(value), 2);
            }
            squared = std::max(squared, off);
            box.include(at);
            std::copy(at.begin(), at.end(), moved + 3 * v);
        }
        for (std::size_t axis = 0; axis < 3 && added != 0; ++axis) {
            moved[3 * count + axis] = static_cast<float>(box.low[axis]);
            moved[3 * count + 3 + axis] = static_cast<float>(box.low[axis] + detail::LATTICE_CELLS * step);
        }
        report.errors[part.mesh] = std::sqrt(squared);
        boxes[part.mesh] = {box.low, detail::LATTICE_CELLS * step};
        if (report.meshes++ == 0) report.smallestStep = report.largestStep = step;
        report.smallestStep = std::min(report.smallestStep, step);
        report.largestStep = std::max(report.largestStep, step);

        std::vector<AttributePtr> attributes = detail::attributesOf(entry.mesh);
        const AttributePtr made =
            detail::makeAttribute(kel::mesh::FLOAT, 3, std::move(bytes), kel::mesh::DEFAULT_POSITIONS_NAME);
        for (AttributePtr& buffer : attributes) {
            if (buffer == part.positions) {
                buffer = made;
            } else if (buffer && added != 0) {
                buffer = withAddedVertices(buffer);
            }
        }
        detail::IndexPtr indices = entry.mesh->getIndexBuffer();
        if (!indices && added != 0) indices = indicesOfAll(count);
        part.positions.reset();
        part.values.reset();
        detail::replaceMesh(entry,
                            detail::makeMesh(entry.mesh->getPrimitiveType(), entry.mesh->getNumPrimitives(),
                                             std::move(indices), std::move(attributes)));
        entry.setMetaData(format::metadata::BOUNDS, format::boundsText(format::Bounds{box.low, box.high}));
    }

    /// A mesh that is listed again has what it was given the first time.
    void repeat() {
        std::unordered_map<const kel::mesh::Mesh*, std::size_t> first;
        for (std::size_t m = 0; scene.repeatsMeshes && m < scene.meshes.size(); ++m) {
            const std::size_t known = first.try_emplace(scene.meshes[m].mesh.get(), m).first->second;
            report.errors[m] = report.errors[known];
            boxes[m] = boxes[known];
        }
    }

    kel::scene::Scene& scene;
    const bool isPreset;
    std::vector<Part> parts; ///< in the order of the scene
};

/// Whether the target stores positions as codes of 16 bits.
bool storesShortPositions(Target target) {
    if (!isContainerTarget(target)) return target != Target::UNCOMPRESSED;
    const unsigned int bits = detail::ContainerPreset(target).bitsOf(kel::mesh::DEFAULT_POSITIONS_NAME);
    if (bits != 16 && bits != 32)
        throw std::invalid_argument("The preset \"" + std::string(targetName(target)) +
                                    "\" does not store positions in 16 bits.");
    return bits == 16;
}

} // namespace

void steps::seamless(Scene& scene, Target target, SeamlessReport* report, std::vector<PositionBox>* boxes) {
    if (report) *report = SeamlessReport();
    if (boxes) boxes->clear();
    if (!storesShortPositions(target)) {
        if (report) report->errors.resize(scene.meshes.size());
        return;
    }
    Seaming seaming(scene, isContainerTarget(target));
    seaming.run();
    if (report) *report = std::move(seaming.report);
    if (boxes) *boxes = std::move(seaming.boxes);
}

} // namespace kel::prepare
