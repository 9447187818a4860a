#pragma once

#include "../assimp/AssimpReader.h"
#include "../gltf/GltfDocument.h"

#include <kel/importer/detail/ImportScene.h>
#include <kel/material/MaterialClassic.h>
#include <kel/mesh/PrimitiveType.h>
#include <kel/scene/Scene.h>

#include <glm/mat4x4.hpp>
#include <glm/vec3.hpp>

#include <limits>
#include <map>
#include <unordered_map>

namespace kel::importer::detail {

/// Turns the scene into meshes and frees each part of it after its last use.
///
/// throws  ImportError
ImportedScene convertScene(AssimpScene read, const Findings& findings, const ModelSource& source,
                           ProgressReporter& progress);

// ---- Numbers and names that export takes the other way --------------------------------------------------

/// What the attributes of sets are called: that of set 0 as here, the others with their number behind.
constexpr const char* TEXCOORD_NAME = "texcoord";
constexpr const char* COLOR_NAME = "color";

/// The Phong exponent of a shininess of 1.
constexpr float LARGEST_PHONG_EXPONENT = 128.0f;

// ---- Nodes ----------------------------------------------------------------------------------------------

/// One use of a mesh by a node.
struct Instance {
    const aiNode* node;
    unsigned slot; ///< which of the node's meshes
    glm::dmat4 world;

    unsigned mesh() const { return node->mMeshes[slot]; }
};

/// Every use, in the order of a walk through the nodes from the root, parents first.
///
/// throws  ImportError when a node stands where no number can say
std::vector<Instance> collectInstances(const ModelSource& source, const aiScene& scene);

/// Which node of a glTF's document each node of the scene is. Of other formats there is no document, and no
/// node is found.
class GltfNodes {
public:
    /// document  null for other formats
    GltfNodes(const GltfDocument* document, const aiScene& scene);

    const GltfDocument* document() const { return gltf; }
    /// The node's place in the document.
    std::optional<std::size_t> find(const aiNode& node) const {
        const auto found = places.find(&node);
        return found == places.end() ? std::nullopt : std::optional(found->second);
    }
    /// How many meshes of the document no node uses.
    std::size_t unusedMeshes() const;

private:
    const GltfDocument* gltf;
    std::unordered_map<const aiNode*, std::size_t> places;
};

// ---- Geometry -------------------------------------------------------------------------------------------

struct PartAttribute {
    std::string name;
    std::size_t width; ///< floats per vertex
    std::vector<float> values;
};

/// The primitives of one type of a mesh, in the mesh's own space, with joined vertices.
struct MeshPart {
    kel::mesh::PrimitiveType type; ///< POINTS, LINES or TRIANGLES
    std::vector<std::uint32_t> indices;
    std::vector<PartAttribute> attributes; ///< "position" is the first; "normal", if there, the second

    std::size_t vertices() const { return attributes[0].values.size() / attributes[0].width; }
    /// The normals, or null.
    PartAttribute* normals();
};

/// What was left out or replaced on the way, over any number of meshes.
struct PartLosses {
    std::size_t notFinite = 0;        ///< primitives with positions that are not finite
    std::size_t notTriangulated = 0;  ///< faces of more than three corners
    std::size_t unusedVertices = 0;   ///< of meshes that lost no primitive
    std::size_t undefinedNormals = 0; ///< normals where no triangle has an area
    std::size_t replacedNormals = 0;  ///< normals that were zero or not finite
    std::size_t replacedNumbers = 0;  ///< other numbers that were not finite
};

/// Takes a mesh apart by type of primitive and joins equal vertices.
///
/// mesh               its faces are freed as soon as they have been read
/// positionsAreFinite whether those are known to be that any primitive uses
std::vector<MeshPart> takeParts(aiMesh& mesh, bool positionsAreFinite, PartLosses& losses);

struct CornerNormals {
    std::vector<std::uint32_t> ofCorner; ///< which normal each corner takes
    std::vector<float> normals;          ///< three floats each, unit length
    /// Corners at places where no triangle has an area; they take (0, 0, 1).
    std::size_t undefined = 0;
};

/// Normals of a triangle list. Corners at one position share a normal, weighted by area, with those
/// neighbours that lean less than 60 degrees.
///
/// corners  three indices into `positions` per triangle; the positions are finite
CornerNormals makeNormals(const aiVector3D* positions, const std::vector<std::uint32_t>& corners);

/// Puts the node's transform into positions and normals, in double precision. A mirroring one swaps two
/// corners of each triangle.
///
/// returns  how many normals have no direction any more and point along z
std::size_t bakeTransform(const glm::dmat4& world, MeshPart& part);

/// What the model takes up, over all meshes added.
class ModelExtent {
public:
    /// returns  what does not fit a 32-bit float, position or extent so far; null when both do
    const char* add(const MeshPart& part);

    bool isOnePlace() const { return low == high; }
    /// Whether any triangle has an area.
    bool hasArea() const { return area; }

private:
    glm::dvec3 low{std::numeric_limits<double>::infinity()};
    glm::dvec3 high{-std::numeric_limits<double>::infinity()};
    bool area = false;
};

// ---- What becomes of the rest ---------------------------------------------------------------------------

/// What had to be changed to make texts JSON.
struct TextRepairs {
    std::size_t notUtf8 = 0;   ///< texts with bytes that are not UTF-8
    std::size_t notFinite = 0; ///< numbers that JSON cannot hold
    std::size_t tooDeep = 0;   ///< values nested deeper than the limit
    std::size_t cut = 0;       ///< names as long as the reader can hold, so probably longer in the file
};

/// Collects what the source has and the result does not, and what is worth knowing.
class LossReport {
public:
    PartLosses parts;
    TextRepairs texts;

    /// Counts up what is left out under that name; the first detail stays.
    void drop(const std::string& kind, std::size_t count, const std::string& detail = "");
    /// What a scene has that no mesh takes along.
    void addScene(const AssimpScene& read, const std::vector<Instance>& instances, const GltfNodes& gltfNodes,
                  const Findings& findings);
    /// What a mesh has that no part takes along.
    void addMesh(const aiMesh& mesh);

    /// The lists of the report, in the end.
    void write(const AssimpScene& read, const Findings& findings, ImportReport& report);

private:
    std::map<std::string, Dropped> dropped;
};

/// The material by the rules that kel/importer/Importer.h states. Numbers that are not finite count as not
/// stated.
std::shared_ptr<kel::material::MaterialClassic> makeClassicMaterial(const aiMaterial& source,
                                                                    std::uint32_t identifier);

/// The JSON object "source" of every mesh's metadata, as kel/importer/Importer.h states it.
///
/// format   of the source, for people
/// repairs  counts what had to be changed
std::string sourceEntry(const std::string& fileName, const std::string& format, const aiScene& scene,
                        TextRepairs& repairs);

/// Adds the other entries.
void describeMesh(const Instance& instance, const aiScene& scene, const GltfNodes& gltfNodes,
                  TextRepairs& repairs, kel::scene::MetaData& metadata);

} // namespace kel::importer::detail
