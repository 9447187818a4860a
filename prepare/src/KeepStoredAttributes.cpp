#include <kel/prepare/detail/Steps.h>

#include "ContainerPreset.h"
#include "SceneSteps.h"

#include <map>
#include <utility>

namespace kel::prepare {

using detail::AttributePtr;
using detail::ContainerPreset;

void steps::keepStoredAttributes(Scene& scene, std::vector<UnstoredAttribute>* removed) {
    const ContainerPreset preset(scene.useCompressedPreset ? Target::PRESET_CMP1 : Target::PRESET_DEFAULT);
    std::map<std::pair<std::string, std::size_t>, std::size_t> counts;
    detail::RepeatedMeshes repeated(scene);
    for (std::size_t m = 0; m < scene.meshes.size(); ++m) {
        kel::scene::SceneMesh& entry = scene.meshes[m];
        if (!entry.mesh) continue;
        std::vector<AttributePtr> kept;
        const std::vector<AttributePtr> attributes = detail::attributesOf(*entry.mesh);
        for (const AttributePtr& buffer : attributes) {
            if (!buffer) continue;
            const std::size_t components = buffer->getComponentCountPerElement();
            if (ContainerPreset::fits(components) && ContainerPreset::hasWidthOfFloats(*buffer) &&
                preset.knows(buffer->getAttributeName())) {
                kept.push_back(buffer);
            } else {
                ++counts[{buffer->getAttributeName(), components}];
            }
        }
        if (repeated.takeOver(m) || kept.size() == attributes.size()) continue;
        detail::replaceMesh(entry, detail::withAttributes(*entry.mesh, std::move(kept)));
    }
    if (removed) {
        removed->clear();
        for (const auto& [attribute, meshes] : counts)
            removed->push_back({attribute.first, attribute.second, meshes});
    }
}

kel::src::SrcWriterInput keepStoredAttributes(const kel::src::SrcWriterInput& input,
                                              std::vector<UnstoredAttribute>* removed) {
    kel::scene::Scene scene = kel::scene::fromInput(input);
    steps::keepStoredAttributes(scene, removed);
    return toInput(std::move(scene));
}

} // namespace kel::prepare
