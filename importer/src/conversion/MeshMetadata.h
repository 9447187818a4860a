#pragma once

#include "../ModelSource.h"
#include "GltfNodes.h"
#include "Instances.h"
#include "JsonTexts.h"

#include <kel/scene/Scene.h>

#include <assimp/scene.h>

#include <string>

namespace kel::importer::detail {

/// Writes the metadata of meshes by the rules that kel/importer/Importer.h states.
class MetadataWriter {
public:
    /// format   of the source, for people
    /// repairs  counts what had to be changed, over all meshes
    MetadataWriter(const ModelSource& source, const std::string& format, const aiScene& scene,
                   const GltfNodes& gltfNodes, TextRepairs& repairs);

    void describe(const Instance& instance, kel::scene::MetaData& metadata);

private:
    const aiScene& scene;
    const GltfNodes& gltfNodes;
    TextRepairs& repairs;
    TextRepairs sourceRepairs;
    std::string source; // the same for all meshes

    void describeGltf(std::size_t node, unsigned slot, kel::scene::MetaData& metadata);
};

} // namespace kel::importer::detail
