#include <src/builder/MaterialBuilder.h>
#include <src/builder/TechniqueBuilder.h>

#include "Document_p.h"

#include <kel/src/format/MaterialParameters.h>

#include <stdexcept>
#include <utility>

namespace src::builder {

namespace format = kel::src::format;

MaterialBuilder::MaterialBuilder(std::shared_ptr<Material> material) : material(std::move(material)) {}
MaterialBuilder::~MaterialBuilder() = default;

std::shared_ptr<MaterialBuilder> MaterialBuilder::create(const std::string& name,
                                                         std::shared_ptr<Technique> technique) {
    if (!technique) throw std::invalid_argument("Material \"" + name + "\" needs a technique.");
    auto material = std::make_shared<Material>();
    material->name = name;
    material->technique = std::move(technique);
    return std::shared_ptr<MaterialBuilder>(new MaterialBuilder(std::move(material)));
}

void MaterialBuilder::addParameterValue(std::string name, const std::vector<double>& value) {
    if (handedOut) {
        material = std::make_shared<Material>(*material);
        handedOut = false;
    }
    material->values[std::move(name)] = value;
}

std::shared_ptr<Material> MaterialBuilder::build() {
    handedOut = true;
    return material;
}

std::shared_ptr<Technique> TechniqueBuilder::createStandardTechnique() {
    Technique::Parameters parameters;
    for (const auto& parameter : format::MATERIAL_PARAMETERS) {
        parameters.emplace(parameter.name, std::vector<double>(parameter.components, parameter.defaultValue));
    }
    return std::make_shared<Technique>(std::string(format::STANDARD_TECHNIQUE), std::move(parameters));
}

} // namespace src::builder
