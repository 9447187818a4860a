#pragma once

#include <src/Export.h>
#include <src/Types.h>

#include <memory>
#include <string>
#include <vector>

namespace src::builder {

/// Assembles one material of a technique. After build() the builder may go on: later changes make another
/// material and leave the one built alone.
class SRC_EXPORT MaterialBuilder {
public:
    /// throws  std::invalid_argument for an empty technique
    static std::shared_ptr<MaterialBuilder> create(const std::string& name,
                                                   std::shared_ptr<Technique> technique);

    MaterialBuilder(const MaterialBuilder&) = delete;
    MaterialBuilder& operator=(const MaterialBuilder&) = delete;
    ~MaterialBuilder();

    /// Sets a parameter's values, or replaces them. Parameters that are not set have the technique's default.
    void addParameterValue(std::string name, const std::vector<double>& value);

    std::shared_ptr<Material> build();

private:
    explicit MaterialBuilder(std::shared_ptr<Material> material);

    std::shared_ptr<Material> material;
    bool handedOut = false;
};

} // namespace src::builder
