#pragma once

#include <kel/prepare/Export.h>
#include <kel/prepare/Target.h>
#include <kel/src/SrcWriterInput.h>

#include <cstddef>

namespace kel::prepare {

/// What roundToCodes moved.
struct RoundReport {
    std::size_t meshes = 0;     ///< meshes of the list with at least one moved attribute
    std::size_t attributes = 0; ///< moved attributes of these meshes
};

/// A copy of the input whose values get the nearest code from a writer that truncates: each value that the
/// target quantizes is moved into the middle of the bin of the code that decodes nearest to it. So a decoded
/// value lies within half a step of the input's, where it would lie up to a whole step below.
///
/// In the public writer's 16-bit modes that is "position" of three floats. The box stays as it is: a vertex
/// at its lower or upper end keeps that coordinate, and what would round to the last code becomes the upper
/// end. Where the writer's roundings would take the last code from the upper end itself, it moves up by a few
/// roundings of a float. In a preset that quantizes it is "position", "normal", "texcoord" and "color" of one
/// to three floats, inside the preset's box.
///
/// NaN, infinities and what lies outside the box stay as they are, and so do positions that were made
/// seamless for the public writer. Nothing changes in targets that store floats. Meshes that change become
/// new meshes that share every other buffer with the old ones. Do this last: what moves a value afterwards
/// undoes it. Do it once: the middle of a bin is as near to the next code. Linear in the number of
/// components.
KEL_PREPARE_EXPORT kel::src::SrcWriterInput roundToCodes(const kel::src::SrcWriterInput& input, Target target,
                                                         RoundReport* report = nullptr);

} // namespace kel::prepare
