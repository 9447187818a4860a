#pragma once

#include "GltfNodes.h"
#include "Instances.h"
#include "LossReport.h"

#include <kel/material/MaterialClassic.h>

#include <assimp/scene.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace kel::importer::detail {

/// The classic materials of a model, each made when the first mesh uses it.
class MaterialTable {
public:
    /// format  of the source; of some, Assimp makes materials up that no file states
    MaterialTable(const aiScene& scene, const std::string& format, const GltfNodes& gltfNodes,
                  LossReport& losses);

    /// Empty when the file describes none.
    std::shared_ptr<kel::material::MaterialClassic> of(const Instance& instance);

private:
    const aiScene& scene;
    const GltfNodes& gltfNodes;
    LossReport& losses;
    bool described;
    std::map<unsigned, std::shared_ptr<kel::material::MaterialClassic>> materials; // by Assimp's index

    std::shared_ptr<kel::material::MaterialClassic> get(unsigned index,
                                                        std::optional<std::uint32_t> identifier);
};

} // namespace kel::importer::detail
