#include <src/builder/MaterialBuilder.h>

#include "Document_p.h"

#include <stdexcept>
#include <utility>

namespace src::builder {

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

} // namespace src::builder
