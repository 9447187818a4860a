#pragma once

#include <kel/prepare/Export.h>
#include <kel/src/SrcWriterInput.h>

#include <optional>
#include <string_view>

namespace kel::prepare {

enum class UpAxis { X, Y, Z };

/// For messages and options: "x", "y" or "z".
KEL_PREPARE_EXPORT const char* axisName(UpAxis axis);

/// Metres per unit of length: mm, cm, dm, m, km, in, ft, yd, mi. Empty for another name.
KEL_PREPARE_EXPORT std::optional<double> metresPer(std::string_view unit);

struct TransformOptions {
    /// Factor for positions, finite and greater than 0. For units: metresPer(from) / metresPer(to).
    double scale = 1.0;
    /// The axis that points up now, and the one that shall. Where they differ everything is turned by a right
    /// angle about the third axis, which takes the one onto the other.
    UpAxis fromUp = UpAxis::Y;
    UpAxis toUp = UpAxis::Y;
};

/// A copy of the input with "position" scaled and turned and "normal" turned, in every mesh. Only these
/// buffers are new; all others, indices and materials are shared, metadata maps are copies. A turn and a
/// positive scale keep the winding of triangles right. Components are computed in double and rounded once;
/// turning alone moves and negates components and is exact.
///
/// What was done is recorded in each mesh's metadata:
///
///     "transform": {"from":"y","matrix":[a,b,c,d,e,f,g,h,i],"scale":s,"to":"z"}
///
///     new position = matrix * old position        row by row; scale is already in the matrix
///
/// An "origin" among the metadata, which is to be added to positions, is scaled and turned as they are.
///
/// A mesh that has such a record already gets the two combined. Options that change nothing leave everything
/// as it is and record nothing.
///
/// throws  std::invalid_argument for a scale that is not finite and positive, and, naming the mesh, for
///         positions that are not three floats, normals that are not (when turning), a mesh that went through
///         fitToRange, whose recorded inverse would not lead back any more (transform first), and a record
///         that no double holds when combined
KEL_PREPARE_EXPORT kel::src::SrcWriterInput transform(const kel::src::SrcWriterInput& input,
                                                      const TransformOptions& options);

} // namespace kel::prepare
