#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace kel::convert {

/// Parts of sentences for people: "1 mesh", "3 meshes".
inline std::string counted(std::uint64_t count, const char* singular, const char* plural) {
    return std::to_string(count) + ' ' + (count == 1 ? singular : plural);
}

/// The first `shown` parts, and how many more there are: "a, b and 3 more".
inline std::string listed(const std::vector<std::string>& parts, std::size_t shown,
                          const char* separator = ", ") {
    std::string text;
    for (std::size_t i = 0; i < std::min(parts.size(), shown); ++i)
        text += (i == 0 ? "" : separator) + parts[i];
    if (parts.size() > shown) text += " and " + std::to_string(parts.size() - shown) + " more";
    return text;
}

/// A number for people, in up to `digits` digits: "0.00031", "12.5".
inline std::string shortNumber(double value, int digits = 4) {
    char text[40];
    std::snprintf(text, sizeof text, "%.*g", digits, value);
    return text;
}

} // namespace kel::convert
