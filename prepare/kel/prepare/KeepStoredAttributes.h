#pragma once

#include <kel/prepare/Export.h>
#include <kel/src/SrcWriterInput.h>

#include <cstddef>
#include <string>
#include <vector>

namespace kel::prepare {

/// An attribute that a preset has no place for: its name is unknown, it has more than three components, or
/// components that are not four bytes wide.
struct UnstoredAttribute {
    std::string attribute;
    std::size_t components = 0;
    std::size_t meshes = 0; ///< how many meshes have it
};

/// A copy of the input without the attributes that the container writer would leave out with a message. The
/// preset is the one that the input selects. Meshes that lose one become new meshes, which share all their
/// buffers, metadata and materials with the old ones.
///
/// removed  one entry per name and component count, by name; may be null
KEL_PREPARE_EXPORT kel::src::SrcWriterInput
keepStoredAttributes(const kel::src::SrcWriterInput& input,
                     std::vector<UnstoredAttribute>* removed = nullptr);

} // namespace kel::prepare
