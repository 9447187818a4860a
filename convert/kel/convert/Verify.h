#pragma once

#include <kel/convert/Compare.h>
#include <kel/convert/Export.h>
#include <kel/convert/Recipe.h>
#include <kel/prepare/ChooseMode.h>
#include <kel/prepare/Target.h>
#include <kel/prepare/Transform.h>
#include <kel/src/SrcReader.h>
#include <kel/src/SrcValidator.h>
#include <kel/src/SrcWriterInput.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace kel::convert {

/// Compares a file with what was given to its writer: meshes in their order, indices, every attribute that
/// the target stores, metadata and materials. Values that the target quantizes may be off by one step of a
/// preset, or by the error that measureErrors finds of the input for a mode; a preset clamps to its box. All
/// others are equal to the last bit.
///
/// errors   of the meshes, in a mode of the public writer
/// returns  the first difference as a sentence for people; empty when there is none
KEL_CONVERT_EXPORT std::string firstDifference(const kel::src::SrcWriterInput& input,
                                               kel::prepare::Target target,
                                               const std::vector<kel::prepare::ReachedError>& errors,
                                               const kel::src::SrcFile& file);

/// The first error of a report as a sentence for people; empty when there is none.
///
/// clamped  positions were cut to a preset's box, which the bounds that the writer states do not know
KEL_CONVERT_EXPORT std::string firstError(const kel::src::ValidationReport& report, bool clamped);

/// Compares what a file decodes to with the meshes that a conversion began with, before any of its steps: so
/// no step can hide what it lost. What the recipe asks for is done here to the meshes' numbers, in doubles
/// and without the steps: leaving out what is not triangles, turning and scaling, clamping. Limits are what
/// the encoding may lose.
///
/// change  the turn and scale that the recipe led to; without effect when it asks for none
KEL_CONVERT_EXPORT CompareReport compareWithSource(const kel::src::SrcWriterInput& source,
                                                   const Recipe& recipe, kel::prepare::Target target,
                                                   const kel::prepare::TransformOptions& change,
                                                   const kel::src::SrcFile& file);

/// One more look at a file: what is wrong with it as a sentence for people, or nothing.
using FurtherCheck = std::function<std::string(const kel::src::SrcFile&)>;

/// For a file, or for its bytes: the first error that a reader or the validator has with it, else the first
/// difference, else what `further` says; empty when all is well.
KEL_CONVERT_EXPORT std::string verifyFile(const kel::src::SrcWriterInput& input, kel::prepare::Target target,
                                          const std::vector<kel::prepare::ReachedError>& errors, bool clamped,
                                          const std::string& path, const FurtherCheck& further = {});
KEL_CONVERT_EXPORT std::string verifyBytes(const kel::src::SrcWriterInput& input, kel::prepare::Target target,
                                           const std::vector<kel::prepare::ReachedError>& errors,
                                           bool clamped, std::string_view bytes,
                                           const FurtherCheck& further = {});

} // namespace kel::convert
