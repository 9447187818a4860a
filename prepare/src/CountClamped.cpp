#include <kel/prepare/MeshName.h>
#include <kel/prepare/detail/Steps.h>

#include "ContainerPreset.h"
#include "PackedReading.h"

#include <algorithm>

namespace kel::prepare {

std::vector<ClampCount> steps::countClamped(const Scene& scene, const FitOptions& options) {
    detail::requireBox(options);
    const detail::ContainerPreset preset(options.target);
    std::vector<ClampCount> counts;
    for (std::size_t m = 0; m < scene.meshes.size(); ++m) {
        const kel::scene::SceneMesh& entry = scene.meshes[m];
        if (!entry.mesh) continue;
        for (const detail::AttributePtr& buffer : detail::attributesOf(*entry.mesh)) {
            if (!buffer || !preset.quantizesFloats(*buffer)) continue;
            const detail::PackedFloats values(*buffer);
            // Written so that NaN counts.
            const auto outside = std::count_if(values.begin(), values.end(), [&](float value) {
                return !(value >= options.lower && value <= options.upper);
            });
            if (outside == 0) continue;
            counts.push_back(
                {m, nameOfMesh(entry), buffer->getAttributeName(), static_cast<std::size_t>(outside)});
        }
    }
    return counts;
}

std::vector<ClampCount> countClamped(const kel::src::SrcWriterInput& input, const FitOptions& options) {
    std::vector<ClampCount> counts = steps::countClamped(kel::scene::fromMeshes(input.meshes), options);
    for (ClampCount& count : counts)
        count.meshName = meshName(input, input.meshes[count.mesh]);
    return counts;
}

} // namespace kel::prepare
