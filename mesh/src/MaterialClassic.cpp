#include <kel/material/MaterialClassic.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <stdexcept>
#include <type_traits>

namespace kel::material {

namespace {

// kel/src/format/MaterialParameters.h names them, too. This library stands alone and cannot include it; a test holds
// the two equal.
constexpr std::array<const char*, 6> ATTRIBUTES = {"ambient",  "diffuse",   "emissive",
                                                   "specular", "shininess", "transparency"};

static_assert(sizeof(glm::vec3) == 3 * sizeof(float), "a colour is read as three consecutive floats");

class ClassicDescription final : public MaterialDescription {
public:
    bool hasAttribute(const std::string& name) const override {
        return std::find(names.begin(), names.end(), name) != names.end();
    }

    std::vector<std::string> names{ATTRIBUTES.begin(), ATTRIBUTES.end()};
};

std::uint32_t nextIdentifier() {
    static std::atomic<std::uint32_t> next{0};
    return next++;
}

AttributeValues rangeOf(const float& value) {
    return {&value, &value + 1};
}
AttributeValues rangeOf(const glm::vec3& value) {
    return {&value.x, &value.x + 3};
}

} // namespace

MaterialClassic::MaterialClassic() : MaterialClassic(nextIdentifier()) {}

MaterialClassic::MaterialClassic(std::uint32_t identifier)
    : Material(identifier), description(std::make_shared<ClassicDescription>()) {}

MaterialClassic::~MaterialClassic() = default;

const std::shared_ptr<MaterialDescription>& MaterialClassic::getDescription() const {
    return description;
}

AttributeValues MaterialClassic::getAttribute(const std::string& name) const {
    if (!description->hasAttribute(name)) return {};
    if (name == "ambient") return rangeOf(ambient);
    if (name == "diffuse") return rangeOf(diffuse);
    if (name == "emissive") return rangeOf(emissive);
    if (name == "specular") return rangeOf(specular);
    if (name == "shininess") return rangeOf(shininess);
    return rangeOf(transparency);
}

void MaterialClassic::removeAttribute(const std::string& name) {
    if (std::find(ATTRIBUTES.begin(), ATTRIBUTES.end(), name) == ATTRIBUTES.end()) {
        throw std::invalid_argument("A classic material has no attribute \"" + name + "\".");
    }
    auto& names = static_cast<ClassicDescription&>(*description).names;
    names.erase(std::remove(names.begin(), names.end(), name), names.end());
}

} // namespace kel::material
