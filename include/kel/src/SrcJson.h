#pragma once

#include <kel/src/Export.h>

#include <string>
#include <string_view>
#include <vector>

namespace kel::src {

/// One member of a JSON object: its key, and the text of its value as it stands.
struct SrcMember {
    std::string key;
    std::string_view json;
};

/// The members of a JSON object's text, as SrcFile hands them out; a key that stands twice is given once,
/// with its last value. Empty for any text that is no object. The text must be valid JSON.
KELSRC_EXPORT std::vector<SrcMember> jsonMembers(std::string_view object);
/// The numbers of a list of numbers, or the one number; false when it is neither.
KELSRC_EXPORT bool jsonNumbers(std::string_view json, std::vector<double>& numbers);
/// The text of a JSON string; false when it is none.
KELSRC_EXPORT bool jsonString(std::string_view json, std::string& text);

} // namespace kel::src
