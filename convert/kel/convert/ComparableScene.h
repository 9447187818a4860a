#pragma once

#include <kel/convert/Bounds.h>
#include <kel/convert/Export.h>
#include <kel/importer/Importer.h>
#include <kel/src/SrcReader.h>
#include <kel/src/SrcWriterInput.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kel::convert {

using Point = std::array<double, 3>;

/// An attribute other than "position", one element per vertex.
struct ComparableAttribute {
    std::size_t components = 0;
    std::vector<float> values;
    double loss = 0;        ///< how far its encoding may move a component; 0 for what is stored as floats
    double lossDegrees = 0; ///< how far it may turn a unit vector, for encodings of directions
};

/// A mesh made comparable: single primitives, decoded values, positions in doubles about the true origin.
struct KEL_CONVERT_EXPORT ComparableMesh {
    std::string name;
    std::string node; ///< names from the root, joined by "/"; that of the file itself left out
    std::size_t cornersPerPrimitive = 3; ///< 1 points, 2 lines, 3 triangles
    std::vector<Point> positions;
    double positionLoss = 0;     ///< the distance by which the encoding may move a position
    double positionRounding = 0; ///< the distance by which floats about `origin` may have moved it
    Point origin{0, 0, 0};       ///< what was added to the stored positions
    std::map<std::string, ComparableAttribute> attributes; ///< as many elements as there are positions
    /// Vertices of the primitives, all below the number of positions. Triangles and lines that use a vertex
    /// twice draw nothing; they are left out.
    std::vector<std::uint32_t> corners;
    std::size_t degenerate = 0; ///< how many were left out
    bool hasMaterial = false;
    std::map<std::string, std::vector<double>> material; ///< by parameter
    std::map<std::string, std::string> metadata;         ///< JSON texts
    std::set<std::string> filled;                        ///< attributes that preparation made up

    /// The attributes of up to three components that its encoding has a place for; none where it takes any.
    std::optional<std::set<std::string>> storable;
    bool storesTransparency = true;

    std::size_t primitives() const { return corners.size() / cornersPerPrimitive; }
    bool canStore(const std::string& attribute, std::size_t components) const {
        return !storable || (components <= 3 && storable->count(attribute) != 0);
    }
    GeometryCounts counts() const; ///< of one mesh
    Bounds bounds() const;         ///< of the vertices that are drawn
};

struct ComparableScene {
    std::vector<ComparableMesh> meshes;
    /// JSON texts of the file as a whole; none for what is no SRC file.
    std::optional<std::map<std::string, std::string>> metadata;
    /// How many textures the model names. No SRC file holds one, so an SRC file says nothing of them.
    std::optional<std::size_t> textures;
};

/// The meshes of a file, decoded, moved back from a preset's box and to their origin.
///
/// name    for messages
/// throws  ConvertError when an index is not below the number of vertices; kel::src::SrcError
KEL_CONVERT_EXPORT ComparableScene comparableScene(const kel::src::SrcFile& file, const std::string& name);
/// Expects indices below the number of vertices, as the importer gives.
KEL_CONVERT_EXPORT ComparableScene comparableScene(const kel::src::SrcWriterInput& input);

/// An SRC file, or any model that the importer reads.
///
/// throws  ConvertError
KEL_CONVERT_EXPORT ComparableScene openComparable(const std::string& path,
                                                  const kel::importer::ImportLimits& limits = {});

} // namespace kel::convert
