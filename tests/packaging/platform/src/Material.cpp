#include <kel/material/MaterialClassic.h>

namespace kel::material {

MaterialClassic::MaterialClassic() : MaterialClassic(0) {}
MaterialClassic::MaterialClassic(std::uint32_t identifier) : Material(identifier) {}
MaterialClassic::~MaterialClassic() {}
const std::shared_ptr<MaterialDescription>& MaterialClassic::getDescription() const {
    return description;
}
AttributeValues MaterialClassic::getAttribute(const std::string&) const {
    return {};
}
void MaterialClassic::removeAttribute(const std::string&) {}

} // namespace kel::material
