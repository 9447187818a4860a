#include <kel/src/MeshUtils.h>

#include <kel/mesh/AttributeNames.h>
#include <kel/src/PackedAccess.h>

#include <logging/Logger.h>
#include <utils/TriangleArea.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace kel::src::detail {

namespace {

constexpr const char* SOURCE_FILE = "kel/src/MeshUtils";
// What the log names as the function: fixed texts, so that filters in the field keep matching whatever
// compiler built the library.
constexpr const char* STATISTICS_FUNCTION =
    "void kel::src::detail::addStatisticsMetaData(kel::mesh::MeshPtr, kel::src::MetaDataPtr)";
constexpr const char* AREA_FUNCTION = "float kel::src::detail::computeTriangleSurfaceArea(const MeshPtr&)";

// The stream expression behind it is evaluated only when the record is opened.
#define KELSRC_WARN(function)                                                                                \
    BOOST_LOG_SEV(*logging::Logger::getBoostLogger(__LINE__, function, SOURCE_FILE),                         \
                  boost::log::trivial::warning)

// ---- Bounds ---------------------------------------------------------------------------------------------

void extendBoundsByOne(const float* v, float* min, float* max) {
    for (int axis = 0; axis < 3; ++axis) {
        min[axis] = min[axis] < v[axis] ? min[axis] : v[axis];
        max[axis] = max[axis] > v[axis] ? max[axis] : v[axis];
    }
}

void extendBoundsPlain(const float* positions, std::size_t count, float* min, float* max) {
    for (std::size_t i = 0; i < count; ++i)
        extendBoundsByOne(positions + 3 * i, min, max);
}

#if defined(__x86_64__)

/// The sign of a zero bound is that of the last zero on its axis, as later elements replace equal ones.
void settleZeroSign(const float* positions, std::size_t count, int axis, float& bound) {
    if (bound != 0.0f) return;
    for (std::size_t i = count; i-- > 0;) {
        if (positions[3 * i + axis] == 0.0f) {
            bound = positions[3 * i + axis];
            return;
        }
    }
}

__attribute__((target("avx2"))) bool extendBoundsAvx2(const float* positions, std::size_t count, float* min,
                                                      float* max) {
    // Eight positions are three registers whose lanes run through the axes: xyzxyzxy, zxyzxyzx, yzxyzxyz.
    alignas(32) float lanes[24];
    __m256 low[3], high[3];
    for (int lane = 0; lane < 24; ++lane)
        lanes[lane] = min[lane % 3];
    for (int r = 0; r < 3; ++r)
        low[r] = _mm256_load_ps(lanes + 8 * r);
    for (int lane = 0; lane < 24; ++lane)
        lanes[lane] = max[lane % 3];
    for (int r = 0; r < 3; ++r)
        high[r] = _mm256_load_ps(lanes + 8 * r);

    __m256 unordered = _mm256_setzero_ps();
    const std::size_t blocks = count / 8;
    for (std::size_t block = 0; block < blocks; ++block) {
        for (int r = 0; r < 3; ++r) {
            const __m256 v = _mm256_loadu_ps(positions + 24 * block + 8 * r);
            // vminps and vmaxps are exactly the rule: a < b ? a : b and a > b ? a : b.
            low[r] = _mm256_min_ps(low[r], v);
            high[r] = _mm256_max_ps(high[r], v);
            unordered = _mm256_or_ps(unordered, _mm256_cmp_ps(v, v, _CMP_UNORD_Q));
        }
    }
    if (_mm256_movemask_ps(unordered) != 0) return false;

    float lowest[3] = {min[0], min[1], min[2]};
    float highest[3] = {max[0], max[1], max[2]};
    for (int r = 0; r < 3; ++r)
        _mm256_store_ps(lanes + 8 * r, low[r]);
    for (int lane = 0; lane < 24; ++lane)
        lowest[lane % 3] = std::min(lowest[lane % 3], lanes[lane]);
    for (int r = 0; r < 3; ++r)
        _mm256_store_ps(lanes + 8 * r, high[r]);
    for (int lane = 0; lane < 24; ++lane)
        highest[lane % 3] = std::max(highest[lane % 3], lanes[lane]);
    for (int axis = 0; axis < 3; ++axis) {
        settleZeroSign(positions, 8 * blocks, axis, lowest[axis]);
        settleZeroSign(positions, 8 * blocks, axis, highest[axis]);
    }
    extendBoundsPlain(positions + 24 * blocks, count % 8, lowest, highest);
    std::copy(lowest, lowest + 3, min);
    std::copy(highest, highest + 3, max);
    return true;
}

#endif

} // namespace

