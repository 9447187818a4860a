#pragma once

#include <kel/convert/Bounds.h>
#include <kel/convert/ConvertError.h>
#include <kel/convert/Export.h>
#include <kel/convert/ProcessHooks.h>
#include <kel/convert/Recipe.h>
#include <kel/importer/Importer.h>
#include <kel/prepare/ChooseMode.h>
#include <kel/prepare/Seamless.h>
#include <kel/prepare/Target.h>
#include <kel/src/SrcWriterInput.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Any model into one SRC file, by a recipe.
///
/// The steps, in the one order in which they are done: import; leave out what is not triangles; turn and
/// scale; reorder for GPUs; then for the container writer leave out attributes that the preset has no place
/// for, order the meshes by their attributes, and fit them or count what would be clamped; for the public
/// writer cut meshes for short indices and choose the mode; put meshes onto lattices that they share where
/// that is wanted; move what else is quantized so that it gets the nearest code. Last, what the writer would
/// refuse or spoil is looked for, the file is written, and read back where that is asked for.
///
/// The meshes walk down as one scene. A step replaces what it changes, and what it replaced is freed at once.
/// The scene becomes a SrcWriterInput when the last step is done.
namespace kel::convert {

/// Where a model comes from: a file and those beside it that it names, a stream that is read to its end, bytes
/// in memory, or meshes. Nothing is owned; all must live until convert() returns.
struct Source {
    std::filesystem::path file;
    std::istream* stream = nullptr;
    std::string_view bytes;                          ///< with `name`, whose extension says the format
    const kel::src::SrcWriterInput* input = nullptr; ///< stays as it is, its maps of metadata too
    std::string name;                                ///< for messages and for the metadata of what is no file

    static Source ofFile(std::filesystem::path file) { return {std::move(file), nullptr, {}, nullptr, {}}; }
    static Source ofStream(std::istream& in, std::string name) {
        return {{}, &in, {}, nullptr, std::move(name)};
    }
    static Source ofBytes(std::string_view bytes, std::string name) {
        return {{}, nullptr, bytes, nullptr, std::move(name)};
    }
    static Source ofInput(const kel::src::SrcWriterInput& meshes, std::string name) {
        return {{}, nullptr, {}, &meshes, std::move(name)};
    }
    std::string shownName() const { return name.empty() ? file.string() : name; }
};

class AtomicFile;

/// Where the SRC file goes: a file, which appears whole or not at all, a stream, or a file that the caller has
/// opened and may put in place or not.
struct Destination {
    std::filesystem::path file;
    std::ostream* stream = nullptr;
    AtomicFile* opened = nullptr;
    std::string name; ///< of a stream, for messages

    static Destination ofFile(std::filesystem::path file) { return {std::move(file), nullptr, nullptr, {}}; }
    static Destination ofStream(std::ostream& out, std::string name) {
        return {{}, &out, nullptr, std::move(name)};
    }
    /// file  for messages
    static Destination ofOpened(AtomicFile& opened, std::filesystem::path file) {
        return {std::move(file), nullptr, &opened, {}};
    }
    std::string shownName() const { return name.empty() ? file.string() : name; }
};

/// Called with what is being done and how much of it, 0 to 1, is done; -1 where that is not known. Return
/// false to cancel, which ends the work with the code CANCELLED before anything is put in place.
using Progress = std::function<bool(const char* stage, double done)>;

struct ConvertOptions {
    bool list = false;   ///< fill ConvertReport::written
    bool verify = false; ///< read back and compare before the file is put in place
    kel::importer::ImportLimits importLimits;
    Progress progress;
    ProcessHooks hooks;
};

/// One mesh as it was written.
struct WrittenMesh {
    std::string name;
    GeometryCounts counts;   ///< of one mesh
    std::uint64_t bytes = 0; ///< indices and attributes; its part of the header not counted
    std::optional<kel::prepare::ReachedError> error; ///< in a mode of the public writer
};

/// How far what was written lies from the model, found by decoding it and comparing it with the model itself.
struct VerifiedError {
    double position = 0;            ///< in units of the output
    double normalDegrees = 0;       ///< between normals
    double color = 0, texcoord = 0; ///< of a component
    bool isExact = false;           ///< every number that is stored decodes to that of the model
};

/// What became of one model.
struct ConvertReport {
    std::string format; ///< of the model, for people; empty for meshes
    kel::prepare::Target target = kel::prepare::Target::UNCOMPRESSED;
    GeometryCounts counts;
    std::uint64_t bytesIn = 0;  ///< size of the model file, without those beside it; 0 for meshes
    std::uint64_t bytesOut = 0; ///< size of what was written
    std::optional<kel::prepare::ReachedError> error; ///< the largest, in a mode of the public writer
    std::optional<VerifiedError> verified;           ///< where that was asked for
    /// Where the recipe asks for it and the target stores positions in 16 bits; its errors are left out.
    std::optional<kel::prepare::SeamlessReport> seamless;
    /// What was rounded before the writer got it, in units of the output: the largest distance between a position and
    /// its place in the model, in double precision, with units, axes and scale changed. 0: all are exact.
    double sourceError = 0.0;
    std::size_t roundedNormals = 0; ///< that are not to the last bit what the model says
    /// The zero of the positions, in the output's units and axes: what is to be added to them.
    std::array<double, 3> origin{};
    std::vector<kel::importer::Dropped> dropped; ///< once per kind
    std::vector<std::string> notes;              ///< sentences about what was changed
    std::vector<std::string> warnings;
    std::vector<WrittenMesh> written;
};

/// Throws what convert() throws first, before any work is done: where the destination is the source itself or
/// cannot be written.
///
/// throws  ConvertError
KEL_CONVERT_EXPORT void checkDestination(const Source& source, const Destination& destination,
                                         const ProcessHooks& hooks = {});

/// Converts one model into one SRC file. Conversions may run at the same time on several threads.
///
/// throws  ConvertError; then a file that was there before is still as it was
KEL_CONVERT_EXPORT ConvertReport convert(const Source& source, const Recipe& recipe,
                                         const Destination& destination, const ConvertOptions& options = {});

} // namespace kel::convert
