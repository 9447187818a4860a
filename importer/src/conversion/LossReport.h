#pragma once

#include "../assimp/AssimpReader.h"
#include "../checks/Findings.h"
#include "GltfNodes.h"
#include "Instances.h"
#include "JsonTexts.h"
#include "MeshParts.h"

#include <kel/importer/Importer.h>

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace kel::importer::detail {

/// Collects what the source has and the result does not, and what is worth knowing.
class LossReport {
public:
    PartLosses parts;
    TextRepairs texts;

    /// Counts up what is left out under that name; the first detail stays.
    void drop(const std::string& kind, std::size_t count, const std::string& detail = "");
    /// What a scene has that no mesh takes along.
    void addScene(const AssimpScene& read, const std::vector<Instance>& instances, const GltfNodes& gltfNodes,
                  const Findings& findings);
    /// What a mesh has that no part takes along.
    void addMesh(const aiMesh& mesh);

    /// The lists of the report, in the end.
    void write(const AssimpScene& read, const Findings& findings, ImportReport& report);

private:
    std::map<std::string, Dropped> dropped;
};

} // namespace kel::importer::detail
