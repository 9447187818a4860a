#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace kel::convert {

/// Parts of sentences for people: "1 mesh", "3 meshes".
inline std::string counted(std::uint64_t count, const char* singular, const char* plural) {
    return std::to_string(count) + ' ' + (count == 1 ? singular : plural);
}

/// A number for people, in up to `digits` digits: "0.00031", "12.5".
inline std::string shortNumber(double value, int digits = 4) {
    char text[40];
    std::snprintf(text, sizeof text, "%.*g", digits, value);
    return text;
}

} // namespace kel::convert
