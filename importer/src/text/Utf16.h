#pragma once

#include <string>
#include <string_view>

namespace kel::importer::detail {

/// Whether a text begins with the mark of UTF-16.
bool isUtf16(std::string_view text);
/// Such a text as UTF-8, without the mark; U+FFFD where half of a pair is missing.
std::string utf8OfUtf16(std::string_view text);

} // namespace kel::importer::detail
