#pragma once

#include <src/Export.h>
#include <src/Types.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace src {

/// The parameters that materials of one kind have, with their defaults.
class SRC_EXPORT Technique {
public:
    using Parameters = std::map<std::string, std::vector<double>>;

    Technique(std::string id, Parameters parameters) : id(std::move(id)), parameters(std::move(parameters)) {}

    /// The name under which the technique stands in the file.
    const std::string& getId() const { return id; }
    /// Defaults by parameter name: one number for a scalar, three for a colour.
    const Parameters& getParameters() const { return parameters; }

private:
    std::string id;
    Parameters parameters;
};

} // namespace src
