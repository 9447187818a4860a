#pragma once

#include "../ModelSource.h"
#include "../model/Model.h"
#include "MemoryFile.h"

#include <memory>
#include <string_view>

namespace kel::importer::detail {

/// Writes a model with the parts of all meshes that nodes use; takes them.
///
/// throws  ImportError; std::system_error
void writeModel(Model& model, MemoryFile& file);

/// The model that was written. Nothing in the bytes is believed: what is returned keeps every promise that Model.h
/// makes, with texts that are no longer and trees that are no deeper than a reader's.
///
/// throws  BrokenArchive
std::unique_ptr<Model> readModel(std::string_view bytes);

} // namespace kel::importer::detail
