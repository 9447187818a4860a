#pragma once

#include <kel/convert/Export.h>

#include <cstdint>
#include <string>

namespace kel::convert {

/// Parts of sentences for people: "1 mesh", "3 meshes".
KEL_CONVERT_EXPORT std::string counted(std::uint64_t count, const char* singular, const char* plural);

/// A number for people, in up to `digits` digits: "0.00031", "12.5".
KEL_CONVERT_EXPORT std::string shortNumber(double value, int digits = 4);

} // namespace kel::convert
