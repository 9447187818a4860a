#include <kel/src/kernels/Kernels.h>

#include <kel/mesh/QuantizeVec3.h>
#include <kel/mesh/Transforms.h>

#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace kel::src::detail {

namespace {

constexpr std::size_t VECTOR_BYTES = 3 * sizeof(float);

void quantizePositionsPlain(const unsigned char* positions, std::size_t count, const float min[3],
                            const float max[3], unsigned char* codes, std::size_t stride) {
    for (std::size_t i = 0; i < count; ++i) {
        float value[3];
        std::memcpy(value, positions + i * VECTOR_BYTES, sizeof value);
        std::uint16_t code[4] = {};
        for (int axis = 0; axis < 3; ++axis)
            code[axis] =
                kel::mesh::quantizeComponent<float, std::uint16_t>(value[axis], min[axis], max[axis]);
        std::memcpy(codes + i * stride, code, stride);
    }
}

#if defined(__x86_64__)

/// Four codes: the plain division, product and truncation. The clamps come to the plain loop's order of
/// tests: vminpd gives its second operand for a NaN, so that one ends at the largest code.
__attribute__((target("avx2"))) inline __m128i positionCodes(__m128 difference, __m256d extent) {
    __m256d t = _mm256_div_pd(_mm256_cvtps_pd(difference), extent);
    t = _mm256_min_pd(t, _mm256_set1_pd(1.0));
    t = _mm256_max_pd(t, _mm256_setzero_pd());
    return _mm256_cvttpd_epi32(_mm256_mul_pd(t, _mm256_set1_pd(65535.0)));
}

__attribute__((target("avx2"))) void quantizePositionsAvx2(const unsigned char* positions, std::size_t count,
                                                           const float min[3], const float max[3],
                                                           unsigned char* codes, std::size_t stride) {
    // Eight positions are three registers whose lanes run through the axes.
    __m256 lowest[3];
    __m256d extent[6];
    alignas(32) float lanes[24];
    alignas(32) double wideLanes[24];
    for (int lane = 0; lane < 24; ++lane) {
        lanes[lane] = min[lane % 3];
        wideLanes[lane] = static_cast<double>(max[lane % 3] - min[lane % 3]);
    }
    for (int r = 0; r < 3; ++r)
        lowest[r] = _mm256_load_ps(lanes + 8 * r);
    for (int r = 0; r < 6; ++r)
        extent[r] = _mm256_load_pd(wideLanes + 4 * r);

    const std::size_t blocks = count / 8;
    for (std::size_t block = 0; block < blocks; ++block) {
        const unsigned char* source = positions + block * 8 * VECTOR_BYTES;
        alignas(16) unsigned char packed[56]; // the 8-byte reads below end 2 bytes past the last code
        for (int r = 0; r < 3; ++r) {
            const __m256 difference =
                _mm256_sub_ps(_mm256_loadu_ps(reinterpret_cast<const float*>(source + 32 * r)), lowest[r]);
            const __m128i low = positionCodes(_mm256_castps256_ps128(difference), extent[2 * r]);
            const __m128i high = positionCodes(_mm256_extractf128_ps(difference, 1), extent[2 * r + 1]);
            _mm_store_si128(reinterpret_cast<__m128i*>(packed + 16 * r), _mm_packus_epi32(low, high));
        }
        unsigned char* target = codes + block * 8 * stride;
        if (stride == 6) {
            std::memcpy(target, packed, 48);
        } else {
            for (std::size_t i = 0; i < 8; ++i) {
                std::uint64_t vertex;
                std::memcpy(&vertex, packed + 6 * i, sizeof vertex);
                vertex &= 0xffffffffffffull;
                std::memcpy(target + 8 * i, &vertex, sizeof vertex);
            }
        }
    }
    quantizePositionsPlain(positions + blocks * 8 * VECTOR_BYTES, count % 8, min, max,
                           codes + blocks * 8 * stride, stride);
}

#endif

} // namespace

KernelSet quantizePositions(const unsigned char* positions, std::size_t count, const float min[3],
                            const float max[3], unsigned char* codes, std::size_t stride) {
#if defined(__x86_64__)
    if (activeKernels() == KernelSet::AVX2) {
        quantizePositionsAvx2(positions, count, min, max, codes, stride);
        return KernelSet::AVX2;
    }
#endif
    quantizePositionsPlain(positions, count, min, max, codes, stride);
    return KernelSet::PLAIN;
}

