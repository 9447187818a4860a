#pragma once

#include <kel/mesh/DefaultIndexBuffer.h>
#include <kel/mesh/Mesh.h>
#include <kel/prepare/Target.h>
#include <kel/scene/Scene.h>
#include <kel/src/PackedAccess.h>
#include <kel/src/encoding/EncodingPresets.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

// What steps share: reading meshes of any implementation, in bulk where their numbers lie in memory, else one
// by one; new meshes and buffers from what was read; replacing what changes in a scene; what a preset stores.
namespace kel::prepare::detail {

using Bytes = std::vector<unsigned char>;
using AttributePtr = std::shared_ptr<kel::mesh::AttributeBuffer>;
using IndexPtr = std::shared_ptr<kel::mesh::IndexBuffer>;

/// All attribute buffers of a mesh, empty pointers included; none of an empty pointer.
std::vector<AttributePtr> attributesOf(const kel::mesh::MeshPtr& mesh);

/// How many vertices a mesh has: the elements of "position", or of its longest attribute when it has none.
std::size_t vertexCountOf(const kel::mesh::Mesh& mesh, const std::vector<AttributePtr>& attributes);

using kel::src::detail::forEachIndex;

/// All indices of a mesh with fewer than 2^32 vertices.
///
/// firstBad  set to the position of the first index that has no vertex; to their number when all have one
std::vector<std::uint32_t> readIndices(const kel::mesh::IndexBuffer& indices, std::size_t vertexCount,
                                       std::size_t& firstBad);

/// The components of a float attribute in one packed array: the buffer's own memory where it is laid out so,
/// else a copy. Valid while the buffer lives and is not changed.
class PackedFloats {
public:
    explicit PackedFloats(const kel::mesh::AttributeBuffer& buffer);
    PackedFloats(const PackedFloats&) = delete;
    PackedFloats& operator=(const PackedFloats&) = delete;

