#pragma once

#include "../ModelSource.h"
#include "../model/Model.h"

#include <memory>

namespace kel::importer::detail {

/// Reads a PLY: text or binary of either byte order, with properties in any order. Faces, triangle strips and
/// edges become a mesh; vertices without any of them, a cloud of points.
///
/// throws  ImportError
std::unique_ptr<Model> readPly(const ModelSource& source, const ImportOptions& options,
                               ProgressReporter& progress);

} // namespace kel::importer::detail
