#pragma once

#include "../ModelSource.h"
#include "../model/Model.h"

#include <memory>

namespace kel::importer::detail {

/// Reads a Wavefront OBJ and the material files that it names. Every "g" and "o" is a node below one that is
/// named after the file, with a mesh named after it; a change of material begins a mesh named after the
/// material. A file without faces is a cloud of points.
///
/// throws  ImportError
std::unique_ptr<Model> readObj(const ModelSource& source, const ImportOptions& options,
                               ProgressReporter& progress);

} // namespace kel::importer::detail