    const float* data() const { return values; }
    std::size_t size() const { return valueCount; } ///< components, not elements
    const float* begin() const { return values; }
    const float* end() const { return values + valueCount; }

private:
    std::vector<float> copy;
    const float* values = nullptr;
    std::size_t valueCount = 0;
};

/// A mesh put together from finished parts. Unlike a mesh that counts for itself it hands on the number of
/// primitives it was given, and keeps several attributes of one name apart.
kel::mesh::MeshPtr makeMesh(kel::mesh::PrimitiveType type, std::size_t primitives, IndexPtr indices,
                            std::vector<AttributePtr> attributes);

/// A packed attribute that takes the bytes over.
AttributePtr makeAttribute(kel::mesh::ComponentType type, std::size_t components, Bytes bytes,
                           std::string name);

/// The elements `vertices[0]`, `vertices[1]`, ... of an attribute as a new one of the same type and name. All
/// of them lie inside the buffer.
AttributePtr gatherElements(const kel::mesh::AttributeBuffer& buffer,
                            const std::vector<std::uint32_t>& vertices);

/// A packed index buffer that takes the indices over.
template<typename Index>
IndexPtr makeIndices(std::vector<Index> indices) {
    return std::make_shared<kel::mesh::DefaultIndexBuffer<Index>>(std::move(indices));
}

// ---- Walking over a scene ------------------------------------------------------------------------------

/// Calls work(position) for every entry that has a mesh. A mesh that is listed twice is worked on once: its
/// later entries become copies of what has become of the first.
template<typename Work>
void forEachMesh(kel::scene::Scene& scene, const Work& work) {
    // By the mesh as it was listed. A new mesh never takes the place of one that is still to come.
    std::unordered_map<const kel::mesh::Mesh*, std::size_t> seen;
    for (std::size_t m = 0; m < scene.meshes.size(); ++m) {
        kel::scene::SceneMesh& entry = scene.meshes[m];
        if (!entry.mesh) continue;
        if (scene.repeatsMeshes) {
            const auto [first, isNew] = seen.emplace(entry.mesh.get(), m);
            if (!isNew) {
                entry = scene.meshes[first->second];
                continue;
            }
        }
        work(m);
    }
}

/// Puts a new mesh in the place of the old one. It gets a map of metadata where there was none, for writers
/// to add its statistics to.
inline void replaceMesh(kel::scene::SceneMesh& entry, kel::mesh::MeshPtr mesh) {
    entry.mesh = std::move(mesh);
    if (!entry.metaData) entry.editMetaData();
}

/// The same for every mesh whose attribute buffers change(position, buffers) says that it changed.
template<typename Change>
void changeAttributes(kel::scene::Scene& scene, const Change& change) {
    forEachMesh(scene, [&](std::size_t m) {
        const kel::mesh::MeshPtr& mesh = scene.meshes[m].mesh;
        std::vector<AttributePtr> attributes = attributesOf(mesh);
        if (!change(m, attributes)) return;
        replaceMesh(scene.meshes[m], makeMesh(mesh->getPrimitiveType(), mesh->getNumPrimitives(),
                                              mesh->getIndexBuffer(), std::move(attributes)));
    });
}

/// Keeps buffers shared that several meshes share: what a step made of each. One that nobody but its mesh
/// holds is not remembered, so that it can be freed at once.
template<typename Made>
class SharedBuffers {
public:
    /// What make(buffer) gives, or gave the first time. `buffer` is a handle beside that of its mesh.
    template<typename Make>
    Made of(const AttributePtr& buffer, const Make& make) {
        if (buffer.use_count() <= 2) return make(buffer);
        const auto [entry, isNew] = made.try_emplace(buffer);
        if (isNew) entry->second = make(buffer);
        return entry->second;
    }

private:
    std::unordered_map<AttributePtr, Made> made;
};

// ---- Presets of the container writer -------------------------------------------------------------------

inline kel::src::detail::SRCEncodingConfig presetOf(Target target) {
    // The registry makes entries on first request and is not synchronised; the lock keeps calls of this library
    // from several threads apart.
    static std::mutex registry;
    const std::lock_guard<std::mutex> lock(registry);
    return kel::src::detail::getSRCEncodingPreset(targetName(target));
}

/// What a preset of the container writer stores of attributes, and how.
class ContainerPreset {
public:
    /// `target` is a container target.
    explicit ContainerPreset(Target target) : config(presetOf(target)) {}

    bool knows(const std::string& attribute) const { return config.precision.count(attribute) != 0; }
    bool stores(const kel::mesh::AttributeBuffer& buffer) const {
        return fits(buffer.getComponentCountPerElement()) && hasWidthOfFloats(buffer) &&
               knows(buffer.getAttributeName());
    }
    /// 32 for floats; 0 for an attribute that it does not know.
    unsigned int bitsOf(const std::string& attribute) const {
        const auto found = config.precision.find(attribute);
        return found == config.precision.end() ? 0 : found->second;
    }
    /// Whether it stores codes instead of floats.
    bool quantizes(const std::string& attribute) const {
        const unsigned int bits = bitsOf(attribute);
        return bits != 0 && bits != 32;
    }
    /// The same for a buffer: whether the codes are those of its floats.
    bool quantizesFloats(const kel::mesh::AttributeBuffer& buffer) const {
        return buffer.getComponentType() == kel::mesh::FLOAT && fits(buffer.getComponentCountPerElement()) &&
               quantizes(buffer.getAttributeName());
    }
    /// Whether it has a place for so many components. It drops others, whatever their name.
    static bool fits(std::size_t components) { return components >= 1 && components <= 3; }
    /// It reads every attribute as floats, so all others have to be as wide.
    static bool hasWidthOfFloats(const kel::mesh::AttributeBuffer& buffer) {
        return buffer.getElementSizeInBytes() == buffer.getComponentCountPerElement() * sizeof(float);
    }

private:
    kel::src::detail::SRCEncodingConfig config;
};

} // namespace kel::prepare::detail
