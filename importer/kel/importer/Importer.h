#pragma once

#include <kel/importer/Export.h>
#include <kel/importer/ImportCodes.h>
#include <kel/src/SrcWriterInput.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

/// A glTF 2 or GLB, a PLY, a Wavefront OBJ, or any other model file that Assimp reads, into a SrcWriterInput.
///
/// **Geometry.** Every use of a mesh by a node becomes one mesh, in the order of a walk through the nodes
/// from the root, parents first; a mesh that mixes primitives becomes one mesh each of triangles, lines and
/// points. Node transforms are baked into positions and normals (in double precision; normals by the inverse
/// transpose; a mirroring transform swaps two corners of each triangle). Polygons are triangulated. Vertices
/// whose attributes are equal to the last bit are joined (-0 becomes 0 before), unless the file shares vertices
/// by indices of its own, as a glTF with indices does. Uses of one mesh share the buffers that their transforms leave
/// alike: indices, normals, other attributes. Every mesh has an index buffer: 2 bytes per index up to
/// 65,535 vertices, else 4. Coordinates keep the unit and the axes that "source" states.
///
/// **glTF 2** is read by this library itself: every type of component, normalized or not, sparse accessors,
/// data URIs, one scene of several (ImportOptions::scene), and the extensions KHR_mesh_quantization,
/// EXT_meshopt_compression, KHR_draco_mesh_compression, EXT_mesh_gpu_instancing (each instance is a use of
/// the mesh), KHR_materials_unlit and KHR_materials_pbrSpecularGlossiness. A file that requires an
/// extension unknown here is refused; extensions that change looks alone are reported;
/// KHR_texture_transform counts where it gives whole numbers their meaning as texture coordinates. Skinned
/// meshes stand as their joints stand in the file, and morph targets count with the weights that it states.
///
/// **PLY** is read by this library itself, in text and binary of either byte order, with elements and
/// properties in any order and of any type: faces of any size, with texture coordinates of their own or of
/// the vertices, triangle strips, edges as lines, and vertices alone as points. Colours in integers are over
/// 255, in ushort over 65535.
///
/// **OBJ**, likewise, with the material files that it names. Every "o" and every "g" of another name is a
/// node below one that is named after the file, and a mesh; another "usemtl" among its faces begins a mesh
/// named after the material. Vertices may have a colour behind their coordinates.
///
/// Text formats may be in UTF-8 or, with a byte order mark, in UTF-16.
///
/// **Precision.** Transforms, and sources that state more than a float holds, are in doubles up to the last
/// step: a position delivered is the float nearest to its place in the model less the origin, which
/// ImportOptions::origin chooses. Far from zero an origin nearby keeps what floats would lose there. The
/// decimals of a text count as the floats nearest to them, unless these may be off by more than a millionth
/// of the diagonal of the model's box, or an origin is given; then as the doubles nearest to them. Assimp
/// knows floats only.
///
/// **Attributes**, all of floats: "position" (3), "normal" (3, unit length), "texcoord" (2, the origin of v
/// at the bottom), then "texcoord1", "texcoord2" and so on, "color" (3, red, green, blue), then "color1"
/// and so on; of a glTF also its own attributes, whose names begin with "_", as they are. Triangles without
/// normals get some: corners at one position share a normal, weighted by area, with those neighbours that
/// lean less than 60 degrees; sharper edges stay sharp. Points and lines get none.
///
/// **Materials.** Each material in use becomes one MaterialClassic, shared by its meshes; its identifier is
/// its place in the source. Files that describe none get none. Where a file states classic colours:
///     diffuse, emissive   as stated
///     ambient intensity   mean of the ambient colour over mean of the diffuse colour, at most 1; the mean
///                         of the ambient colour alone where diffuse is black; 0.2 where not stated
///     specular            the specular colour times its strength
///     shininess           the Phong exponent over 128, within 0 to 1
///     transparency        1 - opacity
/// From metallic-roughness (base colour c with alpha a, metallic m, roughness r):
///     diffuse             c (1 - m)
///     emissive            as stated
///     ambient intensity   0.2
///     specular            0.04 (1 - m) + c m
///     shininess           (2 / r^4 - 2) / 128, within 0 to 1: the exponent whose highlight is as wide
///     transparency        1 - a where the file asks for blending, else 0
/// An unlit material is diffuse and specular black, with its base colour as emissive.
///
/// **Metadata** of each mesh, as JSON texts:
///     "name"    the name of the mesh, or of its node where the mesh has none: a string. Left out when both
///               are empty. Bytes that are not UTF-8 become U+FFFD.
///     "node"    the names from the root to the mesh's node, joined by "/": a string. In a name "~" is
///               written "~0" and "/" is written "~1", as in a JSON Pointer.
///     "source"  an object: "file" (name without folder), "format", and "unit" (metres per unit, a number)
///               and "upAxis" ("X", "Y", "Z", or with a minus) where the format or the file states them, both
///               as they hold for the positions delivered.
///     "origin"  a list of three numbers, where the origin is not zero: the place of a position in the model is
///               position + origin, in double precision. The same for all meshes.
///     "extras"  what the file attaches to the mesh's node, mostly an object; left out when there is nothing.
///     "meshExtras", "materialExtras", "sceneExtras"  of a glTF, likewise.
namespace kel::importer {

/// What to do with primitives whose positions are not finite.
enum class BadGeometry {
    FAIL, ///< refuse the file
    DROP  ///< leave those primitives out and report how many
};

/// Called with the name of a stage, for people, and how much of it is done, 0 to 1. Return false to cancel,
/// which ends the import with the code CANCELLED. Called on the thread of the import.
using Progress = std::function<bool(const char* stage, double done)>;

/// Where the zero of the positions delivered lies, in the model's coordinates.
struct Origin {
    enum Choice {
        /// Where it is, unless the float nearest to a position may be off by more than a millionth of the diagonal of
        /// the scene's box; then at a round place near the middle of that box. Positions that are floats in the source
        /// and are not moved by a node lose nothing and keep it.
        AUTO,
        KEEP, ///< where it is
        GIVEN ///< at `at`
    };
    Choice choice = AUTO;
    std::array<double, 3> at{}; ///< finite
};

constexpr double DEFAULT_IMPORT_SECONDS = 60.0;
constexpr double DEFAULT_IMPORT_SECONDS_PER_MIB = 5.0; ///< of the model's file, where that is more
constexpr std::uint64_t DEFAULT_IMPORT_MEMORY = std::uint64_t{2} << 30;
constexpr std::uint64_t DEFAULT_IMPORT_MEMORY_PER_BYTE = 32; ///< of the model's file, where that is more

/// What a reader in a process of its own may take; see importModel.
struct ImportLimits {
    std::optional<double> seconds;       ///< of the clock; 0 for no limit, none for the default
    std::optional<std::uint64_t> memory; ///< bytes; 0 for no limit, none for the default
};

struct ImportOptions {
    BadGeometry onBadGeometry = BadGeometry::FAIL;
    Origin origin;
    /// The scene of a glTF to import, by its name or by its number from 0 on; empty: the default one, or the first.
    std::optional<std::string> scene;
    /// Memory that meshes may take beyond the first copy of their numbers. Every use of a mesh by a node or an instance is
    /// a copy of at least 1,024 bytes, and primitives that share numbers of a file get a copy each: a small file can ask
    /// for millions. More is refused before it is taken.
    std::uint64_t maxCopiedBytes = std::uint64_t{1} << 32;
    ImportLimits limits;
    bool inProcess = false; ///< read in the caller's process whatever the format: without limits
    Progress progress;
};

/// Something that the source has and the result does not; once per kind.
struct Dropped {
    std::string kind; ///< for people, in the plural: "textures", "bones", "cameras"
    std::size_t count = 0;
    std::string detail; ///< which, or why; may be empty
};

struct ImportReport {
    std::vector<Dropped> dropped;
    /// Sentences about what was changed or is worth knowing.
    std::vector<std::string> notes;
    /// Of the result.
    std::size_t meshes = 0, triangles = 0, lines = 0, points = 0, vertices = 0;
    /// Of the source, for people.
    std::string format;
    /// Where the zero of the positions lies in the model.
    std::array<double, 3> origin{};
    /// The largest distance, in units of the model, between a position delivered plus the origin and its place in the
    /// model, both in double precision: where the source says that it is, its node's transform applied. 0 when all
    /// are exact.
    double positionError = 0.0;
    /// Normals that are not to the last bit what the source states, or, where a transform turns them, what it makes
    /// of them in double precision: rounded when they were stored as floats or made unit length. Normals that the
    /// source does not state do not count.
    std::size_t roundedNormals = 0;
};

struct ImportResult {
    kel::src::SrcWriterInput input;
    ImportReport report;
};

/// Why a file was refused. what() is one sentence, "file: what (place); remedy".
class KEL_IMPORTER_EXPORT ImportError : public std::runtime_error {
public:
    ImportError(ImportCode code, std::string file, const std::string& what, std::string place,
                std::string remedy);
    ~ImportError() override;

