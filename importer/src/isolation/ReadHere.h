#pragma once

#include "../ModelSource.h"
#include "../model/Model.h"
#include "Fields.h"

#include <memory>

namespace kel::importer::detail {

/// Reads a model in this process.
///
/// throws  ImportError
std::unique_ptr<Model> readHere(ReaderKind reader, const ModelSource& source, const ImportOptions& options,
                                ProgressReporter& progress);

/// Reads a model in a process of its own, where there is a helper for that; else here, and a note says so.
///
/// throws  ImportError
std::unique_ptr<Model> readApart(ReaderKind reader, const ModelSource& source, const ImportOptions& options,
                                 ProgressReporter& progress);

} // namespace kel::importer::detail
