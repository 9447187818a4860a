#pragma once

#include "../checks/Checks.h"

#include <picojson.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kel::importer::detail {

// ---- Looking things up in the JSON of a glTF, whatever stands there -------------------------------------

/// A member of an object, or null when there is none or `value` is no object.
const picojson::value* member(const picojson::value* value, const char* name);
/// The elements of a list; none for anything else.
const picojson::array& arrayOf(const picojson::value* value);
/// An element of a list, or null when there is none or `value` is no list.
const picojson::value* elementOf(const picojson::value* value, std::size_t index);
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

// ---- The document ----------------------------------------------------------------------------------------

/// The JSON of a glTF 2, checked: indices, ranges and the tree of nodes may be trusted. It knows what the
/// reader leaves out or renames.
class GltfDocument {
public:
    /// Checks the tree of nodes. throws ImportError
    GltfDocument(const ModelSource& source, picojson::value root);

    const picojson::value& json() const { return root; }
    picojson::value& json() { return root; }
    /// Leaves what describes nodes, meshes and materials, and frees the rest: buffers may be most of a text,
    /// and accessors most of what a text becomes.
    void keepDescriptions();

    /// The nodes at the root of the scene that is imported.
    const std::vector<std::size_t>& sceneRoots() const { return roots; }
    const std::vector<std::size_t>& childrenOf(std::size_t node) const { return children[node]; }

    /// The element of an array of the document, for instance ("nodes", 3), or null.
    const picojson::value* find(const char* array, std::size_t index) const {
        return elementOf(member(&root, array), index);
    }
    /// The mesh, in `meshes`, that a node uses.
    std::optional<std::size_t> meshOf(std::size_t node) const;
    /// A primitive of a mesh, or null.
    const picojson::value* primitive(std::size_t mesh, std::size_t index) const {
        return elementOf(member(find("meshes", mesh), "primitives"), index);
    }

    /// The scene that is imported, or null.
    const picojson::value* scene() const;

private:
    picojson::value root;
    std::vector<std::size_t> roots;
    std::vector<std::vector<std::size_t>> children;
};

/// Reads and checks the document; null for glTF 1.
///
/// throws  ImportError
std::shared_ptr<const GltfDocument> readGltf(const ModelSource& source, const Content& content, bool binary,
                                             Findings& findings);

/// Walks through the document once, front to back of the references: buffers, views, accessors, primitives.
///
/// whole     the model; its binary chunk, which may be empty, lies at the offset
/// findings  gets what the reader will leave out
/// throws    ImportError
void checkGltf(const ModelSource& source, const picojson::value& document, const Content& whole,
               std::uint64_t binaryOffset, std::uint64_t binaryLength, Findings& findings);

/// The frame of a GLB file: a preamble of three 32-bit numbers (magic, version, length of the file), then
/// chunks of two numbers (length, kind) and content; the first is the JSON.
namespace glb {

constexpr std::size_t PREAMBLE_BYTES = 12;
constexpr std::size_t CHUNK_HEAD_BYTES = 8;
constexpr std::uint32_t MAGIC = 0x46546C67; // "glTF"
constexpr std::uint32_t VERSION = 2;
constexpr std::uint32_t JSON_CHUNK = 0x4E4F534A;
constexpr std::uint32_t BINARY_CHUNK = 0x004E4942;

/// The front of a file, up to the end of its JSON.
///
/// tail  how many bytes will follow
std::string front(std::string json, std::uint64_t tail);

} // namespace glb

} // namespace kel::importer::detail
