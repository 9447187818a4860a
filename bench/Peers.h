#pragma once

#include "Scenes.h"

#include <iosfwd>
#include <memory>
#include <vector>

namespace kel::bench {

/// One buffer, a view and an accessor per attribute, a mesh and a node per mesh, as exporters use tinygltf.
/// Its model is what it writes from, so making that is part of the work.
/// With several nodes per mesh they stand in a row.
void writeTinygltf(const Scene& scene, std::ostream& out, std::size_t nodesPerMesh = 1);

/// A scene in Assimp's own structures, exported as glb2.
class AssimpInput {
public:
    explicit AssimpInput(const Scene& scene);
    ~AssimpInput();
    AssimpInput(const AssimpInput&) = delete;
    AssimpInput& operator=(const AssimpInput&) = delete;
    void write(std::ostream& out) const;

private:
    struct Data;
    std::unique_ptr<Data> data;
};

/// A scene as Draco meshes, each encoded on its own (11 bits for positions, its default).
class DracoInput {
public:
    explicit DracoInput(const Scene& scene);
    ~DracoInput();
    DracoInput(const DracoInput&) = delete;
    DracoInput& operator=(const DracoInput&) = delete;
    void write(std::ostream& out, int speed) const;

private:
    struct Data;
    std::unique_ptr<Data> data;
};

/// meshoptimizer's vertex and index encoders, after quantizing positions and texture coordinates to 16 bits
/// and normals to 8.
class MeshoptimizerInput {
public:
    explicit MeshoptimizerInput(const Scene& scene) : scene(scene) {}
    void write(std::ostream& out) const;

private:
    const Scene& scene;
};

} // namespace kel::bench
