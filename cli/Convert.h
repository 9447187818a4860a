#pragma once

#include <kel/importer/Importer.h>
#include <kel/prepare/ChooseMode.h>
#include <kel/prepare/Target.h>
#include <kel/prepare/Transform.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace kelsrc::cli {

class AtomicFile;

struct ConvertOptions {
    /// A mode of the public writer or a preset of the container writer; none chooses a mode of the public
    /// writer.
    std::optional<kel::prepare::Target> target;
    /// Largest distance between a position and what a reader decodes, in units of the output, for the choice
    /// of the mode; without it 1/16384 of the diagonal of the scene's bounds.
    std::optional<double> maxError;

    bool fit = true;            ///< move attributes into the box of a preset that quantizes
    bool allowClamping = false; ///< without fit: write although components would be clamped
    bool onlyTriangles = false; ///< leave out what is not triangles
    bool optimize = false;      ///< reorder triangles and vertices for GPUs
    kel::importer::BadGeometry onBadGeometry = kel::importer::BadGeometry::FAIL;

    double scale = 1.0;
    std::optional<double> fromUnit, toUnit; ///< metres per unit; fromUnit overrules the model
    std::optional<kel::prepare::UpAxis> fromUp, toUp;

    bool list = false;   ///< fill ConvertReport::written
    bool verify = false; ///< read back and compare before the file is put in place
    bool html = false; ///< write the viewer's page with the SRC file inside; SRC files are taken as they are
};

/// One mesh as it was written.
struct WrittenMesh {
    std::string name;
    std::size_t triangles = 0, lines = 0, points = 0;
    std::size_t vertices = 0;
    std::uint64_t bytes = 0; ///< indices and attributes; its part of the header not counted
    std::optional<kel::prepare::ReachedError> error; ///< in a mode of the public writer
};

/// What became of one model.
struct ConvertReport {
    std::string format; ///< of the model, for people
    kel::prepare::Target target = kel::prepare::Target::UNCOMPRESSED;
    bool takenAsIs = false; ///< an SRC file that went into a page: `target` says nothing about it
    std::size_t meshes = 0;
    std::size_t triangles = 0, lines = 0, points = 0;
    std::size_t vertices = 0;
    std::uint64_t bytesIn = 0;                       ///< size of the model file, without those beside it
    std::uint64_t bytesOut = 0;                      ///< size of what was written
    std::optional<std::uint64_t> bytesSrc;           ///< size of the SRC file inside a page
    std::optional<kel::prepare::ReachedError> error; ///< the largest, in a mode of the public writer
    std::vector<kel::importer::Dropped> dropped;     ///< once per kind
    std::vector<std::string> notes;
    std::vector<std::string> warnings;
    std::vector<WrittenMesh> written;
};

/// Called with what is being done and how much of it, 0 to 1, is done; -1 where that is not known.
using StageCallback = std::function<void(const std::string& stage, double done)>;

/// Where a model comes from: a file, or a stream that is read to its end.
struct ModelSource {
    std::filesystem::path file;
    std::istream* stream = nullptr;
    /// For messages.
    std::string name() const { return stream ? "standard input" : file.string(); }
};

/// Where the SRC file goes: a file, which appears whole or not at all, a stream, or a file that the caller
/// has opened and may put in place or not.
struct SrcTarget {
    std::filesystem::path file;
    std::ostream* stream = nullptr;
    AtomicFile* opened = nullptr;
    std::string name() const { return stream ? "standard output" : file.string(); }
};

/// Converts one model into one SRC file, or into a page with that file inside.
///
/// throws  Failure
ConvertReport convert(const ModelSource& source, const SrcTarget& target, const ConvertOptions& options,
                      const StageCallback& onStage = {});

/// A name in the system's folder for temporary files, for an AtomicFile that is never put in place.
std::filesystem::path scratchPlace();

} // namespace kelsrc::cli
