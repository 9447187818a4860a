#pragma once

#include "ExportFormat.h"

#include <kel/src/SrcReader.h>

#include <assimp/material.h>

#include <memory>
#include <string_view>

namespace kel::importer::detail {

/// A text as Assimp holds it, cut where it is too long.
aiString assimpString(std::string_view text);

/// A material of the file as exporters take it.
std::unique_ptr<aiMaterial> exportedMaterial(const kel::src::SrcFile& file,
                                             const kel::src::SrcMaterial& source, const ExportFormat& format);

/// What meshes without a material get.
std::unique_ptr<aiMaterial> neutralMaterial();

} // namespace kel::importer::detail