    ImportCode code() const { return importCode; }
    const std::string& file() const { return fileText; }
    /// Where in the file: a line, a byte, a JSON path, a mesh. May be empty.
    const std::string& place() const { return placeText; }
    const std::string& remedy() const { return remedyText; }

private:
    ImportCode importCode;
    std::string fileText;
    std::string placeText;
    std::string remedyText;
};

/// True when a reader knows files with this extension, as in ".obj" or "OBJ"; small and capital letters are
/// the same. For choosing among the files of a folder: importModel looks at the content, too.
KEL_IMPORTER_EXPORT bool isModelExtension(const std::string& extension);

/// Reads a model and the files beside it that it names.
///
/// The result depends on nothing but the content of these files: equal input gives equal meshes in equal
/// order. Prints nothing. Imports may run at the same time on several threads.
///
/// **Damaged and hostile files.** The readers of glTF, PLY and OBJ check everything that they read, and work in the
/// caller's process. For all other formats, and for a glTF with geometry in Draco's form, the code of others is run, which some
/// damaged files crash or hang. So these are read in a process of its own for each model, within
/// ImportOptions::limits: a crash, a hang and an excess are errors of that model (READER_FAILED, TIME_LIMIT,
/// MEMORY_LIMIT). By default a reader has 60 seconds, or 5 for each MiB of the file where that is more, and 2 GiB
/// of memory, or 32 times the size of the file.
///
/// That takes the program kelsrc-import, which is installed with this library and started once in each process
/// that imports: it is looked for beside the library, then in libexec/kelsrc, and the environment variable
/// KELSRC_IMPORT_HELPER may name another place. **Where it cannot be started, or with ImportOptions::inProcess,
/// the caller's process reads all formats itself: then a damaged file can end it (by SIGSEGV, or by SIGABRT where
/// Assimp was built with assertions), keep it busy for ever, or take all memory.** A note in the report says so
/// when the program is missing. A caller that collects all its children (waitpid(-1)) may meet that program among them.
///
/// throws  ImportError
KEL_IMPORTER_EXPORT ImportResult importModel(const std::filesystem::path& file,
                                             const ImportOptions& options = {});

/// Reads a model from memory, for instance from standard input.
///
/// bytes  not kept; may be freed on return
/// name   stands for the file in messages and metadata; its extension says the format, without one the
///        content decides. Files that the model names are looked for in the working directory.
/// throws ImportError
KEL_IMPORTER_EXPORT ImportResult importModel(const void* bytes, std::size_t size, const std::string& name,
                                             const ImportOptions& options = {});

} // namespace kel::importer
