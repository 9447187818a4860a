#include <kel/prepare/detail/Steps.h>

#include "MeshBuffers.h"

#include <kel/mesh/AttributeNames.h>
#include <kel/src/format/MetadataKeys.h>

#include <glm/geometric.hpp>
#include <glm/vec3.hpp>

#include <algorithm>
#include <map>
#include <numeric>
#include <set>

namespace kel::prepare {

namespace {

using detail::AttributePtr;
using kel::scene::Scene;
using kel::scene::SceneMesh;
using NameSet = std::set<std::string>;

/// Each vertex the sum of its triangles' normals, which are as long as the triangles are large.
void addTriangleNormals(const kel::mesh::Mesh& mesh, const AttributePtr& positions,
                        std::vector<glm::vec3>& sums) {
    const auto indices = mesh.getIndexBuffer();
    if (!positions || !positions->isVec3f() || !indices || mesh.getPrimitiveType() != kel::mesh::TRIANGLES)
        return;
    const detail::PackedFloats values(*positions);
    const auto corner = [&](std::size_t vertex) {
        const float* first = values.data() + 3 * vertex;
        return glm::vec3(first[0], first[1], first[2]);
    };
    for (std::size_t i = 0; i + 2 < indices->getElementCount(); i += 3) {
        const std::size_t a = indices->getIndex(i), b = indices->getIndex(i + 1),
                          c = indices->getIndex(i + 2);
        if (std::max({a, b, c}) >= sums.size()) continue;
        const glm::vec3 normal = glm::cross(corner(b) - corner(a), corner(c) - corner(a));
        for (const std::size_t vertex : {a, b, c})
            sums[vertex] += normal;
    }
}

/// Values that change nothing where a mesh lacks an attribute.
AttributePtr neutralAttribute(const kel::mesh::Mesh& mesh, const std::string& name, std::size_t components) {
    const auto positions = mesh.getAttributeBuffer(kel::mesh::DEFAULT_POSITIONS_NAME);
    const std::size_t count = positions ? positions->getElementCount() : 0;
    detail::Bytes bytes(count * components * sizeof(float));
    auto* values = reinterpret_cast<float*>(bytes.data());
    if (name == kel::mesh::DEFAULT_NORMALS_NAME && components == 3) {
        std::vector<glm::vec3> sums(count, glm::vec3(0.0f));
        addTriangleNormals(mesh, positions, sums);
        for (const glm::vec3& sum : sums) {
            const float length = glm::length(sum);
            const glm::vec3 normal = length > 0.0f ? sum / length : glm::vec3(0.0f, 0.0f, 1.0f);
            for (const float component : {normal.x, normal.y, normal.z})
                *values++ = component;
        }
    } else {
        std::fill_n(values, count * components, name == "color" ? 1.0f : 0.0f);
    }
    return detail::makeAttribute(kel::mesh::FLOAT, components, std::move(bytes), name);
}

/// The names of each mesh's attributes. Most meshes have the same, so each set is kept once.
class AttributeNames {
public:
    explicit AttributeNames(const Scene& scene) {
        sets.reserve(scene.meshes.size());
        for (const SceneMesh& entry : scene.meshes) {
            NameSet names;
            for (const AttributePtr& buffer : detail::attributesOf(entry.mesh)) {
                if (buffer) names.insert(buffer->getAttributeName());
            }
            sets.push_back(&*distinct.insert(std::move(names)).first);
        }
    }
    const NameSet& of(std::size_t mesh) const { return *sets[mesh]; }

    /// The positions of the meshes in the order in which they are written: that of the scene where each mesh
    /// has at least the attributes of all meshes before it.
    std::vector<std::size_t> writingOrder() const {
        std::vector<std::size_t> order(sets.size());
        std::iota(order.begin(), order.end(), std::size_t(0));
        const auto lacksOne = [](const NameSet* before, const NameSet* after) {
            return before != after &&
                   !std::includes(after->begin(), after->end(), before->begin(), before->end());
        };
        if (std::adjacent_find(sets.begin(), sets.end(), lacksOne) == sets.end()) return order;
        std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
            const NameSet &first = of(a), &second = of(b);
            if (&first == &second) return false;
            return first.size() != second.size() ? first.size() < second.size() : first < second;
        });
        return order;
    }

private:
    std::set<NameSet> distinct;
    std::vector<const NameSet*> sets; ///< by the mesh's position
};

} // namespace

void steps::keepStoredAttributes(Scene& scene, std::vector<UnstoredAttribute>* removed) {
    const detail::ContainerPreset preset(scene.useCompressedPreset ? Target::PRESET_CMP1
                                                                   : Target::PRESET_DEFAULT);
    const auto isUnstored = [&](const AttributePtr& buffer) { return !buffer || !preset.stores(*buffer); };
    std::map<std::pair<std::string, std::size_t>, std::size_t> counts;
    bool keepsAll = true;
    for (const SceneMesh& entry : scene.meshes) {
        for (const AttributePtr& buffer : detail::attributesOf(entry.mesh)) {
            if (!isUnstored(buffer)) continue;
            keepsAll = false;
            if (buffer) ++counts[{buffer->getAttributeName(), buffer->getComponentCountPerElement()}];
        }
    }
    if (!keepsAll) {
        detail::changeAttributes(scene, [&](std::size_t, std::vector<AttributePtr>& attributes) {
            const auto end = std::remove_if(attributes.begin(), attributes.end(), isUnstored);
            const bool removes = end != attributes.end();
            attributes.erase(end, attributes.end());
            return removes;
        });
    }
    if (!removed) return;
    removed->clear();
    for (const auto& [attribute, meshes] : counts)
        removed->push_back({attribute.first, attribute.second, meshes});
}

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
    detail::changeAttributes(scene, [&](std::size_t m, std::vector<AttributePtr>& attributes) {
        SceneMesh& entry = scene.meshes[m];
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
        if (!added.empty())
            entry.setMetaData(kel::src::format::metadata::FILLED, kel::src::format::namesText(added));
        return !added.empty();
    });
    for (const auto& [name, count] : filled)
        done.filled.push_back({name, count});
    if (report) *report = done;
}

} // namespace kel::prepare
