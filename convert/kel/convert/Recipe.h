#pragma once

#include <kel/convert/Export.h>
#include <kel/importer/Importer.h>
#include <kel/prepare/Target.h>
#include <kel/prepare/Transform.h>

#include <optional>
#include <string>
#include <string_view>

namespace kel::convert {

/// Everything that is said about the content of a file: equal sources and equal recipes give equal bytes.
/// Where the file goes, whether it is verified and what is reported are options of the call, see Convert.h.
/// Members have the names of the command's options.
struct Recipe {
    /// A mode of the public writer or a preset of the container writer; none chooses the smallest mode of the
    /// public writer that leaves no attribute out and stays within maxError.
    std::optional<kel::prepare::Target> target;
    /// Without a target: the largest distance between a position and what a reader decodes, in units of the
    /// output, finite and not negative. None means 1/16384 of the diagonal of the scene's bounds.
    std::optional<double> maxError;

    bool fit = true;            ///< move attributes into the box of a preset that quantizes
    bool allowClamping = false; ///< without fit: write although components would be clamped
    bool onlyTriangles = false; ///< leave out what is not triangles
    bool optimize = false;      ///< reorder triangles and vertices for GPUs
    bool seamless = false;      ///< keep positions that meshes share the same in 16 bits; no effect on floats
    kel::importer::BadGeometry onBadGeometry = kel::importer::BadGeometry::FAIL;
    std::optional<std::string>
        scene; ///< of a glTF, by name or by number from 0 on; none takes the default one

    /// Where the zero of the positions lies, in the model's coordinates: before units, axes and scale are changed.
    kel::importer::Origin origin;

    double scale = 1.0;             ///< factor for positions, after the change of unit; finite, above 0
    std::optional<double> fromUnit; ///< metres per unit; overrules the model. Has no effect without toUnit
    std::optional<double> toUnit;   ///< metres per unit of the output; finite, above 0, as fromUnit
    std::optional<kel::prepare::UpAxis> fromUp; ///< overrules the model. Has no effect without toUp
    std::optional<kel::prepare::UpAxis> toUp;   ///< turn the model so that this axis points up
};

KEL_CONVERT_EXPORT bool operator==(const Recipe& a, const Recipe& b);
inline bool operator!=(const Recipe& a, const Recipe& b) {
    return !(a == b);
}

/// The recipe as a JSON object, members in the order of their names. Members with a default are written, too,
/// so that a recipe kept for long means the same when a default changes; those without a value are left out.
/// Numbers read back as the same doubles.
///
///     {"allowClamping":false,"fit":true,"onBadGeometry":"fail","onlyTriangles":false,"optimize":false,
///      "origin":"auto","scale":1,"seamless":false,"target":"auto",
///      "toUp":"z"}
///
/// "target" is "auto" or the name of a mode or preset, "origin" is "auto", "keep" or a list of three numbers, an axis
/// is "x", "y" or "z".
///
/// throws  std::overflow_error when a number is not finite
KEL_CONVERT_EXPORT std::string toJson(const Recipe& recipe);

/// The recipe that a JSON object tells; members that are not there have their defaults.
///
/// throws  ConvertError with a code RECIPE_..., naming the member: one that is not known, has the wrong type
///         or is out of range
KEL_CONVERT_EXPORT Recipe readRecipe(std::string_view json);

/// throws  ConvertError with RECIPE_OUT_OF_RANGE, naming the member, when a number is out of range
KEL_CONVERT_EXPORT void checkRecipe(const Recipe& recipe);

} // namespace kel::convert
