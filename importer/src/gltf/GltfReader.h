#pragma once

#include "../ModelSource.h"
#include "../model/Model.h"

#include <memory>

namespace kel::importer::detail {

/// Opens a glTF 2 or a GLB. Its buffers are read where they lie, mesh by mesh; the source and what it names stay
/// open as long as the model is there.
///
/// source   outlives the model
/// returns  null for glTF 1
/// throws   ImportError
std::unique_ptr<Model> openGltf(const ModelSource& source, const ImportOptions& options,
                                ProgressReporter& progress);

} // namespace kel::importer::detail
