#pragma once

#include <kel/material/Material.h>

#include <glm/vec3.hpp>

#include <cstdint>
#include <memory>
#include <string>

namespace kel::material {

/// A material with the fixed fields of classic lighting. All values are unitless; colours are red, green,
/// blue from 0 to 1 and are handed on unclamped.
///
/// As attributes the fields are named "ambient" (1 float), "diffuse", "specular", "emissive" (3 each),
/// "shininess" and "transparency" (1 each).
class KEL_MESH_EXPORT MaterialClassic : public Material {
public:
    /// Gives the material the next identifier of this process, counted from 0.
    MaterialClassic();
    explicit MaterialClassic(std::uint32_t identifier);
    ~MaterialClassic() override;

    const std::shared_ptr<MaterialDescription>& getDescription() const override;
    /// An empty range for a name that the description does not have.
    AttributeValues getAttribute(const std::string& name) const override;

    float getAmbient() const { return ambient; }
    glm::vec3 getDiffuse() const { return diffuse; }
    glm::vec3 getEmissive() const { return emissive; }
    glm::vec3 getSpecular() const { return specular; }
    float getShininess() const { return shininess; }
    /// 0 is opaque, 1 is invisible.
    float getTransparency() const { return transparency; }

    void setAmbient(float intensity) { ambient = intensity; }
    void setDiffuse(const glm::vec3& color) { diffuse = color; }
    void setEmissive(const glm::vec3& color) { emissive = color; }
    void setSpecular(const glm::vec3& color) { specular = color; }
    void setShininess(float value) { shininess = value; }
    void setTransparency(float value) { transparency = value; }

    /// Takes an attribute out of the description, so that a writer leaves it to the technique's default. The
    /// getters above keep answering.
    ///
    /// throws  std::invalid_argument for a name that is none of the six
    void removeAttribute(const std::string& name);

private:
    std::shared_ptr<MaterialDescription> description;
    float ambient = 0.2f;
    glm::vec3 diffuse{0.8f, 0.8f, 0.8f};
    glm::vec3 emissive{0.0f, 0.0f, 0.0f};
    glm::vec3 specular{0.0f, 0.0f, 0.0f};
    float shininess = 0.2f;
    float transparency = 0.0f;
};

} // namespace kel::material
