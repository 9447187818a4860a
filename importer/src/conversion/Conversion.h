#pragma once

#include "../ModelSource.h"
#include "../model/Model.h"

#include <kel/importer/detail/ImportScene.h>
#include <kel/material/MaterialClassic.h>
#include <kel/mesh/DefaultMesh.h>

#include <glm/mat3x3.hpp>
#include <glm/mat4x4.hpp>
#include <glm/vec3.hpp>

#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kel::importer::detail {

/// Turns a model into a scene. Knows no format: what a file says is the reader's to find out.
///
/// throws  ImportError
ImportedScene convertModel(Model& model, const ModelSource& source, const ImportOptions& options,
                           ProgressReporter& progress);

/// The Phong exponent of a shininess of 1; export takes it the other way.
constexpr float LARGEST_PHONG_EXPONENT = 128.0f;

// ---- Nodes ----------------------------------------------------------------------------------------------

/// One mesh where a node places it.
struct Use {
    std::size_t node;
    std::size_t mesh;
    glm::dmat4 world;
};

/// Every use, in the order of the nodes.
///
/// throws  ImportError when a node stands where no number can say
std::vector<Use> collectUses(const ModelSource& source, const Model& model);

/// Where the zero of the positions shall lie. To be asked before a mesh is taken.
glm::dvec3 chooseOrigin(Model& model, const std::vector<Use>& uses, const Origin& origin);

// ---- Geometry -------------------------------------------------------------------------------------------

/// What was left out or replaced on the way, over any number of meshes.
struct PartLosses {
    std::size_t notFinite = 0;        ///< primitives with positions that are not finite
    std::size_t unusedVertices = 0;   ///< of parts that lost no primitive
    std::size_t undefinedNormals = 0; ///< normals where no triangle has an area
    std::size_t replacedNormals = 0;  ///< normals that were zero or not finite
    std::size_t replacedNumbers = 0;  ///< other numbers that were not finite
};

bool hasFinitePositions(const ModelPart& part);
/// For each vertex, whether a primitive uses it.
std::vector<char> usedVertices(const ModelPart& part);

/// Makes a part what a mesh is made of: every number finite and none of them -0, no vertex that no primitive
/// uses, triangles with normals, and vertices joined unless the source shares them by an index.
///
/// returns  false when no primitive is left
bool preparePart(ModelPart& part, PartLosses& losses);

struct CornerNormals {
    std::vector<std::uint32_t> ofCorner; ///< which normal each corner takes
    std::vector<float> normals;          ///< three floats each, none of them -0
    /// Corners at places where no triangle has an area; they take (0, 0, 1).
    std::size_t undefined = 0;
};

/// Normals of a triangle list, unit length. Corners at one position share a normal, weighted by area, with those
/// neighbours that lean less than 60 degrees.
///
/// positions  finite, none of them -0
/// corners    three vertices per triangle
CornerNormals makeNormals(const ModelAttribute& positions, const std::vector<std::uint32_t>& corners);

/// Gives equal corners one vertex: those whose attributes have equal bits, or, where the source shares vertices by an
/// index, those of one vertex with one normal.
///
/// normals  of the corners, in place of the part's second attribute; null for none
void joinVertices(ModelPart& part, const CornerNormals* normals);

/// Numbers the places: corners at one position get one number.
///
/// corners  from vertices to places
/// returns  how many places there are
std::size_t joinPlaces(const ModelAttribute& positions, std::vector<std::uint32_t>& corners);

/// Where a mesh goes.
struct Placement {
    glm::dmat4 world{1.0};
    glm::dvec3 origin{0.0}; ///< of the positions delivered
};

/// What storing numbers as floats changed, over any number of meshes.
struct Rounding {
    double position = 0.0;   ///< the largest distance, see ImportReport::positionError
    std::size_t normals = 0; ///< see ImportReport::roundedNormals
};

/// What the positions delivered take up, over all meshes added.
class ModelExtent {
public:
    /// positions  of the part, as delivered
    /// returns    what does not fit a 32-bit float, position or extent so far; null when both do
    const char* add(const ModelPart& part, const std::vector<float>& positions);

    bool isOnePlace() const { return low == high; }
    /// Whether any triangle has an area.
    bool hasArea() const { return area; }

private:
    glm::dvec3 low{std::numeric_limits<double>::infinity()};
    glm::dvec3 high{-std::numeric_limits<double>::infinity()};
    bool area = false;
};

/// A part of a mesh, made ready, of which each use makes a mesh: the node's transform is put into positions and
/// normals, in double precision, and positions become floats about the origin. A mirroring transform swaps two corners
/// of each triangle. What the transforms of several uses leave alike they share.
class UsedPart {
public:
    explicit UsedPart(ModelPart part);

    struct Placed {
        std::shared_ptr<kel::mesh::DefaultMesh> mesh;
        std::size_t undefined = 0;     ///< normals that have no direction any more and point along z
        const char* problem = nullptr; ///< as ModelExtent::add() says
    };
    /// isLast  nothing is asked of this part again
    Placed place(const Placement& placement, bool isLast, Rounding& rounding, ModelExtent& extent);

    /// Its numbers may have gone to meshes.
    const ModelPart& part() const { return source; }
    std::size_t vertices() const { return count; }

private:
    struct TurnedNormals {
        glm::dmat3 matrix{0.0};
        std::shared_ptr<kel::mesh::AttributeBuffer> buffer;
        std::size_t undefined = 0, rounded = 0;
    };

    ModelPart source;
    std::size_t count;
    // Of the uses so far:
    std::shared_ptr<kel::mesh::IndexBuffer> indices, mirrored;
    TurnedNormals normals;
    std::vector<std::shared_ptr<kel::mesh::AttributeBuffer>> others; ///< behind positions and normals

    void addNormals(const glm::dmat3& matrix, bool isLast, kel::mesh::DefaultMesh& mesh);
    void addOthers(kel::mesh::DefaultMesh& mesh);
    void setIndices(bool mirrors, bool isLast, kel::mesh::DefaultMesh& mesh);
};

// ---- What becomes of the rest ---------------------------------------------------------------------------

/// Collects what the source has and the result does not, and what is worth knowing.
class LossReport {
public:
    PartLosses parts;
    std::size_t notUtf8 = 0; ///< texts with bytes that are not UTF-8

    /// Counts up what is left out under that name; the first detail stays.
    void drop(const std::string& kind, std::size_t count, const std::string& detail = "");
    /// What the nodes have that no mesh takes along.
    void addNodes(const Model& model, const std::vector<Use>& uses);

    /// The lists of the report, in the end: those of the model with our own.
    void write(const Model& model, ImportReport& report);

private:
    std::map<std::string, Dropped> dropped;
};

/// The material by the rules that kel/importer/Importer.h states. Numbers that are not finite count as not
/// stated.
std::shared_ptr<kel::material::MaterialClassic> makeClassicMaterial(const ModelMaterial& source);

/// The JSON object "source" of every mesh's metadata, as kel/importer/Importer.h states it.
///
/// notUtf8  counts texts that had to be changed
std::string sourceEntry(const std::string& fileName, const Model& model, std::size_t& notUtf8);

/// Adds the other entries.
void describeMesh(const Model& model, const Use& use, const ModelPart& part, std::size_t& notUtf8,
                  kel::scene::MetaData& metadata);

} // namespace kel::importer::detail
