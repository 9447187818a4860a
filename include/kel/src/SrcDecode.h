#pragma once

#include <kel/src/Export.h>
#include <kel/src/SrcFile.h>
#include <kel/src/SrcFit.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kel::src {

/// All components of a view as floats, element after element: each is (code + decodeOffset) / decodeScale in
/// double precision, rounded to float. Floats that need no decoding pass bit for bit, NaN included.
///
/// target  count * components floats
/// throws  std::logic_error in a stream that does not hold the bytes now
KELSRC_EXPORT void decodeAttribute(const SrcFile& file, const SrcAttributeView& view, float* target);
KELSRC_EXPORT std::vector<float> decodeAttribute(const SrcFile& file, const SrcAttributeView& view);
/// The same without rounding, for what is still to be moved: by "fit", or by an origin.
KELSRC_EXPORT void decodeAttribute(const SrcFile& file, const SrcAttributeView& view, double* target);

/// All indices of a view, widened to 32 bits.
KELSRC_EXPORT void decodeIndices(const SrcFile& file, const SrcIndexView& view, std::uint32_t* target);
KELSRC_EXPORT std::vector<std::uint32_t> decodeIndices(const SrcFile& file, const SrcIndexView& view);

/// True for the interleaved form of position and normal: name "pos3us_nor2ub_oct", elements of 8 bytes, three
/// 16-bit position codes and two bytes of an octahedral normal (see kel/mesh/Transforms.h).
KELSRC_EXPORT bool isCombinedPositionNormal(const SrcAttribute& attribute, const SrcAttributeView& view);
/// The unit normals of such a view, three floats per element.
KELSRC_EXPORT std::vector<float> decodeCombinedNormals(const SrcFile& file, const SrcAttributeView& view);

struct DecodeOptions {
    /// Undo what was recorded as "fit" in the mesh's metadata, original = value * scale + offset, so that
    /// values are those of the model and not those of the preset's range. Only the result is rounded to
    /// float.
    bool applyFit = true;
    /// Leave out attributes whose elements were written for another mesh.
    bool ownAttributesOnly = true;
    /// Leave out the vertices that only stretch a mesh's box: the last two of an indexed mesh whose metadata
    /// have "bounds", where no primitive uses them and they lie at its lower corner and beyond the upper one.
    bool leaveOutAddedVertices = false;
    /// The most that one mesh may take. A mesh in a file is free to name one view many times.
    std::uint64_t memoryBytes = std::uint64_t(4) << 30;
};

struct DecodedAttribute {
    std::string name;
    std::size_t components = 0;
    std::vector<float> values;
};

/// One mesh in numbers; a combined attribute comes apart into "position" and "normal".
struct DecodedMesh {
    bool indexed = false;
    std::vector<std::uint32_t> indices;
    std::vector<DecodedAttribute> attributes;

    /// nullptr when the mesh has no such attribute.
    KELSRC_EXPORT const DecodedAttribute* find(std::string_view name) const;
};

/// throws  SrcError with LIMIT_EXCEEDED
KELSRC_EXPORT DecodedMesh decodeMesh(const SrcFile& file, const SrcMesh& mesh,
                                     const DecodeOptions& options = {});

/// The entry "fit" of a mesh's metadata, in the order of the attributes' names. Attributes whose entry is not
/// two lists of the same length, of 1 to 4 finite numbers, are left out.
KELSRC_EXPORT std::vector<SrcFit> fitOf(const SrcMesh& mesh);

/// The entry "origin" of a mesh's metadata: where the zero of its decoded positions lies in the model, whose
/// coordinates are position + origin in double precision. 0, 0, 0 without one, or when it is not three finite
/// numbers. decodeMesh leaves it out, because floats far from zero would lose what it keeps.
KELSRC_EXPORT std::array<double, 3> originOf(const SrcMesh& mesh);

/// A box in coordinates about a mesh's origin.
struct SrcBox {
    std::array<double, 3> min{}, max{};
};

/// Where a mesh lies about its origin: what its metadata tell as "bounds", else the bounding box of its
/// entry, with the "fit" of positions undone. Empty when it has neither.
KELSRC_EXPORT std::optional<SrcBox> boundsOf(const SrcMesh& mesh);

} // namespace kel::src
