#pragma once

#include <kel/prepare/Export.h>
#include <kel/prepare/ProblemCodes.h>
#include <kel/prepare/Target.h>
#include <kel/src/SrcWriterInput.h>

#include <cstddef>
#include <limits>
#include <string>
#include <vector>

namespace kel::prepare {

/// Stands for a position or element that a finding does not have.
constexpr std::size_t NOWHERE = std::numeric_limits<std::size_t>::max();

/// One kind of problem at one place: a mesh, an attribute of it, or an entry of its metadata.
struct Finding {
    ProblemCode code{};
    Severity severity = Severity::ERROR;
    std::size_t mesh = NOWHERE; ///< position in the input's list; NOWHERE when it concerns the whole input
    std::string meshName;       ///< the metadata's "name"; empty when there is none
    std::string attribute;      ///< name; empty when it concerns none
    std::string key;            ///< of a metadata entry; empty when it concerns none
    /// The first element at fault: a vertex of the attribute, a position in the index list, an attribute's
    /// position in its mesh, or a byte of the metadata text. NOWHERE when it concerns no single one.
    std::size_t element = NOWHERE;
    std::size_t count = 1; ///< how many elements (components, for COMPONENT_CLAMPED) are at fault
    std::string sentence;  ///< what is wrong and what to do about it, without the place
};

/// The whole message, place first: `Mesh 3 ("bolt"), attribute "normal", element 17 (and 4 more): ...`
KEL_PREPARE_EXPORT std::string describe(const Finding& finding);

struct ProblemOptions {
    /// Findings to keep; the rest is counted only. 0 keeps all.
    std::size_t maxFindings = 1000;
};

struct Problems {
    std::vector<Finding> findings; ///< by mesh
    /// How many there are, kept or not.
    std::size_t errors = 0, warnings = 0, hints = 0;
};

/// Finds everything about the input that its writer would wrap, clamp, leave out, store as something else,
/// refuse, or not come back from. What passes without an error can be handed to that writer, as writeChecked
/// does.
///
/// Reads the input only. One finding per kind and place, however many elements are at fault. Linear in
/// vertices, indices, and bytes of metadata; needs no memory but the findings'.
KEL_PREPARE_EXPORT Problems findProblems(const kel::src::SrcWriterInput& input, Target target,
                                         const ProblemOptions& options = {});

} // namespace kel::prepare