KernelSet extendBounds(const float* positions, std::size_t count, float* min, float* max) {
#if defined(__x86_64__)
    // A NaN among the bounds so far orders like a NaN among the positions: only the plain loop keeps its
    // place.
    const bool ordered = std::none_of(min, min + 3, [](float v) { return std::isnan(v); }) &&
                         std::none_of(max, max + 3, [](float v) { return std::isnan(v); });
    if (activeKernels() == KernelSet::AVX2 && ordered && extendBoundsAvx2(positions, count, min, max)) {
        return KernelSet::AVX2;
    }
#endif
    extendBoundsPlain(positions, count, min, max);
    return KernelSet::PLAIN;
}

bool isAttributeVec3f(const std::shared_ptr<kel::mesh::AttributeBuffer>& buffer) {
    if (!buffer || buffer->getComponentType() != kel::mesh::FLOAT) return false;
    return buffer->getComponentCountPerElement() == 3;
}

void computeBoundingBoxMinMax(std::shared_ptr<kel::mesh::AttributeBuffer> buffer, glm::vec3& min,
                              glm::vec3& max) {
    constexpr float LARGEST = std::numeric_limits<float>::max(); // not infinity, on purpose
    min = glm::vec3(LARGEST, LARGEST, LARGEST);
    max = glm::vec3(-LARGEST, -LARGEST, -LARGEST);
    const std::size_t count = buffer->getElementCount();

    const ElementSpan span = elementsInMemory(*buffer, count);
    if (span.isPacked(3 * sizeof(float)) && buffer->getElementSizeInBytes() == 3 * sizeof(float) &&
        reinterpret_cast<std::uintptr_t>(span.first) % alignof(float) == 0) {
        extendBounds(reinterpret_cast<const float*>(span.first), count, &min.x, &max.x);
        return;
    }

    // getElement writes whole elements, which are wider than a position when the caller passed another
    // attribute.
    const std::size_t components = std::max<std::size_t>(3, buffer->getComponentCountPerElement());
    std::vector<float> element(components);
    for (std::size_t i = 0; i < count; ++i) {
        std::fill_n(element.begin(), 3, 0.0f);
        buffer->getElement(i, element.data());
        extendBoundsByOne(element.data(), &min.x, &max.x);
    }
}

void computeBoundingBoxCenterSize(std::shared_ptr<kel::mesh::AttributeBuffer> buffer, glm::vec3& center,
                                  glm::vec3& size) {
    if (buffer->getElementCount() == 0) {
        center =
            glm::vec3(-0.1f, -0.1f, -0.1f); // off the origin on purpose: readers know the empty mesh by it
        size = glm::vec3(0.1f, 0.1f, 0.1f);
        return;
    }
    glm::vec3 min, max;
    computeBoundingBoxMinMax(buffer, min, max);
    for (int axis = 0; axis < 3; ++axis) {
        size[axis] = max[axis] - min[axis];
        center[axis] = (max[axis] + min[axis]) * 0.5f;
    }
    const float diagonal = std::sqrt((size.y * size.y + size.x * size.x) + size.z * size.z);
    const float smallest = diagonal > 1e-8f ? diagonal * 1e-8f : 1e-16f;
    for (int axis = 0; axis < 3; ++axis) {
        if (smallest >= size[axis]) size[axis] = smallest;
    }
}

// ---- Statistics -----------------------------------------------------------------------------------------

namespace {

class AreaSum {
public:
    void add(const glm::vec3& c0, const glm::vec3& c1, const glm::vec3& c2) {
        add(utils::computeTriangleArea(c0, c1, c2));
    }
    void add(float area) {
        const float magnitude = std::fabs(area);
        if (magnitude >= std::numeric_limits<float>::min() &&
            magnitude <= std::numeric_limits<float>::max()) {
            sum += area;
        }
    }
    float sum = 0.0f;
};

#if defined(__x86_64__) && KELSRC_BUNDLED_MESH
#define KELSRC_FAST_AREAS 1

struct Lanes3 {
    __m256 x, y, z;
};

/// One corner of eight triangles as x, y and z lanes. Reads 16 bytes per corner.
template<typename Index>
__attribute__((target("avx2"))) Lanes3 loadCorners(ElementSpan span, const Index* indices) {
    __m256 corner[4];
    for (int t = 0; t < 4; ++t) {
        const auto* low = reinterpret_cast<const float*>(span.first + indices[3 * t] * span.stride);
        const auto* high = reinterpret_cast<const float*>(span.first + indices[3 * (t + 4)] * span.stride);
        corner[t] = _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(low)), _mm_loadu_ps(high), 1);
    }
    const __m256 xy01 = _mm256_unpacklo_ps(corner[0], corner[1]),
                 xy23 = _mm256_unpacklo_ps(corner[2], corner[3]);
    const __m256 zw01 = _mm256_unpackhi_ps(corner[0], corner[1]),
                 zw23 = _mm256_unpackhi_ps(corner[2], corner[3]);
    return {_mm256_shuffle_ps(xy01, xy23, _MM_SHUFFLE(1, 0, 1, 0)),
            _mm256_shuffle_ps(xy01, xy23, _MM_SHUFFLE(3, 2, 3, 2)),
            _mm256_shuffle_ps(zw01, zw23, _MM_SHUFFLE(1, 0, 1, 0))};
}

