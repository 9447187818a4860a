#include <src/builder/TechniqueBuilder.h>

#include <src/Technique.h>

namespace src::builder {

std::shared_ptr<Technique> TechniqueBuilder::createStandardTechnique() {
    return std::make_shared<Technique>("x3dStandardMaterialTechnique",
                                       Technique::Parameters{{"ambientIntensity", {0.2}},
                                                             {"diffuseColor", {0.8, 0.8, 0.8}},
                                                             {"emissiveColor", {0.0, 0.0, 0.0}},
                                                             {"shininess", {0.2}},
                                                             {"specularColor", {0.0, 0.0, 0.0}},
                                                             {"transparency", {0.0}}});
}

} // namespace src::builder
