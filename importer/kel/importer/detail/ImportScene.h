#pragma once

#include <kel/importer/Export.h>
#include <kel/importer/Importer.h>
#include <kel/scene/Scene.h>

#include <cstddef>
#include <filesystem>
#include <string>

/// For the libraries of this project; not installed. Callers outside use importModel.
namespace kel::importer::detail {

struct ImportedScene {
    kel::scene::Scene scene; ///< whose maps of metadata belong to it
    ImportReport report;
};

/// What importModel does, with the result as a scene that steps of preparation work on.
///
/// throws  ImportError
KEL_IMPORTER_EXPORT ImportedScene importScene(const std::filesystem::path& file,
                                              const ImportOptions& options = {});
KEL_IMPORTER_EXPORT ImportedScene importScene(const void* bytes, std::size_t size, const std::string& name,
                                              const ImportOptions& options = {});

} // namespace kel::importer::detail
