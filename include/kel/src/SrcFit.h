#pragma once

#include <string>
#include <vector>

namespace kel::src {

/// Offset and scale that the values of one attribute were fitted with, per component:
/// original = value * scale + offset.
struct SrcFit {
    std::string attribute;
    std::vector<double> offset; ///< as long as `scale`, 1 to 4 numbers
    std::vector<double> scale;
};

} // namespace kel::src
