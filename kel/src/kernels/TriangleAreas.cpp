#include <kel/src/kernels/Kernels.h>

#include <utils/TriangleArea.h>

#include <algorithm>
#include <cstring>

// The fast loop repeats the operations of this tree's own utils::computeTriangleArea. Another library may compute
// an area in another way, so then only the plain loop, which calls it, may run.
#if defined(__x86_64__) && KELSRC_BUNDLED_MESH
#define KELSRC_FAST_AREAS 1
#include <immintrin.h>
#endif

namespace kel::src::detail {

namespace {

template<typename Index>
std::size_t addAreasPlain(const PositionsInMemory& positions, const Index* indices, std::size_t triangles,
                          AreaSum& sum) {
    for (std::size_t t = 0; t < triangles; ++t) {
        glm::vec3 corners[3];
        for (std::size_t c = 0; c < 3; ++c) {
            const std::size_t index = indices[3 * t + c];
            if (index >= positions.count) return t;
            std::memcpy(&corners[c], positions.first + index * positions.stride, sizeof corners[c]);
        }
        sum.add(utils::computeTriangleArea(corners[0], corners[1], corners[2]));
    }
    return triangles;
}

#if KELSRC_FAST_AREAS

struct Lanes3 {
    __m256 x, y, z;
};

/// One corner of eight triangles as x, y and z lanes. Reads 16 bytes per corner.
template<typename Index>
__attribute__((target("avx2"))) Lanes3 loadCorners(const PositionsInMemory& positions, const Index* indices) {
    __m256 corner[4];
    for (int t = 0; t < 4; ++t) {
        const unsigned char* low = positions.first + indices[3 * t] * positions.stride;
        const unsigned char* high = positions.first + indices[3 * (t + 4)] * positions.stride;
        corner[t] =
            _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(reinterpret_cast<const float*>(low))),
                                 _mm_loadu_ps(reinterpret_cast<const float*>(high)), 1);
    }
    const __m256 xy01 = _mm256_unpacklo_ps(corner[0], corner[1]),
                 xy23 = _mm256_unpacklo_ps(corner[2], corner[3]);
    const __m256 zw01 = _mm256_unpackhi_ps(corner[0], corner[1]),
                 zw23 = _mm256_unpackhi_ps(corner[2], corner[3]);
    return {_mm256_shuffle_ps(xy01, xy23, _MM_SHUFFLE(1, 0, 1, 0)),
            _mm256_shuffle_ps(xy01, xy23, _MM_SHUFFLE(3, 2, 3, 2)),
            _mm256_shuffle_ps(zw01, zw23, _MM_SHUFFLE(1, 0, 1, 0))};
}

/// Eight triangles at a time through the operations of the plain loop. Their areas are added one by one, in order.
template<typename Index>
__attribute__((target("avx2"))) std::size_t
addAreasAvx2(const PositionsInMemory& positions, const Index* indices, std::size_t triangles, AreaSum& sum) {
    const auto minus = [](const Lanes3& a, const Lanes3& b) __attribute__((target("avx2"))) {
        return Lanes3{_mm256_sub_ps(a.x, b.x), _mm256_sub_ps(a.y, b.y), _mm256_sub_ps(a.z, b.z)};
    };
    std::size_t done = 0;
    for (; done + 8 <= triangles; done += 8) {
        const Index* at = indices + 3 * done;
        std::size_t largest = 0;
        for (int i = 0; i < 24; ++i)
            largest = std::max<std::size_t>(largest, at[i]);
        // A corner is read as 16 bytes, and behind the last position there may be none left.
        if (largest + 1 >= positions.count) {
            const std::size_t added = addAreasPlain(positions, at, 8, sum);
            if (added != 8) return done + added;
            continue;
        }
        const Lanes3 c0 = loadCorners(positions, at);
        const Lanes3 u = minus(loadCorners(positions, at + 1), c0);
        const Lanes3 v = minus(loadCorners(positions, at + 2), c0);
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
    return done + addAreasPlain(positions, indices + 3 * done, triangles - done, sum);
}

#endif

} // namespace

template<typename Index>
std::size_t addTriangleAreas(const PositionsInMemory& positions, const Index* indices, std::size_t triangles,
                             AreaSum& sum) {
#if KELSRC_FAST_AREAS
    if (activeKernels() == KernelSet::AVX2) return addAreasAvx2(positions, indices, triangles, sum);
#endif
    return addAreasPlain(positions, indices, triangles, sum);
}

template std::size_t addTriangleAreas<std::uint16_t>(const PositionsInMemory&, const std::uint16_t*,
                                                     std::size_t, AreaSum&);
template std::size_t addTriangleAreas<std::uint32_t>(const PositionsInMemory&, const std::uint32_t*,
                                                     std::size_t, AreaSum&);

} // namespace kel::src::detail
