#pragma once

#include <kel/mesh/Export.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kel::material {

/// Names the attributes that a material has.
class KEL_MESH_EXPORT MaterialDescription {
public:
    virtual ~MaterialDescription() = default;
    virtual bool hasAttribute(const std::string& name) const = 0;
};

/// A contiguous range of floats owned by the material that returned it.
struct AttributeValues {
    const float* first = nullptr;
    const float* last = nullptr;

    const float* begin() const { return first; }
    const float* end() const { return last; }
    std::size_t size() const { return static_cast<std::size_t>(last - first); }
};

/// Base of all materials.
class KEL_MESH_EXPORT Material {
public:
    explicit Material(std::uint32_t identifier) : identifier(identifier) {}
    virtual ~Material() = default;

    /// First data member on purpose: writers name materials by it and read it in this place.
    std::uint32_t identifier;

    virtual const std::shared_ptr<MaterialDescription>& getDescription() const = 0;
    /// The values of an attribute that the description has; ask it first. Valid while the material lives and
    /// is not changed.
    virtual AttributeValues getAttribute(const std::string& name) const = 0;
};

} // namespace kel::material
