#pragma once

#include <kel/prepare/Export.h>
#include <kel/prepare/Target.h>
#include <kel/src/SrcWriterInput.h>

#include <string>
#include <vector>

namespace kel::prepare {

/// The error that one mesh, or a whole input, has after it was written and read back.
struct ReachedError {
    double position = 0.0;      ///< largest distance of a decoded position from the original
    double normalDegrees = 0.0; ///< largest angle between a decoded normal and the original
};

/// How positions are written in a mode that quantizes them.
enum class Codes {
    TRUNCATED, ///< as they are, so that the writer truncates their codes
    ROUNDED    ///< after roundToCodes
};

/// The errors of one mode of the public writer, mesh by mesh.
///
/// They are those of really quantizing and decoding each vertex as writer and readers do, not a bound. A
/// position that is not finite has an infinite error in the compressed modes, as have positions that are not
/// three floats. Normals without a direction (zero or NaN) have none, and neither have empty mesh pointers.
/// Linear in the number of vertices.
///
/// throws  std::invalid_argument for a preset of the container writer
KEL_PREPARE_EXPORT std::vector<ReachedError> measureErrors(const kel::src::SrcWriterInput& input, Target mode,
                                                           Codes codes = Codes::TRUNCATED);

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
KEL_PREPARE_EXPORT ModeChoice chooseMode(const kel::src::SrcWriterInput& input, const MaxError& accepted,
                                         Codes codes = Codes::TRUNCATED);

} // namespace kel::prepare
