#include <kel/src/DefaultSrcWriter.h>

#include <kel/src/default_writer/ClassicMaterial.h>
#include <kel/src/default_writer/MeshToContainer.h>
#include <kel/src/format/FileLayout.h>
#include <kel/src/format/MaterialParameters.h>

#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <utility>

namespace kel::src::detail {

void addFieldValueToJSONObject(const std::string& name, float value, picojson::object& object) {
    object[name] = picojson::value(picojson::array(1, picojson::value(static_cast<double>(value))));
}

void addFieldValueToJSONObject(const std::string& name, const glm::tvec3<float>& value,
                               picojson::object& object) {
    picojson::array values;
    for (int axis = 0; axis < 3; ++axis)
        values.emplace_back(static_cast<double>(value[axis]));
    object[name] = picojson::value(std::move(values));
}

void addMaterialDataToSRC(std::shared_ptr<kel::material::MaterialClassic> material,
                          ShapeResourceContainer& container, const std::string& materialId) {
    using namespace format;
    picojson::object values;
    const auto add = [&](MaterialParameterIndex parameter, const auto& value) {
        addFieldValueToJSONObject(std::string(parameterName(parameter)), value, values);
    };
    add(AMBIENT_INTENSITY, material->getAmbient());
    add(DIFFUSE_COLOR, material->getDiffuse());
    add(EMISSIVE_COLOR, material->getEmissive());
    add(SHININESS, material->getShininess());
    add(SPECULAR_COLOR, material->getSpecular());
    container.addMaterial(materialId, std::string(STANDARD_TECHNIQUE), picojson::value(std::move(values)));
}

picojson::value createStandardX3DMaterialTechnique() {
    picojson::object parameters;
    for (std::size_t i = 0; i < std::size(format::MATERIAL_PARAMETERS); ++i) {
        const format::MaterialParameter& parameter = format::MATERIAL_PARAMETERS[i];
        const picojson::value number(i == format::TRANSPARENCY ? format::CONTAINER_TRANSPARENCY
                                                               : parameter.defaultValue);
        picojson::object entry;
        // A scalar is a bare number here, unlike in a material's values.
        entry[std::string(format::key::VALUE)] =
            parameter.components == 1 ? number
                                      : picojson::value(picojson::array(parameter.components, number));
        parameters[std::string(parameter.name)] = picojson::value(std::move(entry));
    }
    return picojson::value(std::move(parameters));
}

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
