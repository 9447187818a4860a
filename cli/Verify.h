#pragma once

#include <kel/prepare/ChooseMode.h>
#include <kel/prepare/Target.h>
#include <kel/src/SrcReader.h>
#include <kel/src/SrcValidator.h>
#include <kel/src/SrcWriterInput.h>

#include <string>
#include <vector>

namespace kelsrc::cli {

/// Compares a file with what was given to its writer: meshes in their order, indices, every attribute that
/// the target stores, metadata and materials. Values that the target quantizes may be off by one step of a
/// preset, or by the error that was measured for a mode; a preset clamps to its box. All others are equal to
/// the last bit.
///
/// errors   of the meshes, in a mode of the public writer
/// returns  the first difference as a sentence for people; empty when there is none
std::string firstDifference(const kel::src::SrcWriterInput& input, kel::prepare::Target target,
                            const std::vector<kel::prepare::ReachedError>& errors,
                            const kel::src::SrcFile& file);

/// The first error of a report as a sentence for people; empty when there is none.
///
/// clamped  positions were cut to a preset's box, which the bounds that the writer states do not know
std::string firstError(const kel::src::ValidationReport& report, bool clamped);

} // namespace kelsrc::cli
