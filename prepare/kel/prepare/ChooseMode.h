#pragma once

#include <kel/prepare/Export.h>
#include <kel/prepare/MeasureErrors.h>
#include <kel/prepare/Target.h>
#include <kel/src/SrcWriterInput.h>

#include <string>
#include <vector>

namespace kel::prepare {

/// The error that a caller accepts.
struct MaxError {
    double position = 0.0;      ///< distance in units of "position"; 0 accepts only what decodes exactly
    double normalDegrees = 1.0; ///< angle; two-byte normals are off by 0.64 degrees at most
};

struct ModeChoice {
    Target mode = Target::UNCOMPRESSED; ///< one of the public writer's three
    ReachedError largest;               ///< over all meshes, in that mode
    std::vector<ReachedError> meshes;   ///< by position in the input's list, in that mode
    /// Why the next smaller mode was not taken, as a sentence for people; empty when there is none.
    std::string whyNotSmaller;
};

/// The mode of the public writer with the smallest file whose errors, as measureErrors finds them, stay
/// within `accepted` and that leaves no attribute out.
///
/// Position-normal is taken when every mesh with three-float normals has nothing but "position" and "normal",
/// as many of the one as of the other, and there is such a mesh; without one it would write the same as
/// position. Position and position-normal need three-float positions in every mesh.
///
/// Linear in the number of vertices. Empty mesh pointers have no error.
KEL_PREPARE_EXPORT ModeChoice chooseMode(const kel::src::SrcWriterInput& input, const MaxError& accepted);

} // namespace kel::prepare
