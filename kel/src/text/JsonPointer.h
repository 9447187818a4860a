#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace kel::src::text {

/// Appends a key as one step of a JSON Pointer (RFC 6901) without its leading slash: "~" is written "~0" and
/// "/" is written "~1".
inline void appendPointerStep(std::string& pointer, std::string_view key) {
    for (const char c : key) {
        if (c == '~') {
            pointer += "~0";
        } else if (c == '/') {
            pointer += "~1";
        } else {
            pointer += c;
        }
    }
}

/// The pointer that leads along `keys`, each behind a slash.
template<typename Keys>
std::string jsonPointer(const Keys& keys) {
    std::string pointer;
    for (const std::string_view key : keys) {
        pointer += '/';
        appendPointerStep(pointer, key);
    }
    return pointer;
}
inline std::string jsonPointer(std::initializer_list<std::string_view> keys) {
    return jsonPointer<std::initializer_list<std::string_view>>(keys);
}

} // namespace kel::src::text
