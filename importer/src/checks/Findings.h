#pragma once

#include <kel/importer/Importer.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kel::importer::detail {

class GltfDocument;

/// What the checks learned on the way that the reader does not tell.
struct Findings {
    std::vector<Dropped> dropped;
    std::vector<std::string> notes;
    /// For glTF 2 only.
    std::shared_ptr<const GltfDocument> gltf;
    /// What the reader gets in place of the model, when not empty, followed by these bytes of the model.
    std::string front;
    std::uint64_t tailOffset = 0;
    std::uint64_t tailLength = 0;
};

} // namespace kel::importer::detail
