#include <kel/mesh/Transforms.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace kel::mesh {

namespace {

constexpr float HALF = 127.0f; // codes 0 .. 254 are the grid -127 .. 127

float signNotZero(float v) {
    return v < 0.0f ? -1.0f : 1.0f;
}

/// The point of the octahedron for grid coordinates -127 .. 127; its components' absolute values add up to 1.
void unfold(float gridX, float gridY, float point[3]) {
    float x = gridX / HALF;
    float y = gridY / HALF;
    const float z = 1.0f - std::fabs(x) - std::fabs(y);
    if (z < 0.0f) {
        const float foldedX = (1.0f - std::fabs(y)) * signNotZero(x);
        y = (1.0f - std::fabs(x)) * signNotZero(y);
        x = foldedX;
    }
    point[0] = x;
    point[1] = y;
    point[2] = z;
}

} // namespace

void decodeOctahedralNormal(const unsigned char code[2], float normal[3]) {
    unfold(std::min<float>(code[0], 254.0f) - HALF, std::min<float>(code[1], 254.0f) - HALF, normal);
    const float length = std::sqrt((normal[0] * normal[0] + normal[1] * normal[1]) + normal[2] * normal[2]);
    for (int axis = 0; axis < 3; ++axis)
        normal[axis] /= length;
}

void encodeOctahedralNormal(const float normal[3], unsigned char code[2]) {
    float n[3];
    const float largest = std::max({std::fabs(normal[0]), std::fabs(normal[1]), std::fabs(normal[2])});
    bool hasDirection = largest > 0.0f;
    for (int axis = 0; axis < 3; ++axis) {
        if (std::isnan(normal[axis])) hasDirection = false;
        // Scaled by the largest component, so that no length overflows or vanishes.
        n[axis] = std::isinf(largest) ? (std::isinf(normal[axis]) ? std::copysign(1.0f, normal[axis]) : 0.0f)
                                      : normal[axis] / largest;
    }
    if (!hasDirection) {
        code[0] = code[1] = 127;
        return;
    }

    const float sum = (std::fabs(n[0]) + std::fabs(n[1])) + std::fabs(n[2]);
    float x = n[0] / sum;
    float y = n[1] / sum;
    if (n[2] < 0.0f) {
        const float foldedX = (1.0f - std::fabs(y)) * signNotZero(x);
        y = (1.0f - std::fabs(x)) * signNotZero(y);
        x = foldedX;
    }

    // Rounding to the nearest grid point is not always nearest on the sphere; try the four around.
    const float baseX = std::floor(x * HALF);
    const float baseY = std::floor(y * HALF);
    float bestCosine = -2.0f;
    for (int candidate = 0; candidate < 4; ++candidate) {
        const float gridX = std::min(baseX + static_cast<float>(candidate & 1), HALF);
        const float gridY = std::min(baseY + static_cast<float>(candidate >> 1), HALF);
        float p[3];
        unfold(gridX, gridY, p);
        const float dot = (n[0] * p[0] + n[1] * p[1]) + n[2] * p[2];
        const float cosine = dot / std::sqrt((p[0] * p[0] + p[1] * p[1]) + p[2] * p[2]);
        if (cosine > bestCosine) {
            bestCosine = cosine;
            code[0] = static_cast<unsigned char>(gridX + HALF);
            code[1] = static_cast<unsigned char>(gridY + HALF);
        }
    }
}

std::function<void(void*, void*)> quantizeNormals() {
    return [](void* source, void* target) {
        float normal[3];
        std::memcpy(normal, source, sizeof normal);
        encodeOctahedralNormal(normal, static_cast<unsigned char*>(target));
    };
}

} // namespace kel::mesh
