#pragma once

#include "Checks.h"

#include <picojson.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kel::importer::detail {

/// The JSON of a glTF 2, checked: indices, ranges and the tree of nodes may be trusted. It knows what the
/// reader leaves out or renames.
class GltfDocument {
public:
    GltfDocument(const Source& source, picojson::value root);

    const picojson::value& json() const { return root; }

    /// Moves the list of buffers out, which may hold all data of the model as text.
    picojson::value takeBuffers();

    /// The nodes at the root of the scene that is imported.
    const std::vector<std::size_t>& sceneRoots() const { return roots; }
    const std::vector<std::size_t>& childrenOf(std::size_t node) const { return children[node]; }

    /// The element of an array of the document, for instance ("nodes", 3), or null.
    const picojson::value* find(const char* array, std::size_t index) const;
    /// The mesh, in `meshes`, that a node uses.
    std::optional<std::size_t> meshOf(std::size_t node) const;
    /// A primitive of a mesh, or null.
    const picojson::value* primitive(std::size_t mesh, std::size_t index) const;

    /// The scene that is imported, or null.
    const picojson::value* scene() const;

private:
    picojson::value root;
    std::vector<std::size_t> roots;
    std::vector<std::vector<std::size_t>> children;
};

/// A member of an object, or null when there is none or `value` is no object.
const picojson::value* member(const picojson::value* value, const char* name);
/// The text of a string, or "" for anything else.
std::string textOf(const picojson::value* value);
/// A whole number from 0 on.
std::optional<std::uint64_t> wholeNumber(const picojson::value* value);

/// The text of a URI with its percent signs resolved.
std::string percentDecoded(const std::string& uri);

/// Reads and checks the document; null for glTF 1.
///
/// throws  ImportError
std::shared_ptr<const GltfDocument> readGltf(const Source& source, const Content& content, bool binary,
                                             Findings& findings);

} // namespace kel::importer::detail
