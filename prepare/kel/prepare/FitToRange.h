#pragma once

#include <kel/prepare/Export.h>
#include <kel/prepare/Target.h>
#include <kel/src/SrcWriterInput.h>

#include <cstddef>
#include <string>
#include <vector>

namespace kel::prepare {

/// The preset "CMP1" of the container writer quantizes relative to the fixed box -0.5 to 0.5 and clamps what
/// lies outside. These functions find what it would clamp, and move attributes into the box in a way that a
/// reader can undo.
///
/// They touch the attributes that the preset quantizes and nothing else: "position", "normal", "texcoord" and
/// "color", where the buffer holds one to three floats per element. ("id" is written with all its bits.)
struct FitOptions {
    /// The box, the same for every component. Finite, lower < upper.
    float lower = -0.5f;
    float upper = 0.5f;
    /// The container target whose preset says which attributes are quantized.
    Target target = Target::PRESET_CMP1;
};

/// One attribute of one mesh that would be clamped.
struct ClampCount {
    std::size_t mesh = 0; ///< position in the input's list of meshes
    std::string meshName; ///< the metadata's "name"; empty when there is none
    std::string attribute;
    std::size_t components = 0; ///< how many numbers lie outside the box or are NaN
};

/// Every attribute that has a component outside the box, or a NaN, by mesh and in the mesh's own order.
///
/// throws  std::invalid_argument for a box that is not one
KEL_PREPARE_EXPORT std::vector<ClampCount> countClamped(const kel::src::SrcWriterInput& input,
                                                        const FitOptions& options = {});

/// What fitToRange changed.
struct FitReport {
    std::size_t meshes = 0;     ///< meshes of the list with at least one fitted attribute
    std::size_t attributes = 0; ///< fitted attributes of these meshes
};

/// A copy of the input whose quantized attributes lie in the box. Meshes with such attributes become new
/// meshes that share every other buffer with the old ones; all metadata maps are copies, so that a writer's
/// statistics do not reach the caller's. Materials are shared. Linear in the number of components.
///
/// What was done is recorded in the mesh's metadata under "fit", one entry per fitted attribute, one number
/// per component:
///
///     {"position":{"offset":[x,y,z],"scale":[x,y,z]},"normal":{...}}
///
///     original = value * scale + offset        per component, in double
///
/// with `value` a component of the fitted mesh, or of the file after the file's own decode rule. Scales are
/// never 0. The numbers' texts give the same doubles back in any locale. A mesh that has a "fit" already gets
/// the two rules combined, so that the text always leads back to the first values.
///
/// The range that is mapped on the box, per component:
///   - "position", "texcoord": the attribute's own smallest and largest value, so that all codes are used.
///     These two come back exactly (to the rounding of a double); a component that is the same everywhere is
///     put on the box's lower end, whose code is exact, and comes back exactly;
///   - "normal": -1 to 1 (wider, symmetric, when a component is larger), so that scale is 2 and offset 0 on
///     every mesh and equal normals of neighbouring meshes get equal codes;
///   - "color": 0 to 1 (wider when a component lies outside): scale 1, offset 0.5, likewise.
///
/// Nothing is clamped: values outside these ranges widen the range. NaN and infinities are left as they are
/// and do not take part in the range; countClamped still counts them afterwards.
///
/// Error: in the fitted mesh at most 2^-26 of the range, from rounding to float. In a file, codes are
/// truncated to b bits, so a decoded value lies below the true one by less than one step, range / (2^b - 1):
/// 1/65535 of the mesh's extent for positions and texture coordinates, 2/255 for normals, 1/255 for colours.
/// After roundToCodes it lies within half a step, above or below. A position that two meshes share is decoded
/// by two different grids, so the two results may differ by up to one step of the coarser one.
///
/// throws  std::invalid_argument for a box that is not one
KEL_PREPARE_EXPORT kel::src::SrcWriterInput fitToRange(const kel::src::SrcWriterInput& input,
                                                       FitReport* report = nullptr,
                                                       const FitOptions& options = {});

} // namespace kel::prepare
