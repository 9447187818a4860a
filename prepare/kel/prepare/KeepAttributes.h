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

/// An attribute that meshes got because no order of the meshes would have done.
struct FilledAttribute {
    std::string attribute;
    std::size_t meshes = 0;
};

struct ApartReport {
    std::size_t moved = 0; ///< meshes that are at another position than before
    std::vector<FilledAttribute> filled;
};

/// A copy of the input that the container writer writes right: every mesh has at least the attributes of all
/// meshes before it. Expects that the writer stores all attributes (keepStoredAttributes).
///
/// The container writer keeps one map from attribute name to attribute view for a whole file. So a mesh
/// without, say, "texcoord" that comes after a mesh with it refers to that other mesh's view: values that are
/// not its own, mostly of another count.
///
/// Nothing changes when the input is so already. Else meshes with fewer attributes come first; meshes with the
/// same attributes keep their order. Where two sets of attributes do not contain each other, as with
/// {texcoord} and {color}, the later meshes get what they lack, with values that change nothing: white for
/// "color", normals of their triangles weighted by area for "normal" (+z where there are none), 0 for all
/// others. Such a mesh is a new one; it names what it got in its metadata, as in "filled": ["color"]. Its
/// metadata map is a copy.
///
/// Sorting, not filling alone: it keeps files as small as they can be, and the order of meshes means nothing
/// to a viewer. Linear in the input but for the sort.
KEL_PREPARE_EXPORT kel::src::SrcWriterInput keepAttributesApart(const kel::src::SrcWriterInput& input,
                                                                ApartReport* report = nullptr);

} // namespace kel::prepare
