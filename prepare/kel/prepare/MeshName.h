#pragma once

#include <kel/prepare/Export.h>
#include <kel/src/SrcWriterInput.h>

#include <string>

namespace kel::prepare {

/// The name of a mesh for people: its metadata's "name", the content where that is a JSON string, another
/// text as it is; empty when there is none. May hold any character.
KEL_PREPARE_EXPORT std::string meshName(const kel::src::SrcWriterInput& input,
                                        const kel::mesh::MeshPtr& mesh);

} // namespace kel::prepare