#if KELSRC_BUNDLED_MESH

namespace {

void encodeNormalsPlain(const unsigned char* normals, std::size_t count, unsigned char* codes,
                        std::size_t stride) {
    for (std::size_t i = 0; i < count; ++i) {
        float normal[3];
        std::memcpy(normal, normals + i * VECTOR_BYTES, sizeof normal);
        kel::mesh::encodeOctahedralNormal(normal, codes + i * stride);
    }
}

#if defined(__x86_64__)

__attribute__((target("avx2"))) inline __m256 absolute(__m256 v) {
    return _mm256_andnot_ps(_mm256_set1_ps(-0.0f), v);
}

/// 1 or, below zero, -1; 1 for both zeros.
__attribute__((target("avx2"))) inline __m256 signNotZero(__m256 v) {
    return _mm256_blendv_ps(_mm256_set1_ps(1.0f), _mm256_set1_ps(-1.0f),
                            _mm256_cmp_ps(v, _mm256_setzero_ps(), _CMP_LT_OQ));
}

/// Four floats and, in the upper half, the four that lie twelve further on.
__attribute__((target("avx2"))) inline __m256 twelveApart(const float* v) {
    return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(v)), _mm_loadu_ps(v + 12), 1);
}

/// The encoder of one normal, operation by operation, on eight at a time. Lanes without a direction carry
/// numbers without a meaning until they are replaced at the end. Returns false, having written nothing, when
/// an infinite component asks for the plain loop's special case.
__attribute__((target("avx2"))) inline bool encodeEightNormals(const float* normals, unsigned char* codes) {
    const __m256 one = _mm256_set1_ps(1.0f);
    const __m256 zero = _mm256_setzero_ps();
    const __m256 half = _mm256_set1_ps(127.0f);

    // x0 y0 z0 x1 ... into eight x, eight y and eight z.
    const __m256 a = twelveApart(normals), b = twelveApart(normals + 4), c = twelveApart(normals + 8);
    const __m256 bc = _mm256_shuffle_ps(b, c, _MM_SHUFFLE(2, 1, 3, 2));
    const __m256 ab = _mm256_shuffle_ps(a, b, _MM_SHUFFLE(1, 0, 2, 1));
    __m256 nx = _mm256_shuffle_ps(a, bc, _MM_SHUFFLE(2, 0, 3, 0));
    __m256 ny = _mm256_shuffle_ps(ab, bc, _MM_SHUFFLE(3, 1, 2, 0));
    __m256 nz = _mm256_shuffle_ps(ab, c, _MM_SHUFFLE(3, 0, 3, 1));

    const __m256 ax = absolute(nx), ay = absolute(ny), az = absolute(nz);
    const __m256 infinity = _mm256_set1_ps(__builtin_inff());
    const __m256 infinite = _mm256_or_ps(
        _mm256_cmp_ps(ax, infinity, _CMP_EQ_OQ),
        _mm256_or_ps(_mm256_cmp_ps(ay, infinity, _CMP_EQ_OQ), _mm256_cmp_ps(az, infinity, _CMP_EQ_OQ)));
    if (_mm256_movemask_ps(infinite) != 0) return false;
    const __m256 largest = _mm256_max_ps(_mm256_max_ps(ax, ay), az);
    const __m256 noDirection =
        _mm256_or_ps(_mm256_cmp_ps(largest, zero, _CMP_NGT_UQ),
                     _mm256_or_ps(_mm256_cmp_ps(ax, ay, _CMP_UNORD_Q), _mm256_cmp_ps(az, az, _CMP_UNORD_Q)));
    nx = _mm256_div_ps(nx, largest);
    ny = _mm256_div_ps(ny, largest);
    nz = _mm256_div_ps(nz, largest);

    const __m256 sum = _mm256_add_ps(_mm256_add_ps(absolute(nx), absolute(ny)), absolute(nz));
    __m256 x = _mm256_div_ps(nx, sum);
    __m256 y = _mm256_div_ps(ny, sum);
    const __m256 lower = _mm256_cmp_ps(nz, zero, _CMP_LT_OQ);
    const __m256 foldedX = _mm256_mul_ps(_mm256_sub_ps(one, absolute(y)), signNotZero(x));
    const __m256 foldedY = _mm256_mul_ps(_mm256_sub_ps(one, absolute(x)), signNotZero(y));
    x = _mm256_blendv_ps(x, foldedX, lower);
    y = _mm256_blendv_ps(y, foldedY, lower);

    const __m256 baseX = _mm256_floor_ps(_mm256_mul_ps(x, half));
    const __m256 baseY = _mm256_floor_ps(_mm256_mul_ps(y, half));
    const __m256 gridX[2] = {_mm256_min_ps(baseX, half), _mm256_min_ps(_mm256_add_ps(baseX, one), half)};
    const __m256 gridY[2] = {_mm256_min_ps(baseY, half), _mm256_min_ps(_mm256_add_ps(baseY, one), half)};
    const __m256 pointX[2] = {_mm256_div_ps(gridX[0], half), _mm256_div_ps(gridX[1], half)};
    const __m256 pointY[2] = {_mm256_div_ps(gridY[0], half), _mm256_div_ps(gridY[1], half)};
    __m256 best = _mm256_set1_ps(-2.0f);
    __m256 bestX = gridX[0], bestY = gridY[0];
    for (int candidate = 0; candidate < 4; ++candidate) {
        const __m256 cx = pointX[candidate & 1], cy = pointY[candidate >> 1];
        const __m256 pz = _mm256_sub_ps(_mm256_sub_ps(one, absolute(cx)), absolute(cy));
        const __m256 below = _mm256_cmp_ps(pz, zero, _CMP_LT_OQ);
        const __m256 px =
            _mm256_blendv_ps(cx, _mm256_mul_ps(_mm256_sub_ps(one, absolute(cy)), signNotZero(cx)), below);
        const __m256 py =
            _mm256_blendv_ps(cy, _mm256_mul_ps(_mm256_sub_ps(one, absolute(cx)), signNotZero(cy)), below);
        const __m256 dot =
            _mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(nx, px), _mm256_mul_ps(ny, py)), _mm256_mul_ps(nz, pz));
        const __m256 squared =
            _mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(px, px), _mm256_mul_ps(py, py)), _mm256_mul_ps(pz, pz));
        const __m256 cosine = _mm256_div_ps(dot, _mm256_sqrt_ps(squared));
        const __m256 better = _mm256_cmp_ps(cosine, best, _CMP_GT_OQ);
        best = _mm256_blendv_ps(best, cosine, better);
        bestX = _mm256_blendv_ps(bestX, gridX[candidate & 1], better);
        bestY = _mm256_blendv_ps(bestY, gridY[candidate >> 1], better);
    }

    const __m256i u = _mm256_cvttps_epi32(_mm256_add_ps(bestX, half));
    const __m256i v = _mm256_cvttps_epi32(_mm256_add_ps(bestY, half));
    const __m256i pair =
        _mm256_blendv_epi8(_mm256_or_si256(u, _mm256_slli_epi32(v, 8)), _mm256_set1_epi32(127 | 127 << 8),
                           _mm256_castps_si256(noDirection));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(codes),
                     _mm_packus_epi32(_mm256_castsi256_si128(pair), _mm256_extracti128_si256(pair, 1)));
    return true;
}

