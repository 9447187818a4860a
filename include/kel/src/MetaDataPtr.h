#pragma once

#include <map>
#include <memory>
#include <string>

namespace kel::src {

/// One mesh's metadata: key to text, sorted by key. Writers read each text as JSON, so a plain string needs
/// its own quotes: "\"bolt\"", "42", "[1, 2]". The map is shared: writers add the mesh's statistics to it in
/// place.
using MetaDataPtr = std::shared_ptr<std::map<std::string, std::string>>;

} // namespace kel::src
