#pragma once

#include "../checks/Checks.h"
#include "../model/Model.h"

#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace kel::importer::detail {

/// A corner of a face: places among the file's lists.
struct ObjCorner {
    static constexpr std::uint32_t NONE = std::numeric_limits<std::uint32_t>::max();
    std::uint32_t position, texcoord, normal; ///< the last two may be NONE
};

/// A run of faces with one material below one object.
struct ObjMesh {
    std::string name;
    std::size_t object = 0;
    std::optional<std::size_t> material;
    std::size_t firstFace = 0, firstCorner = 0;
};

/// The materials of a file and of those beside it, each name once.
class ObjMaterials {
public:
    std::vector<ModelMaterial> list;
    std::set<std::string> textures;

    /// The material of a name; one with default values where no file has described it.
    std::size_t find(const std::string& name);
    /// Adds those of a material file.
    void read(const ModelSource& source, const Content& content);

private:
    std::map<std::string, std::size_t> places;
};

/// What a Wavefront file says, as it says it.
struct ObjFile {
    std::vector<double> positions;
    std::vector<float> colors;             ///< of each position, or empty
    std::vector<float> texcoords, normals; ///< two and three numbers each
    std::vector<bool> hasThird; ///< for each of the texture coordinates, whether it has a third that is not 0
    bool hasAlpha = false;
    /// Of faces, one behind another. A negative size is that of a line; points are faces of one corner.
    std::vector<std::int32_t> faceSizes;
    std::vector<ObjCorner> corners;
    std::vector<std::string> objects;
    std::vector<ObjMesh> meshes;
    ObjMaterials materials;
    std::set<std::string> missing; ///< material files that could not be opened
    std::size_t freeForms = 0;     ///< curves and surfaces
    std::size_t extraNumbers = 0;  ///< of positions, beyond a colour
};

/// Reads a file and the material files that it names. Not by tinyobjloader, which adds decimals up digit by
/// digit: of numbers with 7 to 17 digits it reads 30 to 48 of 100 as another double than the nearest, what is
/// no number as 0, and material names up to their first blank.
///
/// throws  ImportError
ObjFile readObjFile(const ModelSource& source, std::string_view text, ProgressReporter& progress);

} // namespace kel::importer::detail
