#include "Scenes.h"

#include <kel/material/MaterialClassic.h>
#include <kel/mesh/KelMesh.h>

#include <sys/mman.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <new>

namespace kel::bench {

Sphere displacedSphere(std::size_t triangles, std::size_t seed) {
    // rings x 2 rings quads of two triangles, minus the poles' degenerate halves, which are kept for
    // simplicity.
    const auto rings =
        static_cast<std::size_t>(std::max(2.0, std::round(std::sqrt(static_cast<double>(triangles) / 4))));
    const std::size_t segments = triangles / (2 * rings);
    Sphere sphere;
    const double pi = std::acos(-1.0);
    const double wave = static_cast<double>(seed) * 0.1;
    for (std::size_t i = 0; i <= rings; ++i) {
        for (std::size_t j = 0; j <= segments; ++j) {
            const double theta = pi * static_cast<double>(i) / static_cast<double>(rings);
            const double phi = 2 * pi * static_cast<double>(j) / static_cast<double>(segments);
            const double n[3] = {std::sin(theta) * std::cos(phi), std::sin(theta) * std::sin(phi),
                                 std::cos(theta)};
            const double radius = 0.45 + 0.02 * std::sin(11 * theta + wave) * std::cos(7 * phi + 2 * wave);
            for (const double axis : n) {
                sphere.positions.push_back(static_cast<float>(radius * axis));
                sphere.normals.push_back(static_cast<float>(axis));
            }
            sphere.texcoords.push_back(static_cast<float>(j) / static_cast<float>(segments));
            sphere.texcoords.push_back(static_cast<float>(i) / static_cast<float>(rings));
        }
    }
    for (std::size_t i = 0; i < rings; ++i) {
        for (std::size_t j = 0; j < segments; ++j) {
            const auto at = static_cast<std::uint32_t>(i * (segments + 1) + j);
            const auto below = static_cast<std::uint32_t>(at + segments + 1);
            for (const std::uint32_t index : {at, below, at + 1, at + 1, below, below + 1}) {
                sphere.indices.push_back(index);
            }
        }
    }
    return sphere;
}

std::size_t Scene::indexBytes() const {
    return meshes * indicesPerMesh() * (hasShortIndices() ? 2 : 4);
}

std::size_t Scene::inputBytes() const {
    return vertices() * 8 * sizeof(float) + indexBytes();
}

namespace {

/// Moves the sphere of number `i` to its cell of a cube of cells, of one unit each, around the origin.
void moveToCell(Sphere& sphere, std::size_t i, std::size_t meshes) {
    std::size_t side = 1;
    while (side * side * side < meshes)
        ++side;
    const std::size_t cell[3] = {i % side, i / side % side, i / side / side};
    sphere.lower.fill(std::numeric_limits<double>::infinity());
    sphere.upper.fill(-std::numeric_limits<double>::infinity());
    for (std::size_t k = 0; k < sphere.positions.size(); ++k) {
        const std::size_t axis = k % 3;
        float& x = sphere.positions[k];
        x += static_cast<float>(cell[axis]) - static_cast<float>(side - 1) / 2;
        sphere.lower[axis] = std::min<double>(sphere.lower[axis], x);
        sphere.upper[axis] = std::max<double>(sphere.upper[axis], x);
    }
}

} // namespace

Scene makeScene(std::size_t meshes, std::size_t trianglesPerMesh, Places places) {
    Scene scene{meshes, trianglesPerMesh, {}, {}};
    const auto material = std::make_shared<kel::material::MaterialClassic>(0);
    scene.input.materials.insert(material);
    for (std::size_t i = 0; i < meshes; ++i) {
        scene.spheres.push_back(displacedSphere(trianglesPerMesh, i));
        if (places == Places::GRID) moveToCell(scene.spheres.back(), i, meshes);
        const Sphere& sphere = scene.spheres.back();
        const auto mesh = std::make_shared<kel::mesh::DefaultMesh>();
        mesh->addAttribute("position", 3, sphere.positions);
        mesh->addAttribute("normal", 3, sphere.normals);
        mesh->addAttribute("texcoord", 2, sphere.texcoords);
        if (scene.hasShortIndices()) {
            mesh->setIndices(std::vector<std::uint16_t>(sphere.indices.begin(), sphere.indices.end()));
        } else {
            mesh->setIndices(sphere.indices);
        }
        scene.input.meshes.push_back(mesh);
        scene.input.meshMaterials[mesh] = material;
        scene.input.metaData[mesh] = std::make_shared<std::map<std::string, std::string>>();
    }
    return scene;
}

Scene makeScene(char name, Places places) {
    return name == 'a'   ? makeScene(1, 1000000, places)
           : name == 'b' ? makeScene(1000, 1000, places)
                         : makeScene(20000, 50, places);
}

const Scene& scene(char name) {
    static std::map<char, std::unique_ptr<Scene>> scenes;
    auto& slot = scenes[name];
    if (!slot) slot = std::make_unique<Scene>(makeScene(name, Places::SAME));
    return *slot;
}

Payload payloadOf(const Scene& scene) {
    return {12, 12, 8, scene.hasShortIndices() ? 2u : 4u};
}

std::size_t copyToFreshMemory(const Scene& scene, const Payload& payload) {
    const std::size_t vertices = scene.verticesPerMesh(), indices = scene.indicesPerMesh();
    const std::size_t size =
        scene.meshes *
        (vertices * (payload.position + payload.normal + payload.texcoord) + indices * payload.index);
    void* fresh = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (fresh == MAP_FAILED) throw std::bad_alloc();
    auto* to = static_cast<unsigned char*>(fresh);
    const auto copy = [&](const void* from, std::size_t bytes) {
        std::memcpy(to, from, bytes);
        to += bytes;
    };
    for (const Sphere& sphere : scene.spheres) {
        copy(sphere.positions.data(), vertices * payload.position);
        copy(sphere.normals.data(), vertices * payload.normal);
        copy(sphere.texcoords.data(), vertices * payload.texcoord);
        copy(sphere.indices.data(), indices * payload.index);
    }
    munmap(fresh, size);
    return size;
}

} // namespace kel::bench
