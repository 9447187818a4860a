#pragma once

#include <kel/prepare/Export.h>
#include <kel/prepare/Target.h>
#include <kel/src/SrcWriterInput.h>

#include <iosfwd>

namespace kel::prepare {

/// Has the writer of the target write the input, which may be what it is: the writers never come back from
/// some inputs, and spoil others without a word. findProblems tells which.
///
/// input   input.useCompressedPreset is not read: the target says it
/// throws  what the writer throws
KEL_PREPARE_EXPORT void write(const kel::src::SrcWriterInput& input, Target target, std::ostream& out);

/// The same for an input that nobody looked at: findProblems first, and nothing is written when it finds an
/// error. So it comes back from every input, also from meshes that POSITION_COMPRESSED has no end for, those
/// without three-float positions.
///
/// throws  std::invalid_argument that names the first mesh at fault and the remedy; what the writer throws
KEL_PREPARE_EXPORT void writeChecked(const kel::src::SrcWriterInput& input, Target target, std::ostream& out);

} // namespace kel::prepare
