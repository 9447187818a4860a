#include <kel/src/MeshUtils.h>

#include <kel/mesh/AttributeNames.h>
#include <kel/src/PackedAccess.h>
#include <kel/src/format/MetadataKeys.h>
#include <kel/src/kernels/Kernels.h>

#include <logging/Logger.h>
#include <utils/TriangleArea.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>

namespace kel::src::detail {

namespace {

constexpr const char* SOURCE_FILE = "kel/src/MeshUtils";
// What the log names as the function. Fixed texts, because a compiler's own spelling differs from one compiler to
// the next, and filters match these.
constexpr const char* STATISTICS_FUNCTION =
    "void kel::src::detail::addStatisticsMetaData(kel::mesh::MeshPtr, kel::src::MetaDataPtr)";
constexpr const char* AREA_FUNCTION = "float kel::src::detail::computeTriangleSurfaceArea(const MeshPtr&)";

} // namespace

bool isAttributeVec3f(const std::shared_ptr<kel::mesh::AttributeBuffer>& buffer) {
    return buffer && buffer->getComponentType() == kel::mesh::FLOAT &&
           buffer->getComponentCountPerElement() == 3;
}

void computeBoundingBoxMinMax(std::shared_ptr<kel::mesh::AttributeBuffer> buffer, glm::vec3& min,
                              glm::vec3& max) {
    constexpr float LARGEST = std::numeric_limits<float>::max(); // not infinity, on purpose
    min = glm::vec3(LARGEST, LARGEST, LARGEST);
    max = glm::vec3(-LARGEST, -LARGEST, -LARGEST);
    const std::size_t count = buffer->getElementCount();

    if (const ElementSpan span = elementsInMemory(*buffer, count)) {
        const std::size_t size = std::min(buffer->getElementSizeInBytes(), sizeof(glm::vec3));
        if (span.isPacked(sizeof(glm::vec3)) && size == sizeof(glm::vec3) &&
            reinterpret_cast<std::uintptr_t>(span.first) % alignof(float) == 0) {
            extendBounds(reinterpret_cast<const float*>(span.first), count, &min.x, &max.x);
            return;
        }
        for (std::size_t i = 0; i < count; ++i) {
            glm::vec3 position(0.0f, 0.0f, 0.0f);
            std::memcpy(&position, span.first + i * span.stride, size);
            extendBoundsByOne(&position.x, &min.x, &max.x);
        }
        return;
    }
    // A buffer of ours whose last element lies outside its bytes throws here, whatever the width of its elements.
    if (count != 0 && hasKnownStorage(*buffer)) buffer->getElement(count - 1, nullptr);
    for (std::size_t i = 0; i < count; ++i) {
        ElementScratch element{};
        buffer->getElement(i, element.data());
        extendBoundsByOne(element.data(), &min.x, &max.x);
    }
}

void computeBoundingBoxCenterSize(std::shared_ptr<kel::mesh::AttributeBuffer> buffer, glm::vec3& center,
                                  glm::vec3& size) {
    if (buffer->getElementCount() == 0) {
        // Off the origin on purpose: readers know the empty mesh by it.
        center = glm::vec3(-0.1f, -0.1f, -0.1f);
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

/// Reads corners through the interface.
struct InterfaceCorners {
    const kel::mesh::AttributeBuffer& positions;
    const kel::mesh::IndexBuffer& indices;

    glm::vec3 operator()(std::size_t k) const {
        glm::vec3 corner;
        positions.getElement(indices.getIndex(k), &corner);
        return corner;
    }
    std::size_t addAreas(std::size_t, std::size_t, AreaSum&) const { return 0; }
};

/// Reads corners straight from memory; an index past the positions gets the buffer's own answer.
template<typename Index>
struct MemoryCorners {
    const kel::mesh::AttributeBuffer& buffer;
    PositionsInMemory positions;
    const Index* indices;

    glm::vec3 operator()(std::size_t k) const {
        const std::size_t index = indices[k];
        glm::vec3 corner;
        if (index < positions.count) {
            std::memcpy(&corner, positions.first + index * positions.stride, sizeof corner);
        } else {
            buffer.getElement(index, &corner);
        }
        return corner;
    }

    /// Adds areas of a list's triangles from index position k on, as long as all corners are in memory.
    std::size_t addAreas(std::size_t k, std::size_t triangles, AreaSum& sum) const {
        return addTriangleAreas(positions, indices + k, triangles, sum);
    }
};

/// Not by kel::mesh::forEachPrimitive, on purpose: it keeps the facing of a strip's triangles by exchanging two
/// corners, which would change the order of reads and the last bits of the areas, and it names a fan's hub anew
/// for each triangle, which is read once here.
template<typename Corners>
float sumAreas(kel::mesh::PrimitiveType type, std::size_t n, const Corners& corner) {
    AreaSum sum;
    const auto add = [&](const glm::vec3& c0, const glm::vec3& c1, const glm::vec3& c2) {
        sum.add(utils::computeTriangleArea(c0, c1, c2));
    };
    if (type == kel::mesh::TRIANGLES) {
        const std::size_t end = n / 3 * 3;
        for (std::size_t k = 0; k != end;) {
            k += 3 * corner.addAreas(k, (end - k) / 3, sum);
            if (k == end) break;
            const glm::vec3 c0 = corner(k), c1 = corner(k + 1), c2 = corner(k + 2);
            add(c0, c1, c2);
            k += 3;
        }
    } else if (type == kel::mesh::TRIANGLE_STRIP) {
        for (std::size_t k = 0; k + 2 < n; ++k) {
            const glm::vec3 c0 = corner(k), c1 = corner(k + 1), c2 = corner(k + 2);
            add(c0, c1, c2);
        }
    } else if (type == kel::mesh::TRIANGLE_FAN) {
        const glm::vec3 hub = corner(0);
        for (std::size_t k = 0; k + 2 < n; ++k) {
            const glm::vec3 c1 = corner(k + 1), c2 = corner(k + 2);
            add(hub, c1, c2);
        }
    }
    return sum.get();
}

std::string areaText(float area) {
    // As "%f" prints it, but in every locale: metadata texts are read as JSON.
    char text[64];
    const auto end =
        std::to_chars(text, text + sizeof text, static_cast<double>(area), std::chars_format::fixed, 6);
    return std::string(text, end.ptr);
}

} // namespace

float computeTriangleSurfaceArea(const kel::mesh::MeshPtr& mesh) {
    const auto positions = mesh->getAttributeBuffer(kel::mesh::DEFAULT_POSITIONS_NAME);
    if (!isAttributeVec3f(positions)) {
        const auto logger = logging::Logger::getBoostLogger(__LINE__, AREA_FUNCTION, SOURCE_FILE);
        BOOST_LOG_SEV(*logger, boost::log::trivial::warning)
            << "No attribute buffer with default positions name \"" << kel::mesh::DEFAULT_POSITIONS_NAME
            << "\" and 3 float components per element found in mesh";
        return 0.0f;
    }
    const auto indices = mesh->getIndexBuffer();
    if (!indices) {
        const auto logger = logging::Logger::getBoostLogger(__LINE__, AREA_FUNCTION, SOURCE_FILE);
        BOOST_LOG_SEV(*logger, boost::log::trivial::warning)
            << "No index array could be found, so skip the triangle data";
        return 0.0f;
    }
    const std::size_t n = indices->getElementCount();
    if (n <= 2) return 0.0f;

    const kel::mesh::PrimitiveType type = mesh->getPrimitiveType();
    const auto* indices16 = packedIndices<std::uint16_t>(*indices);
    const auto* indices32 = packedIndices<std::uint32_t>(*indices);
    // Only a buffer that lies in memory is asked how many elements it has.
    if ((indices16 || indices32) && elementsInMemory(*positions, 1)) {
        const std::size_t count = positions->getElementCount();
        if (const ElementSpan span = elementsInMemory(*positions, count)) {
            const PositionsInMemory corners{span.first, span.stride, count};
            if (indices16)
                return sumAreas(type, n, MemoryCorners<std::uint16_t>{*positions, corners, indices16});
            return sumAreas(type, n, MemoryCorners<std::uint32_t>{*positions, corners, indices32});
        }
    }
    return sumAreas(type, n, InterfaceCorners{*positions, *indices});
}

void addStatisticsMetaData(kel::mesh::MeshPtr mesh, kel::src::MetaDataPtr metaData) {
    namespace metadata = format::metadata;
    auto& meta = *metaData;
    const std::size_t primitives = mesh->getNumPrimitives();
    switch (mesh->getPrimitiveType()) {
    case kel::mesh::POINTS:
        meta[std::string(metadata::NUM_POINTS)] = std::to_string(primitives);
        break;
    case kel::mesh::LINES:
        meta[std::string(metadata::NUM_LINES)] = std::to_string(primitives);
        break;
    case kel::mesh::TRIANGLES:
    case kel::mesh::TRIANGLE_STRIP:
        meta[std::string(metadata::NUM_TRIANGLES)] = std::to_string(primitives);
        break;
    default: { // fans too, although they do get an area
        const auto logger = logging::Logger::getBoostLogger(__LINE__, STATISTICS_FUNCTION, SOURCE_FILE);
        BOOST_LOG_SEV(*logger, boost::log::trivial::warning)
            << "No statistics for primitive type "
            << kel::mesh::getStringForPrimitiveType(mesh->getPrimitiveType()) << "\n";
    }
    }

    if (const auto positions = mesh->getAttributeBuffer(kel::mesh::DEFAULT_POSITIONS_NAME)) {
        meta[std::string(metadata::NUM_VERTICES)] = std::to_string(positions->getElementCount());
    } else {
        const auto logger = logging::Logger::getBoostLogger(__LINE__, STATISTICS_FUNCTION, SOURCE_FILE);
        BOOST_LOG_SEV(*logger, boost::log::trivial::warning)
            << "No attribute buffer with default positions name \"" << kel::mesh::DEFAULT_POSITIONS_NAME
            << "\" found in mesh";
    }

    const kel::mesh::PrimitiveType type = mesh->getPrimitiveType();
    const bool hasTriangles =
        type == kel::mesh::TRIANGLES || type == kel::mesh::TRIANGLE_STRIP || type == kel::mesh::TRIANGLE_FAN;
    meta[std::string(metadata::SURFACE_AREA)] =
        areaText(hasTriangles ? computeTriangleSurfaceArea(mesh) : 0.0f);
}

} // namespace kel::src::detail
