#pragma once

#include <kel/prepare/Export.h>
#include <kel/prepare/Target.h>
#include <kel/src/SrcWriterInput.h>

#include <vector>

namespace kel::prepare {

/// The error that one mesh, or a whole input, has after it was written and read back.
struct ReachedError {
    double position = 0.0;      ///< largest distance of a decoded position from the original
    double normalDegrees = 0.0; ///< largest angle between a decoded normal and the original
};

/// The errors of one mode of the public writer, mesh by mesh.
///
/// They are those of really quantizing and decoding each vertex as writer and readers do, not a bound. A
/// position that is not finite has an infinite error in the compressed modes, as have positions that are not
/// three floats. Normals without a direction (zero or NaN) have none, and neither have empty mesh pointers.
/// Linear in the number of vertices.
///
/// throws  std::invalid_argument for a preset of the container writer
KEL_PREPARE_EXPORT std::vector<ReachedError> measureErrors(const kel::src::SrcWriterInput& input,
                                                           Target mode);

} // namespace kel::prepare
