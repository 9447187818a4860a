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

// ---- Bounds
// -----------------------------------------------------------------------------------------------------

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

// ---- Statistics
// ---------------------------------------------------------------------------------------------------

namespace {

/// Reads the corners of triangles, straight from memory where the buffers are our own.
class CornerReader {
public:
    CornerReader(const kel::mesh::AttributeBuffer& positions, const kel::mesh::IndexBuffer& indices)
        : positions(positions), indices(indices), indices16(packedIndices<std::uint16_t>(indices)),
          indices32(packedIndices<std::uint32_t>(indices)) {
        if (indices16 || indices32) {
            positionCount = positions.getElementCount();
            span = elementsInMemory(positions, positionCount);
        }
    }

    glm::vec3 operator()(std::size_t k) const {
        const std::size_t index = indices16 ? indices16[k] : indices32 ? indices32[k] : indices.getIndex(k);
        glm::vec3 corner;
        if (span && index < positionCount) {
            std::memcpy(&corner, span.first + index * span.stride, sizeof corner);
        } else {
            positions.getElement(index, &corner);
        }
        return corner;
    }

private:
    const kel::mesh::AttributeBuffer& positions;
    const kel::mesh::IndexBuffer& indices;
    const std::uint16_t* indices16;
    const std::uint32_t* indices32;
    std::size_t positionCount = 0;
    ElementSpan span;
};

class AreaSum {
public:
    void add(const glm::vec3& c0, const glm::vec3& c1, const glm::vec3& c2) {
        const float area = utils::computeTriangleArea(c0, c1, c2);
        const float magnitude = std::fabs(area);
        if (magnitude >= std::numeric_limits<float>::min() &&
            magnitude <= std::numeric_limits<float>::max()) {
            sum += area;
        }
    }
    float sum = 0.0f;
};

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

    const CornerReader corner(*positions, *indices);
    AreaSum area;
    switch (mesh->getPrimitiveType()) {
    case kel::mesh::TRIANGLES:
        for (std::size_t k = 0; k != n / 3 * 3; k += 3) {
            const glm::vec3 c0 = corner(k), c1 = corner(k + 1), c2 = corner(k + 2);
            area.add(c0, c1, c2);
        }
        break;
    case kel::mesh::TRIANGLE_STRIP:
        for (std::size_t k = 0; k + 2 < n; ++k) {
            const glm::vec3 c0 = corner(k), c1 = corner(k + 1), c2 = corner(k + 2);
            area.add(c0, c1, c2);
        }
        break;
    case kel::mesh::TRIANGLE_FAN: {
        const glm::vec3 hub = corner(0);
        for (std::size_t k = 0; k + 2 < n; ++k) {
            const glm::vec3 c1 = corner(k + 1), c2 = corner(k + 2);
            area.add(hub, c1, c2);
        }
        break;
    }
    default:
        break;
    }
    return area.sum;
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
