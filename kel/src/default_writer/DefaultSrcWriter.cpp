#include <kel/src/DefaultSrcWriter.h>

#include <kel/src/default_writer/ClassicMaterial.h>
#include <kel/src/default_writer/MeshToContainer.h>
#include <kel/src/format/FileLayout.h>
#include <kel/src/format/MaterialParameters.h>

#include <map>
#include <memory>
#include <string>
#include <utility>

namespace kel::src::detail {

void writeMeshSrcDefault(const SrcWriterInput& input, std::ostream& out) {
    SRCEncodingConfig config = getSRCEncodingPreset("default");
    if (input.useCompressedPreset) config = getSRCEncodingPreset("CMP1");
    writeMeshSrcEncoded(input, std::move(config), out);
}

void writeMeshSrcEncoded(const SrcWriterInput& input, SRCEncodingConfig config, std::ostream& out) {
    ShapeResourceContainer container;
    // One map for all meshes on purpose: see addMeshToSrc.
    std::map<std::string, std::string> attributeIds;

    unsigned long position = 0;
    for (const auto& mesh : input.meshes) {
        const auto metaEntry = input.metaData.find(mesh);
        const MetaDataPtr metaData = metaEntry != input.metaData.end() ? metaEntry->second : nullptr;
        const std::string meshId = addMeshToSrc(container, attributeIds, position, mesh, metaData, config);

        const auto materialEntry = input.meshMaterials.find(mesh);
        if (materialEntry != input.meshMaterials.end()) {
            if (const auto classic =
                    std::dynamic_pointer_cast<kel::material::MaterialClassic>(materialEntry->second)) {
                const std::string materialId =
                    std::string(format::id_prefix::CONTAINER_MATERIAL) + std::to_string(position);
                addMaterialDataToSRC(classic, container, materialId);
                container.assignMaterialToMesh(materialId, meshId);
            }
        }
        ++position;
    }

    container.addTechnique(std::string(format::STANDARD_TECHNIQUE), createStandardX3DMaterialTechnique());
    container.writeToStream(out);
}

} // namespace kel::src::detail
