#pragma once

#include <kel/importer/Importer.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace kelsrc::cli {

enum class Preset { DEFAULT, CMP1 };

struct ConvertOptions {
    Preset preset = Preset::DEFAULT;
    bool fit = true;            ///< move attributes into the box of a preset that quantizes
    bool allowClamping = false; ///< without fit: write although components would be clamped
    bool onlyTriangles = false; ///< leave out what is not triangles instead of refusing it
    kel::importer::BadGeometry onBadGeometry = kel::importer::BadGeometry::FAIL;
    bool list = false; ///< fill ConvertReport::written
};

/// One mesh as it was written.
struct WrittenMesh {
    std::string name;
    std::size_t triangles = 0;
    std::size_t vertices = 0;
    std::uint64_t bytes = 0; ///< indices and attributes; its part of the header not counted
};

/// What became of one model.
struct ConvertReport {
    std::string format; ///< of the model, for people
    std::size_t meshes = 0;
    std::size_t triangles = 0;
    std::size_t vertices = 0;
    std::uint64_t bytes = 0; ///< size of the file
    std::vector<kel::importer::Dropped> dropped;
    std::vector<std::string> notes;
    std::vector<std::string> warnings;
    std::vector<WrittenMesh> written;
};

/// Called with what is being done and how much of it, 0 to 1, is done; -1 where that is not known.
using StageCallback = std::function<void(const std::string& stage, double done)>;

/// Converts one model file into one SRC file through the container writer. The output appears whole or not at
/// all.
///
/// throws  Failure
ConvertReport convert(const std::filesystem::path& input, const std::filesystem::path& output,
                      const ConvertOptions& options, const StageCallback& onStage = {});

} // namespace kelsrc::cli
