#pragma once

/// What the attributes of sets are called: that of set 0 as here, the others with their number behind.
namespace kel::importer::detail {

constexpr const char* TEXCOORD_NAME = "texcoord";
constexpr const char* COLOR_NAME = "color";

} // namespace kel::importer::detail
