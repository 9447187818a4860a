#pragma once

#include "../ModelSource.h"

#include <simdjson.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kel::importer::detail {

/// A place in the document, as in "meshes[3].primitives[0]". It is spelt out only when something is refused
/// there: documents have many places.
class GltfPlace {
public:
    /// An element of a list that stands in the document or, with `above`, in that place.
    GltfPlace(std::string_view list, std::size_t index, const GltfPlace* above = nullptr)
        : above(above), name(list), index(index) {}
    /// A member of the object in that place.
    GltfPlace(const GltfPlace* above, std::string_view name) : above(above), name(name) {}

    std::string text() const;

private:
    const GltfPlace* above;
    std::string_view name;
    std::optional<std::size_t> index;
};

/// An object of the document, or none: then it has no members. A member of another type than it should be is
/// refused, with its place.
class GltfObject {
public:
    /// place  null for the document itself; outlives this
    GltfObject(const ModelSource& source, std::optional<simdjson::dom::element> value,
               const GltfPlace* place);

    /// Whether there is an object.
    explicit operator bool() const { return object.has_value(); }
    const GltfPlace* place() const { return where; }

    std::optional<simdjson::dom::element> find(std::string_view name) const;
    bool has(std::string_view name) const { return find(name).has_value(); }

    /// A whole number of at most 2^53, so that sums of a few of them do not wrap.
    std::optional<std::uint64_t> whole(std::string_view name) const;
    std::uint64_t whole(std::string_view name, std::uint64_t fallback) const {
        return whole(name).value_or(fallback);
    }
    /// A whole number below `size`; nothing where it is missing.
    std::optional<std::size_t> reference(std::string_view name, std::size_t size) const;
    /// The same, of a member that has to be there.
    std::size_t needed(std::string_view name, std::size_t size) const;
    double number(std::string_view name, double fallback) const;
    /// A list of exactly `count` numbers; false, and nothing written, where it is missing.
    template<typename Number>
    bool numbers(std::string_view name, Number* out, std::size_t count) const;
    bool flag(std::string_view name) const;
    /// "" where it is missing.
    std::string_view string(std::string_view name) const;

    /// The object of that name, or none.
    GltfObject child(std::string_view name, const GltfPlace& place) const;
    /// Calls visit(object) for each object in a list.
    template<typename Visit>
    void forEachObject(std::string_view list, const Visit& visit) const;
    /// Calls visit(element, place) for each element of a list.
    template<typename Visit>
    void forEach(std::string_view list, const Visit& visit) const;
    /// Calls visit(name, element) for each member.
    template<typename Visit>
    void forEachMember(const Visit& visit) const;
    std::size_t sizeOf(std::string_view list) const;

    /// Its "extras" as compact JSON, or "".
    std::string extras() const;

    /// Refuses the document for what is wrong in this place.
    [[noreturn]] void refuse(ImportCode code, const std::string& what) const;
    const ModelSource& model() const { return *source; }

private:
    const ModelSource* source;
    std::optional<simdjson::dom::object> object;
    const GltfPlace* where;

    [[noreturn]] void refuseMember(std::string_view name, const char* shouldBe) const;
    std::optional<simdjson::dom::array> array(std::string_view name) const;
};

/// Refuses the document for what is wrong in a place. Whoever wrote it has to write it again, unless it only is not
/// understood here.
[[noreturn]] void refuseGltf(const ModelSource& source, ImportCode code, const std::string& what,
                             const std::string& place);

/// A whole number from 0 to 2^53, or nothing.
std::optional<std::uint64_t> wholeNumber(simdjson::dom::element value);

/// Parses the JSON of a glTF.
///
/// text    when so many bytes more may be read behind it as the parser needs, it is not copied
/// notes   gets what was repaired
/// throws  ImportError INVALID_JSON, with the line
simdjson::dom::element parseGltf(const ModelSource& source, std::string_view text, std::size_t readableBehind,
                                 simdjson::dom::parser& parser, std::vector<std::string>& notes);

template<typename Number>
bool GltfObject::numbers(std::string_view name, Number* out, std::size_t count) const {
    const auto list = array(name);
    if (!list) return false;
    if (list->size() != count) refuseMember(name, "a list of as many numbers as it needs");
    for (const simdjson::dom::element element : *list) {
        double value = 0.0;
        if (element.get(value) != simdjson::SUCCESS) refuseMember(name, "a list of numbers");
        *out++ = static_cast<Number>(value);
    }
    return true;
}

template<typename Visit>
void GltfObject::forEach(std::string_view list, const Visit& visit) const {
    const auto elements = array(list);
    if (!elements) return;
    std::size_t index = 0;
    for (const simdjson::dom::element element : *elements)
        visit(element, GltfPlace(list, index++, where));
}

template<typename Visit>
void GltfObject::forEachObject(std::string_view list, const Visit& visit) const {
    forEach(list, [&](simdjson::dom::element element, const GltfPlace& place) {
        const GltfObject child(*source, element, &place);
        if (!child) child.refuse(ImportCode::INVALID_MODEL, "it is not an object");
        visit(child);
    });
}

template<typename Visit>
void GltfObject::forEachMember(const Visit& visit) const {
    if (!object) return;
    for (const simdjson::dom::key_value_pair member : *object)
        visit(member.key, member.value);
}

} // namespace kel::importer::detail
