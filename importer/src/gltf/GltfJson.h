#pragma once

#include <picojson.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

/// Looking things up in the JSON of a glTF, whatever stands there.
namespace kel::importer::detail {

/// A member of an object, or null when there is none or `value` is no object.
const picojson::value* member(const picojson::value* value, const char* name);
/// The elements of a list; none for anything else.
const picojson::array& arrayOf(const picojson::value* value);
/// The members of an object; none for anything else.
const picojson::object& objectOf(const picojson::value* value);
/// The text of a string, or "" for anything else.
std::string stringOf(const picojson::value* value);
/// A whole number from 0 on.
std::optional<std::uint64_t> wholeNumber(const picojson::value* value);

/// Calls `visit` for every object in a list of `object`.
template<typename Visit>
void forEachObject(picojson::object& object, const char* list, const Visit& visit) {
    const auto found = object.find(list);
    if (found == object.end() || !found->second.is<picojson::array>()) return;
    for (picojson::value& value : found->second.get<picojson::array>()) {
        if (value.is<picojson::object>()) visit(value.get<picojson::object>());
    }
}

/// The text of a URI with its percent signs resolved.
std::string percentDecoded(const std::string& uri);

/// A place in the document, as in "meshes[3].primitives[0]". It is spelt out only when something is refused
/// there: documents have many places.
class GltfPlace {
public:
    /// An element of a list that stands in the document or, with `above`, in that place.
    GltfPlace(const char* list, std::size_t index, const GltfPlace* above = nullptr)
        : above(above), name(list), index(index) {}
    /// A member of the object in that place.
    GltfPlace(const GltfPlace& above, const char* name) : above(&above), name(name) {}

    std::string text() const;

private:
    const GltfPlace* above;
    const char* name;
    std::optional<std::size_t> index;
};

} // namespace kel::importer::detail
