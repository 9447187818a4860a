#include <kel/prepare/detail/Steps.h>

#include "PackedReading.h"
#include "SceneSteps.h"

#include <kel/mesh/AttributeNames.h>
#include <kel/src/format/MetadataKeys.h>

#include <glm/geometric.hpp>
#include <glm/vec3.hpp>

#include <algorithm>
#include <cstring>
#include <map>
#include <numeric>
#include <set>
#include <utility>

namespace kel::prepare {

namespace {

using detail::AttributePtr;
using kel::scene::Scene;
using kel::scene::SceneMesh;
using NameSet = std::set<std::string>;

NameSet namesOf(const kel::mesh::Mesh& mesh) {
    NameSet names;
    for (const AttributePtr& buffer : detail::attributesOf(mesh)) {
        if (buffer) names.insert(buffer->getAttributeName());
    }
    return names;
}

/// Each vertex the sum of its triangles' normals, which are as long as the triangles are large.
std::vector<float> triangleNormals(const kel::mesh::Mesh& mesh, std::size_t count) {
    std::vector<glm::vec3> sums(count, glm::vec3(0.0f));
    const auto positions = mesh.getAttributeBuffer(kel::mesh::DEFAULT_POSITIONS_NAME);
    const auto indices = mesh.getIndexBuffer();
    if (positions && positions->isVec3f() && indices && mesh.getPrimitiveType() == kel::mesh::TRIANGLES) {
        const detail::PackedFloats values(*positions);
        const auto corner = [&](std::size_t vertex) {
            const float* first = values.data() + 3 * vertex;
            return glm::vec3(first[0], first[1], first[2]);
        };
        for (std::size_t i = 0; i + 2 < indices->getElementCount(); i += 3) {
            const std::size_t a = indices->getIndex(i), b = indices->getIndex(i + 1),
                              c = indices->getIndex(i + 2);
            if (std::max({a, b, c}) >= count) continue;
            const glm::vec3 normal = glm::cross(corner(b) - corner(a), corner(c) - corner(a));
            for (const std::size_t vertex : {a, b, c})
                sums[vertex] += normal;
        }
    }
    std::vector<float> normals;
    normals.reserve(count * 3);
    for (const glm::vec3& sum : sums) {
        const float length = glm::length(sum);
        const glm::vec3 normal = length > 0.0f ? sum / length : glm::vec3(0.0f, 0.0f, 1.0f);
        normals.insert(normals.end(), {normal.x, normal.y, normal.z});
    }
    return normals;
}

/// Values that change nothing where a mesh lacks an attribute.
AttributePtr neutralAttribute(const kel::mesh::Mesh& mesh, const std::string& name, std::size_t components) {
    const auto positions = mesh.getAttributeBuffer(kel::mesh::DEFAULT_POSITIONS_NAME);
    const std::size_t count = positions ? positions->getElementCount() : 0;
    const std::vector<float> values =
        name == kel::mesh::DEFAULT_NORMALS_NAME && components == 3
            ? triangleNormals(mesh, count)
            : std::vector<float>(count * components, name == "color" ? 1.0f : 0.0f);
    detail::Bytes bytes(values.size() * sizeof(float));
    if (!bytes.empty()) std::memcpy(bytes.data(), values.data(), bytes.size());
    return detail::makeAttribute(kel::mesh::FLOAT, components, std::move(bytes), name);
}

/// The names of each mesh's attributes. Most meshes have the same, so each set is kept once.
class AttributeNames {
public:
    explicit AttributeNames(const Scene& scene) {
        sets.reserve(scene.meshes.size());
        for (const SceneMesh& entry : scene.meshes)
            sets.push_back(&*distinct.insert(entry.mesh ? namesOf(*entry.mesh) : NameSet()).first);
    }
    const NameSet& of(std::size_t mesh) const { return *sets[mesh]; }

    /// The positions of the meshes in the order in which they are written.
    std::vector<std::size_t> writingOrder() const {
        std::vector<std::size_t> order(sets.size());
        std::iota(order.begin(), order.end(), std::size_t(0));
        if (!isChain()) {
            std::stable_sort(order.begin(), order.end(),
                             [&](std::size_t a, std::size_t b) { return isBefore(sets[a], sets[b]); });
        }
        return order;
    }

private:
    /// Whether each mesh has at least the attributes of all meshes before it.
    bool isChain() const {
        return std::adjacent_find(sets.begin(), sets.end(), [](const NameSet* before, const NameSet* after) {
                   return before != after &&
                          !std::includes(after->begin(), after->end(), before->begin(), before->end());
               }) == sets.end();
    }
    static bool isBefore(const NameSet* a, const NameSet* b) {
        if (a == b) return false;
        return a->size() != b->size() ? a->size() < b->size() : *a < *b;
    }

    std::set<NameSet> distinct;
    std::vector<const NameSet*> sets; ///< by the mesh's position
};

} // namespace

void steps::keepAttributesApart(Scene& scene, ApartReport* report) {
    ApartReport done;
    const AttributeNames names(scene);
    const std::vector<std::size_t> order = names.writingOrder();

    std::vector<SceneMesh> ordered;
    ordered.reserve(order.size());
    for (const std::size_t position : order) {
        if (position != ordered.size()) ++done.moved;
        ordered.push_back(std::move(scene.meshes[position]));
    }
    scene.meshes = std::move(ordered);

    std::map<std::string, std::size_t> componentsSoFar, filled;
    detail::RepeatedMeshes repeated(scene);
    for (std::size_t m = 0; m < scene.meshes.size(); ++m) {
        SceneMesh& entry = scene.meshes[m];
        if (!entry.mesh || repeated.takeOver(m)) continue;
        std::vector<AttributePtr> attributes = detail::attributesOf(*entry.mesh);
        std::vector<std::string> added;
        for (const auto& [name, components] : componentsSoFar) {
            if (names.of(order[m]).count(name) != 0) continue;
            attributes.push_back(neutralAttribute(*entry.mesh, name, components));
            ++filled[name];
            added.push_back(name);
        }
        for (const AttributePtr& buffer : attributes) {
            if (buffer) componentsSoFar[buffer->getAttributeName()] = buffer->getComponentCountPerElement();
        }
        if (added.empty()) continue;
        detail::replaceMesh(entry, detail::withAttributes(*entry.mesh, std::move(attributes)));
        entry.setMetaData(kel::src::format::metadata::FILLED, kel::src::format::namesText(added));
    }
    for (const auto& [name, count] : filled)
        done.filled.push_back({name, count});
    if (report) *report = done;
}

kel::src::SrcWriterInput keepAttributesApart(const kel::src::SrcWriterInput& input, ApartReport* report) {
    Scene scene = kel::scene::fromInput(input);
    steps::keepAttributesApart(scene, report);
    return toInput(std::move(scene));
}

} // namespace kel::prepare
