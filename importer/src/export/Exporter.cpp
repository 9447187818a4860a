#include <kel/importer/Exporter.h>

#include "ExportFormat.h"
#include "GltfExtras.h"
#include "MemoryFiles.h"
#include "SceneExport.h"

#include <assimp/Exporter.hpp>

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

namespace kel::importer {

ExportError::~ExportError() = default;

ExportResult exportModel(const kel::src::SrcFile& file, const std::string& fileName) {
    const detail::ExportFormat& format = detail::exportFormatOf(fileName);
    detail::ExportScene made = detail::makeExportScene(file, format);

    std::vector<std::unique_ptr<ExportedFile>> files;
    Assimp::Exporter exporter;
    exporter.SetIOHandler(new detail::MemoryFiles(files)); // which takes it over
    // The binary PLY exporter stores colours in another type than it says.
    const char* assimpId =
        made.hasColours && std::strcmp(format.assimpId, "plyb") == 0 ? "ply" : format.assimpId;
    if (exporter.Export(made.scene.get(), assimpId, fileName) != aiReturn_SUCCESS)
        throw ExportError(exporter.GetErrorString());
    ExportResult result = std::move(made.result);
    for (auto& written : files)
        result.files.push_back(std::move(*written));
    const auto model = std::find_if(result.files.begin(), result.files.end(),
                                    [&](const ExportedFile& entry) { return entry.name == fileName; });
    if (model == result.files.end()) throw ExportError("the exporter wrote nothing");
    std::rotate(result.files.begin(), model, model + 1);
    if (format.metadata) {
        std::string& bytes = result.files.front().bytes;
        bytes = format.extension == std::string("glb")
                    ? detail::withExtrasInGlb(bytes, made.nodeExtras)
                    : detail::withExtras(bytes.data(), bytes.data() + bytes.size(), made.nodeExtras);
    }
    return result;
}

} // namespace kel::importer
