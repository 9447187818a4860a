#pragma once

#include <src/Export.h>
#include <src/Types.h>

#include <memory>

namespace src::builder {

class SRC_EXPORT TechniqueBuilder {
public:
    /// The X3D standard material technique, "x3dStandardMaterialTechnique", with the parameters
    /// "ambientIntensity" (0.2), "diffuseColor" (0.8 each), "emissiveColor" (0), "shininess" (0.2),
    /// "specularColor" (0) and "transparency" (0).
    static std::shared_ptr<Technique> createStandardTechnique();
};

} // namespace src::builder
