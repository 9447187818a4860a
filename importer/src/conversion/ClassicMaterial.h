#pragma once

#include <kel/material/MaterialClassic.h>

#include <assimp/material.h>

#include <cstdint>
#include <memory>

namespace kel::importer::detail {

/// The Phong exponent of a shininess of 1.
constexpr float LARGEST_PHONG_EXPONENT = 128.0f;

/// The material by the rules that kel/importer/Importer.h states. Numbers that are not finite count as not
/// stated.
std::shared_ptr<kel::material::MaterialClassic> makeClassicMaterial(const aiMaterial& source,
                                                                    std::uint32_t identifier);

} // namespace kel::importer::detail
