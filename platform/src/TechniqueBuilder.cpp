#include <src/builder/TechniqueBuilder.h>

#include <src/Technique.h>

#include <kel/src/format/MaterialParameters.h>

#include <utility>

namespace src::builder {

namespace format = kel::src::format;

std::shared_ptr<Technique> TechniqueBuilder::createStandardTechnique() {
    Technique::Parameters parameters;
    for (const auto& parameter : format::MATERIAL_PARAMETERS) {
        parameters.emplace(parameter.name, std::vector<double>(parameter.components, parameter.defaultValue));
    }
    return std::make_shared<Technique>(std::string(format::STANDARD_TECHNIQUE), std::move(parameters));
}

} // namespace src::builder