/// Areas of triangles of a list, eight at a time through the same operations as utils::computeTriangleArea;
/// they are added one by one, in order. Returns how many triangles it has done: it stops before one with a
/// corner that is not followed by four bytes more, or is none.
template<typename Index>
__attribute__((target("avx2"))) std::size_t
addAreasAvx2(ElementSpan span, std::size_t count, const Index* indices, std::size_t triangles, AreaSum& sum) {
    const auto minus = [](const Lanes3& a, const Lanes3& b) __attribute__((target("avx2"))) {
        return Lanes3{_mm256_sub_ps(a.x, b.x), _mm256_sub_ps(a.y, b.y), _mm256_sub_ps(a.z, b.z)};
    };
    std::size_t done = 0;
    for (; done + 8 <= triangles; done += 8) {
        const Index* at = indices + 3 * done;
        std::size_t largest = 0;
        for (int i = 0; i < 24; ++i)
            largest = std::max<std::size_t>(largest, at[i]);
        if (largest + 1 >= count) break;
        const Lanes3 c0 = loadCorners(span, at);
        const Lanes3 u = minus(loadCorners(span, at + 1), c0), v = minus(loadCorners(span, at + 2), c0);
        const __m256 x = _mm256_sub_ps(_mm256_mul_ps(u.y, v.z), _mm256_mul_ps(v.y, u.z));
        const __m256 y = _mm256_sub_ps(_mm256_mul_ps(u.z, v.x), _mm256_mul_ps(v.z, u.x));
        const __m256 z = _mm256_sub_ps(_mm256_mul_ps(u.x, v.y), _mm256_mul_ps(v.x, u.y));
        const __m256 dot =
            _mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(x, x), _mm256_mul_ps(y, y)), _mm256_mul_ps(z, z));
        alignas(32) float areas[8];
        _mm256_store_ps(areas, _mm256_mul_ps(_mm256_set1_ps(0.5f), _mm256_sqrt_ps(dot)));
        for (const float area : areas)
            sum.add(area);
    }
    return done;
}

#endif

/// Reads corners through the interface.
class InterfaceCorners {
public:
    InterfaceCorners(const kel::mesh::AttributeBuffer& positions, const kel::mesh::IndexBuffer& indices)
        : positions(positions), indices(indices) {}

    glm::vec3 operator()(std::size_t k) const {
        glm::vec3 corner;
        positions.getElement(indices.getIndex(k), &corner);
        return corner;
    }
    std::size_t addAreas(std::size_t, std::size_t, AreaSum&) const { return 0; }

private:
    const kel::mesh::AttributeBuffer& positions;
    const kel::mesh::IndexBuffer& indices;
};

/// Reads corners straight from memory; an index past the positions gets the buffer's own answer.
template<typename Index>
class MemoryCorners {
public:
    MemoryCorners(const kel::mesh::AttributeBuffer& positions, ElementSpan span, std::size_t count,
                  const Index* indices)
        : positions(positions), span(span), count(count), indices(indices) {}

    glm::vec3 operator()(std::size_t k) const {
        const std::size_t index = indices[k];
        glm::vec3 corner;
        if (index < count) {
            std::memcpy(&corner, span.first + index * span.stride, sizeof corner);
        } else {
            positions.getElement(index, &corner);
        }
        return corner;
    }

    /// Adds the areas of up to `triangles` triangles of a list from index position k on in bulk; returns how
    /// many.
    std::size_t addAreas(std::size_t k, std::size_t triangles, AreaSum& sum) const {
#if KELSRC_FAST_AREAS
        if (activeKernels() == KernelSet::AVX2) return addAreasAvx2(span, count, indices + k, triangles, sum);
#endif
        static_cast<void>(k);
        static_cast<void>(triangles);
        static_cast<void>(sum);
        return 0;
    }

private:
    const kel::mesh::AttributeBuffer& positions;
    ElementSpan span;
    std::size_t count;
    const Index* indices;
};

