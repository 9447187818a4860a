#pragma once

#include <kel/src/Export.h>
#include <kel/src/SrcFit.h>

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The entries of a mesh's metadata that our tools give a meaning: names and JSON shapes, and the one place
/// that writes and reads them. Reading takes any JSON text and believes nothing: what is not of the shape is
/// no entry. A value is decoded first, then `fit` is undone, then `origin` is added to positions.
namespace kel::src::format {

namespace metadata {
// What both writers add.
constexpr std::string_view NUM_POINTS = "numOriginalPoints";
constexpr std::string_view NUM_LINES = "numOriginalLines";
constexpr std::string_view NUM_TRIANGLES = "numOriginalTriangles";
constexpr std::string_view NUM_VERTICES = "numOriginalVertices";
constexpr std::string_view SURFACE_AREA = "surfaceArea";
// What the importer tells of the model.
constexpr std::string_view NAME = "name";     ///< a string
constexpr std::string_view NODE = "node";     ///< a string: names from the root, as in a JSON Pointer
constexpr std::string_view SOURCE = "source"; ///< an object, see Source
constexpr std::string_view EXTRAS = "extras";
constexpr std::string_view MESH_EXTRAS = "meshExtras";
constexpr std::string_view MATERIAL_EXTRAS = "materialExtras";
constexpr std::string_view SCENE_EXTRAS = "sceneExtras";
constexpr std::string_view ORIGIN = "origin"; ///< a list of three numbers, see readOrigin()
// What preparation did.
constexpr std::string_view BOUNDS = "bounds";       ///< a list of six numbers, see readBounds()
constexpr std::string_view FIT = "fit";             ///< an object, see Fit
constexpr std::string_view TRANSFORM = "transform"; ///< an object, see Transform
constexpr std::string_view FILLED = "filled";       ///< a list of attribute names
constexpr std::string_view PART = "part";           ///< a whole number below `parts`
constexpr std::string_view PARTS = "parts";         ///< a whole number, 2 or more
} // namespace metadata

using Fit = kel::src::SrcFit;

/// `{"position":{"offset":[..],"scale":[..]},...}`, in the order given. Numbers read back as they were.
KELSRC_EXPORT std::string fitText(const std::vector<Fit>& fits);
/// In the order of their names. Attributes whose entry is not two lists of the same length, of 1 to 4 finite
/// numbers, are left out.
KELSRC_EXPORT std::vector<Fit> readFit(std::string_view json);

/// What was done to positions: new = matrix * old. The matrix stands row by row, with the scale in it.
struct Transform {
    char from = 'y'; ///< the axis that pointed up: 'x', 'y' or 'z'
    char to = 'y';
    double scale = 1.0;
    std::array<double, 9> matrix{1, 0, 0, 0, 1, 0, 0, 0, 1};
};

/// `{"from":"y","matrix":[..],"scale":1,"to":"z"}`
KELSRC_EXPORT std::string transformText(const Transform& transform);
KELSRC_EXPORT std::optional<Transform> readTransform(std::string_view json);

/// Where a mesh comes from, and what its coordinates mean.
struct Source {
    std::string file;           ///< without folder
    std::string format;         ///< may be empty
    std::optional<double> unit; ///< metres per unit of length, finite and above 0
    std::string upAxis;         ///< "X", "Y", "Z", or with a minus before; empty where not stated
};

/// `{"file":"a.glb","format":"glTF","unit":1,"upAxis":"Y"}`; what is not stated is left out.
///
/// unitText  the unit as a JSON number, where it is not to be written in the header's form; else empty
KELSRC_EXPORT std::string sourceText(const Source& source, std::string_view unitText = {});
KELSRC_EXPORT std::optional<Source> readSource(std::string_view json);

/// Where the zero of a mesh's positions lies: position in the model = position + origin, in double precision.
using Origin = std::array<double, 3>;

/// `[500000,5400000,0]`: no more digits than it takes to give the same doubles back.
KELSRC_EXPORT std::string originText(const Origin& origin);
/// Empty for all but a list of three finite numbers.
KELSRC_EXPORT std::optional<Origin> readOrigin(std::string_view json);

/// Where a mesh lies about its origin, when its bounding box was stretched: both corners, the lower first.
using Bounds = std::array<std::array<double, 3>, 2>;

/// `[0,0,0,4,2.5,3]`, in the form of an origin.
KELSRC_EXPORT std::string boundsText(const Bounds& bounds);
/// Empty for all but a list of six finite numbers of which none of the first three is above its counterpart.
KELSRC_EXPORT std::optional<Bounds> readBounds(std::string_view json);

/// A list of names, `["color","normal"]`.
KELSRC_EXPORT std::string namesText(const std::vector<std::string>& names);

/// The content of "name" for people: that of a string, another text as it is.
KELSRC_EXPORT std::string readName(std::string_view json);

} // namespace kel::src::format
