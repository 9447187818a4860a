#pragma once

#include "Convert.h"

#include <kel/src/SrcWriterInput.h>

namespace kelsrc::cli {

/// Makes an imported model fit its writer, by calls to kel::prepare, and says in the report what that changed
/// or left out. Sets report.target and report.error.
///
/// file    for messages
/// throws  Failure when the writer would refuse, lose or spoil something that the options do not allow it to
void prepareForWriter(const std::string& file, const ConvertOptions& options, kel::src::SrcWriterInput& input,
                      ConvertReport& report, std::vector<kel::prepare::ReachedError>& errors);

/// How many bytes of indices and attributes the writer stores for a mesh.
std::uint64_t storedBytes(const kel::mesh::Mesh& mesh, kel::prepare::Target target);

} // namespace kelsrc::cli
