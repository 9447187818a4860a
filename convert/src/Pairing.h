#pragma once

#include <kel/convert/ComparableScene.h>

#include <string>
#include <vector>

namespace kel::convert {

/// A mesh with all parts that it was cut into, in their order; mostly one.
struct WholeMesh {
    std::vector<const ComparableMesh*> parts;
    std::size_t primitives = 0;
    Bounds box;
    std::size_t position = 0; ///< of the first part in the scene

    const ComparableMesh& first() const { return *parts.front(); }
    /// For messages: its name, or else its node, or else its position.
    std::string label() const {
        return !first().name.empty()   ? first().name
               : !first().node.empty() ? first().node
                                       : '#' + std::to_string(position);
    }
};

/// The meshes of a scene with the parts that preparation cut them into joined again: neighbours of one name
/// and kind whose metadata count from the first part to the last.
std::vector<WholeMesh> wholeMeshes(const ComparableScene& scene);

/// Meshes of both sides that belong together: one of each, or several that are compared as one.
struct MeshPair {
    std::vector<const WholeMesh*> a, b;
};

struct Pairing {
    std::vector<MeshPair> pairs;
    std::vector<const WholeMesh*> onlyA, onlyB;
};

/// See compare().
Pairing pairMeshes(const std::vector<WholeMesh>& a, const std::vector<WholeMesh>& b);

/// The attributes that are compared: not what was made up for a writer, and not what the other side's
/// encoding has no place for.
std::set<std::string> comparedAttributes(const ComparableMesh& mesh, const ComparableMesh& other);

/// Several meshes of one kind as one, with the attributes that all of them have.
ComparableMesh joined(const std::vector<const ComparableMesh*>& meshes);

} // namespace kel::convert