template<typename Corners>
float sumAreas(kel::mesh::PrimitiveType type, std::size_t n, const Corners& corner) {
    AreaSum area;
    if (type == kel::mesh::TRIANGLES) {
        const std::size_t end = n / 3 * 3;
        std::size_t k = 0;
        while (k != end) {
            k += 3 * corner.addAreas(k, (end - k) / 3, area);
            // What the kernel leaves, one by one, until it can go on.
            for (const std::size_t stop = std::min(end, k + 24); k != stop; k += 3) {
                const glm::vec3 c0 = corner(k), c1 = corner(k + 1), c2 = corner(k + 2);
                area.add(c0, c1, c2);
            }
        }
    } else if (type == kel::mesh::TRIANGLE_STRIP) {
        for (std::size_t k = 0; k + 2 < n; ++k) {
            const glm::vec3 c0 = corner(k), c1 = corner(k + 1), c2 = corner(k + 2);
            area.add(c0, c1, c2);
        }
    } else if (type == kel::mesh::TRIANGLE_FAN) {
        const glm::vec3 hub = corner(0);
        for (std::size_t k = 0; k + 2 < n; ++k) {
            const glm::vec3 c1 = corner(k + 1), c2 = corner(k + 2);
            area.add(hub, c1, c2);
        }
    }
    return area.sum;
}

std::string areaText(float area) {
    // "%f" whatever the process's locale says: metadata texts are read as JSON.
    char text[64];
    const auto end =
        std::to_chars(text, text + sizeof text, static_cast<double>(area), std::chars_format::fixed, 6);
    return std::string(text, end.ptr);
}

} // namespace

float computeTriangleSurfaceArea(const kel::mesh::MeshPtr& mesh) {
    const auto positions = mesh->getAttributeBuffer(kel::mesh::DEFAULT_POSITIONS_NAME);
    if (!isAttributeVec3f(positions)) {
        KELSRC_WARN(AREA_FUNCTION) << "No attribute buffer with default positions name \""
                                   << kel::mesh::DEFAULT_POSITIONS_NAME
                                   << "\" and 3 float components per element found in mesh";
        return 0.0f;
    }
    const auto indices = mesh->getIndexBuffer();
    if (!indices) {
        KELSRC_WARN(AREA_FUNCTION) << "No index array could be found, so skip the triangle data";
        return 0.0f;
    }
    const std::size_t n = indices->getElementCount();
    if (n <= 2) return 0.0f;

    const kel::mesh::PrimitiveType type = mesh->getPrimitiveType();
    const auto* indices16 = packedIndices<std::uint16_t>(*indices);
    const auto* indices32 = packedIndices<std::uint32_t>(*indices);
    if (indices16 || indices32) {
        const std::size_t count = positions->getElementCount();
        if (const ElementSpan span = elementsInMemory(*positions, count)) {
            if (indices16)
                return sumAreas(type, n, MemoryCorners<std::uint16_t>(*positions, span, count, indices16));
            return sumAreas(type, n, MemoryCorners<std::uint32_t>(*positions, span, count, indices32));
        }
    }
    return sumAreas(type, n, InterfaceCorners(*positions, *indices));
}

void addStatisticsMetaData(kel::mesh::MeshPtr mesh, kel::src::MetaDataPtr metaData) {
    auto& meta = *metaData;
    const std::size_t primitives = mesh->getNumPrimitives();
    switch (mesh->getPrimitiveType()) {
    case kel::mesh::POINTS:
        meta["numOriginalPoints"] = std::to_string(primitives);
        break;
    case kel::mesh::LINES:
        meta["numOriginalLines"] = std::to_string(primitives);
        break;
    case kel::mesh::TRIANGLES:
    case kel::mesh::TRIANGLE_STRIP:
        meta["numOriginalTriangles"] = std::to_string(primitives);
        break;
    default: // fans too, on purpose, although they do get an area
        KELSRC_WARN(STATISTICS_FUNCTION)
            << "No statistics for primitive type "
            << kel::mesh::getStringForPrimitiveType(mesh->getPrimitiveType()) << "\n";
    }

    if (const auto positions = mesh->getAttributeBuffer(kel::mesh::DEFAULT_POSITIONS_NAME)) {
        meta["numOriginalVertices"] = std::to_string(positions->getElementCount());
    } else {
        KELSRC_WARN(STATISTICS_FUNCTION) << "No attribute buffer with default positions name \""
                                         << kel::mesh::DEFAULT_POSITIONS_NAME << "\" found in mesh";
    }

    float area = 0.0f;
    switch (mesh->getPrimitiveType()) {
    case kel::mesh::TRIANGLES:
    case kel::mesh::TRIANGLE_STRIP:
    case kel::mesh::TRIANGLE_FAN:
        area = computeTriangleSurfaceArea(mesh);
        break;
    default:
        break;
    }
    meta["surfaceArea"] = areaText(area);
}

} // namespace kel::src::detail
