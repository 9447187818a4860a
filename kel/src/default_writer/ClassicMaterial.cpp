#include <kel/src/default_writer/ClassicMaterial.h>

#include <utility>

namespace kel::src::detail {

const char* const X3D_TECHNIQUE_ID = "x3dStandardMaterialTechnique";

namespace {

// The default transparency is 0.2, not 0, and stays so: files without one were made to look like that.
constexpr const char* X3D_DEFAULTS = R"({
    "ambientIntensity": {"value": 0.2},
    "diffuseColor": {"value": [0.8, 0.8, 0.8]},
    "emissiveColor": {"value": [0, 0, 0]},
    "shininess": {"value": 0.2},
    "specularColor": {"value": [0, 0, 0]},
    "transparency": {"value": 0.2}
})";

} // namespace

void addFieldValueToJSONObject(const std::string& name, float value, picojson::object& object) {
    picojson::array values;
    values.emplace_back(static_cast<double>(value));
    object[name] = picojson::value(std::move(values));
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
    picojson::object values;
    addFieldValueToJSONObject("ambientIntensity", material->getAmbient(), values);
    addFieldValueToJSONObject("diffuseColor", material->getDiffuse(), values);
    addFieldValueToJSONObject("emissiveColor", material->getEmissive(), values);
    addFieldValueToJSONObject("shininess", material->getShininess(), values);
    addFieldValueToJSONObject("specularColor", material->getSpecular(), values);
    container.addMaterial(materialId, X3D_TECHNIQUE_ID, picojson::value(std::move(values)));
}

picojson::value createStandardX3DMaterialTechnique() {
    picojson::value parameters;
    picojson::parse(parameters, X3D_DEFAULTS);
    return parameters;
}

} // namespace kel::src::detail
