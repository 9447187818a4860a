#pragma once

#include <kel/importer/Importer.h>
#include <kel/mesh/PrimitiveType.h>
#include <kel/scene/Scene.h>

#include <glm/mat4x4.hpp>
#include <glm/vec3.hpp>
#include <glm/vec4.hpp>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

/// What every reader of a format delivers, and conversion turns into a scene: a tree of nodes, materials, and
/// meshes that are read one at a time, so that no two copies of a model are held.
namespace kel::importer::detail {

/// What the attributes of sets are called: that of set 0 as here, the others with their number behind.
constexpr const char* TEXCOORD_NAME = "texcoord";
constexpr const char* COLOR_NAME = "color";
inline std::string nameOfSet(const char* name, std::size_t set) {
    return set == 0 ? name : name + std::to_string(set);
}

/// Kinds of Dropped that readers and conversion count up together.
constexpr const char* NOT_FINITE_PRIMITIVES = "primitives with positions that are not finite";
constexpr const char* UNUSED_VERTICES = "vertices that no primitive uses";

/// One attribute of all vertices of a mesh.
struct ModelAttribute {
    /// As the mesh gets it: "position", "normal", "texcoord", "texcoord1", "color", "color1", or an own name of
    /// the source, such as "_TEMPERATURE".
    std::string name;
    std::size_t width = 0; ///< numbers per vertex
    std::vector<float> values;
    /// In place of `values`, for "position" of a source that states more than a float holds.
    std::vector<double> doubles;

    std::size_t vertices() const { return (doubles.empty() ? values.size() : doubles.size()) / width; }
};

/// Primitives of one type with one material.
struct ModelPart {
    kel::mesh::PrimitiveType type = kel::mesh::TRIANGLES; ///< POINTS, LINES or TRIANGLES
    /// Each below the number of vertices. Corners, in the order of the primitives; strips, fans and loops are taken
    /// apart by the reader.
    std::vector<std::uint32_t> indices;
    /// "position" is the first; "normal", if there, the second. Texture coordinates have their origin at the
    /// bottom: a reader of a format that has it at the top stores 1 - v.
    std::vector<ModelAttribute> attributes;
    /// Whether the source shares vertices by an index of its own. They are taken as they are then, and not joined.
    bool isIndexed = false;
    /// Whether the normals are the source's own no longer: conversion says so of those that it makes.
    bool hasMadeNormals = false;
    std::optional<std::size_t> material; ///< which of the model's

    std::size_t vertices() const { return attributes[0].vertices(); }
    /// The normals, or null.
    ModelAttribute* normals();
};

/// One mesh of the source. Its parts become a mesh each.
struct ModelMesh {
    std::string name;              ///< any bytes; may be empty
    std::string place;             ///< for messages, as in: mesh 3 "bolt"
    kel::scene::MetaData metaData; ///< for every use, such as "meshExtras"
};

/// A step of the tree. Parents stand before their children; meshes of the result are in the order of their nodes.
struct ModelNode {
    std::string name; ///< any bytes; may be empty
    std::optional<std::size_t> parent;
    glm::dmat4 transform{1.0}; ///< to the parent's space
    std::vector<std::size_t> meshes;
    /// Whether the meshes are in the scene's own space already, as skinned ones are: no transform moves them.
    bool meshesInScene = false;
    /// Where the meshes stand below this node, when the source places them more than once; empty: once, as the node.
    std::vector<glm::dmat4> instances;
    std::string extras; ///< JSON, or empty
    bool isOwn = false; ///< made by the reader, not by the source: left out of the path of names
};

/// A material in the terms of its source. What is not stated is empty.
struct ModelMaterial {
    struct MetallicRoughness {
        glm::vec4 baseColor{1.0f};
        float metallic = 1.0f, roughness = 1.0f;
        bool blends = false; ///< whether alpha counts
        bool unlit = false;
    };
    std::string name;             ///< any bytes; may be empty
    std::uint32_t identifier = 0; ///< its place in the source
    std::optional<MetallicRoughness> metallicRoughness;
    std::optional<glm::vec3> diffuse, ambient, specular, emissive;
    std::optional<float> specularStrength, phongExponent, glossiness, opacity;
    bool twoSided = false;
    kel::scene::MetaData metaData; ///< for every mesh of this material, such as "materialExtras"
};

/// Sides of a box; empty while low is above high.
struct ModelBox {
    glm::dvec3 low{std::numeric_limits<double>::infinity()};
    glm::dvec3 high{-std::numeric_limits<double>::infinity()};
    bool hasDoubles = false; ///< whether a position in it may state more than a float holds

    /// A point that is not finite does not count.
    void add(const glm::dvec3& point);
};

/// Whether the floats nearest to positions in the box may be off by more than a millionth of its diagonal.
bool isTooFarForFloats(const ModelBox& box);

inline bool isFinite(const glm::dvec3& v) {
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

/// Three coordinates each, as the source states them.
class Positions {
public:
    explicit Positions(const ModelAttribute& attribute)
        : floats(attribute.values.data()),
          doubles(attribute.doubles.empty() ? nullptr : attribute.doubles.data()) {}

    glm::dvec3 operator[](std::size_t vertex) const {
        if (doubles) return {doubles[3 * vertex], doubles[3 * vertex + 1], doubles[3 * vertex + 2]};
        return {floats[3 * vertex], floats[3 * vertex + 1], floats[3 * vertex + 2]};
    }

private:
    const float* floats;
    const double* doubles;
};

/// Positions as a source states them: floats where no number loses by it, else doubles.
ModelAttribute makePositions(std::vector<double> numbers);
/// Those of a text, which states decimals, of which most are no float: the nearest floats do, unless those of
/// used positions are too far off or positions are wanted about a given origin.
///
/// isUsed  for each position, whether a primitive uses it
ModelAttribute makePositionsOfText(std::vector<double> numbers, const std::vector<bool>& isUsed,
                                   const Origin& origin);

/// A model that has been opened. Meshes are read when they are asked for.
class Model {
public:
    virtual ~Model() = default;

    std::string format;         ///< for people
    std::optional<double> unit; ///< metres per unit
    std::string upAxis;         ///< "X", "Y", "Z", or with a minus; empty where not stated
    std::vector<ModelNode> nodes;
    std::vector<ModelMesh> meshes;
    std::vector<ModelMaterial> materials;
    kel::scene::MetaData metaData; ///< for every mesh, such as "sceneExtras"
    /// What no mesh takes along. A kind may come several times; both lists may grow with every mesh that is taken.
    std::vector<Dropped> dropped;
    std::vector<std::string> notes;
    /// Whether taking a mesh runs a decoder that damaged data may crash. Such a model is read in a process of its own.
    bool mayCrash = false;

    /// The box of the positions that primitives of the mesh use, in the mesh's own space; may be called before
    /// takeMesh(), not after. Positions that are not finite do not count.
    virtual ModelBox boxOf(std::size_t mesh) = 0;
    /// The parts of a mesh; may be called once for each, and frees what the reader held for it. Positions may be
    /// not finite; everything else may be any float.
    ///
    /// throws  ImportError
    virtual std::vector<ModelPart> takeMesh(std::size_t mesh) = 0;
};

/// The first few of the names.
template<typename Names>
std::string listed(const Names& names) {
    std::string text;
    std::size_t shown = 0;
    for (const std::string& name : names) {
        if (name.empty()) continue;
        if (shown == 3) return text + ", ...";
        text += (shown++ == 0 ? "" : ", ") + name;
    }
    return text;
}

} // namespace kel::importer::detail
