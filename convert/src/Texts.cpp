#include <kel/convert/Texts.h>

#include <cstdio>

namespace kel::convert {

std::string counted(std::uint64_t count, const char* singular, const char* plural) {
    return std::to_string(count) + ' ' + (count == 1 ? singular : plural);
}

std::string shortNumber(double value, int digits) {
    char text[40];
    std::snprintf(text, sizeof text, "%.*g", digits, value);
    return text;
}

} // namespace kel::convert
