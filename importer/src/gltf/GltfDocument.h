#pragma once

#include "../ModelSource.h"
#include "GltfJson.h"

#include <picojson.h>

#include <cstddef>
#include <optional>
#include <vector>

namespace kel::importer::detail {

/// The JSON of a glTF 2, checked: indices, ranges and the tree of nodes may be trusted. It knows what the
/// reader leaves out or renames.
class GltfDocument {
public:
    /// Checks the tree of nodes.
    ///
    /// throws  ImportError
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

} // namespace kel::importer::detail
