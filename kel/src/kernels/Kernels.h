#pragma once

#include <kel/src/Export.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

/// The hot loops. Each has a plain form, which defines the result, and fast ones that give the same bytes. Floats
/// in memory need no alignment, except those of extendBounds. What a loop returns as KernelSet is the set that ran.
namespace kel::src::detail {

/// Which of the equal implementations of a hot loop runs.
enum class KernelSet {
    PLAIN, ///< portable loops, on any processor
    AVX2   ///< x86-64 with AVX2; no fused multiply-add is used
};

/// The set in use: the best one that this processor runs, unless forced.
KELSRC_EXPORT KernelSet activeKernels();
KELSRC_EXPORT KernelSet bestKernels();

/// Forces a set for the whole process, for tests and measurements; bestKernels() is always possible.
///
/// returns  false, and changes nothing, when this processor cannot run the set
KELSRC_EXPORT bool forceKernels(KernelSet set);

/// The rule of bounds for one position: a coordinate replaces a bound unless the bound is strictly better. So
/// a NaN replaces a bound, and the next number replaces the NaN again. All three arguments are three floats.
inline void extendBoundsByOne(const float* position, float* min, float* max) {
    for (int axis = 0; axis < 3; ++axis) {
        min[axis] = min[axis] < position[axis] ? min[axis] : position[axis];
        max[axis] = max[axis] > position[axis] ? max[axis] : position[axis];
    }
}

/// The same for `count` packed positions, in order; min and max hold the bounds so far. The fast loop hands over to
/// the plain one when it meets a NaN, whose place in the order matters.
KELSRC_EXPORT KernelSet extendBounds(const float* positions, std::size_t count, float* min, float* max);

/// The code of one value in the range min .. min + extent, before it is cut to its width, all in single
/// precision. There is no rounding, so a value on a code step may land one code lower. An extent that is not
/// greater than 0 and a NaN give code 0.
inline std::int64_t quantizeValue(float value, std::uint32_t maxCode, float min, float extent) {
    if (!(extent > 0.0f)) return 0;
    float t = (value - min) / extent;
    if (t > 1.0f) {
        t = 1.0f;
    } else if (t < 0.0f) {
        t = 0.0f;
    }
    const float q = static_cast<float>(maxCode) * t;
    return std::isnan(q) ? 0 : static_cast<std::int64_t>(q);
}

/// The low bytes of a code, little-endian.
inline void storeCode(std::int64_t code, std::size_t bytes, unsigned char* out) {
    for (std::size_t i = 0; i < bytes; ++i)
        out[i] = static_cast<unsigned char>(code >> (8 * i));
}

/// How interleaved elements become codes.
struct QuantizationLayout {
    std::size_t components;
    std::size_t slotBytes; ///< 1, 2 or 3 per component: the low bytes of each code, little-endian
    std::size_t bytesPerElement;
    std::uint32_t maxCode;
    const float* min;    ///< per component
    const float* extent; ///< per component
};

/// Quantizes `count` interleaved elements of floats. Bytes of an element behind its codes are left alone.
KELSRC_EXPORT KernelSet quantizeElements(const unsigned char* floats, std::size_t count,
                                         const QuantizationLayout& layout, unsigned char* out);

/// Codes of kel::mesh::quantizeVec3<float, unsigned short>(min, max), 6 bytes per vertex.
///
/// positions  count packed positions of three floats
/// codes      each vertex's codes begin `stride` bytes after those of the vertex before
/// stride     6, or 8: then the two bytes behind each vertex's codes are set to zero
KELSRC_EXPORT KernelSet quantizePositions(const unsigned char* positions, std::size_t count,
                                          const float min[3], const float max[3], unsigned char* codes,
                                          std::size_t stride);

#if KELSRC_BUNDLED_MESH
/// Codes of kel::mesh::encodeOctahedralNormal, the encoder of this tree's own mesh library, 2 bytes per
/// vertex. Another mesh library may have another encoder, and then only its own may run.
///
/// normals  count packed normals of three floats
/// codes    each vertex's codes begin `stride` bytes after those of the vertex before; what lies between is
///          left alone
KELSRC_EXPORT KernelSet encodeNormals(const unsigned char* normals, std::size_t count, unsigned char* codes,
                                      std::size_t stride);
#endif

/// The sum of triangles' areas in single precision, in the order in which they come. Areas that are not normal
/// floats (0, subnormal, infinite, NaN) add nothing.
class AreaSum {
public:
    void add(float area) {
        const float magnitude = std::fabs(area);
        if (magnitude >= std::numeric_limits<float>::min() &&
            magnitude <= std::numeric_limits<float>::max()) {
            total += area;
        }
    }
    float get() const { return total; }

private:
    float total = 0.0f;
};

/// Positions of three floats in memory, `stride` bytes apart.
struct PositionsInMemory {
    const unsigned char* first;
    std::size_t stride;
    std::size_t count;
};

/// Adds the areas of the triangles of a list, one after the other, as utils::computeTriangleArea gives them.
/// Index is std::uint16_t or std::uint32_t.
///
/// indices  3 * triangles indices
/// returns  how many triangles it has added: it stops before the first with an index past the positions
template<typename Index>
KELSRC_EXPORT std::size_t addTriangleAreas(const PositionsInMemory& positions, const Index* indices,
                                           std::size_t triangles, AreaSum& sum);

} // namespace kel::src::detail