__attribute__((target("avx2"))) void encodeNormalsAvx2(const unsigned char* normals, std::size_t count,
                                                       unsigned char* codes, std::size_t stride) {
    const std::size_t blocks = count / 8;
    for (std::size_t block = 0; block < blocks; ++block) {
        const unsigned char* source = normals + block * 8 * VECTOR_BYTES;
        unsigned char* target = codes + block * 8 * stride;
        unsigned char packed[16];
        if (!encodeEightNormals(reinterpret_cast<const float*>(source), packed)) {
            encodeNormalsPlain(source, 8, target, stride);
            continue;
        }
        for (std::size_t i = 0; i < 8; ++i)
            std::memcpy(target + i * stride, packed + 2 * i, 2);
    }
    encodeNormalsPlain(normals + blocks * 8 * VECTOR_BYTES, count % 8, codes + blocks * 8 * stride, stride);
}

#endif

} // namespace

KernelSet encodeNormals(const unsigned char* normals, std::size_t count, unsigned char* codes,
                        std::size_t stride) {
#if defined(__x86_64__)
    if (activeKernels() == KernelSet::AVX2) {
        encodeNormalsAvx2(normals, count, codes, stride);
        return KernelSet::AVX2;
    }
#endif
    encodeNormalsPlain(normals, count, codes, stride);
    return KernelSet::PLAIN;
}

#endif

} // namespace kel::src::detail
