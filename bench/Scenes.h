#pragma once

#include <kel/src/SrcWriterInput.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <streambuf>
#include <string>
#include <vector>

namespace kel::bench {

/// One displaced sphere, in plain arrays: what every writer is given.
struct Sphere {
    std::vector<float> positions, normals, texcoords; ///< 3, 3 and 2 floats per vertex
    std::vector<std::uint32_t> indices;
    std::array<double, 3> lower{-0.5, -0.5, -0.5}, upper{0.5, 0.5, 0.5}; ///< a box around the positions
};

/// A sphere of about `triangles` triangles with a wavy surface, inside the box -0.5 to 0.5. Another seed
/// gives other waves.
Sphere displacedSphere(std::size_t triangles, std::size_t seed);

/// Many spheres, no two alike (a compressor would otherwise store one of them).
struct Scene {
    std::size_t meshes;
    std::size_t trianglesPerMesh;
    std::vector<Sphere> spheres;
    kel::src::SrcWriterInput input;

    std::size_t verticesPerMesh() const { return spheres[0].positions.size() / 3; }
    std::size_t indicesPerMesh() const { return spheres[0].indices.size(); }
    bool hasShortIndices() const { return verticesPerMesh() <= 65535; }
    std::size_t vertices() const { return meshes * verticesPerMesh(); }
    std::size_t triangles() const { return meshes * indicesPerMesh() / 3; }
    /// Bytes of floats and indices as the input holds them; indices are 2 bytes wide in meshes of up to
    /// 65,535 vertices.
    std::size_t inputBytes() const;
    std::size_t indexBytes() const;
};

/// Where the spheres are.
enum class Places {
    SAME, ///< all around the origin: nothing that is measured looks at where they are
    GRID  ///< each in its own cell of a cube of cells, for scenes that are drawn; boxes are tight then
};

Scene makeScene(std::size_t meshes, std::size_t trianglesPerMesh, Places places = Places::SAME);

/// The three scenes of all comparisons: a = 1 mesh of 1,000,000 triangles, b = 1,000 of 1,000, c = 20,000
/// of 50.
Scene makeScene(char name, Places places);
const Scene& scene(char name);

/// A stream that counts what it is given and keeps nothing.
class CountingStream : public std::ostream {
public:
    CountingStream() : std::ostream(nullptr) { rdbuf(&buffer); }
    std::size_t bytes() const { return buffer.count; }

private:
    class Buffer : public std::streambuf {
    public:
        std::size_t count = 0;

    protected:
        std::streamsize xsputn(const char*, std::streamsize n) override {
            count += static_cast<std::size_t>(n);
            return n;
        }
        int_type overflow(int_type c) override {
            ++count;
            return c;
        }
    };
    Buffer buffer;
};

/// What a writer stores of a vertex and of an index, in bytes.
struct Payload {
    std::size_t position, normal, texcoord, index;
};

/// Floats and indices as the scene's input holds them.
Payload payloadOf(const Scene& scene);

/// Copies as many bytes of every array as the payload says into memory that no page of has been touched yet,
/// and gives it back: the limit for a writer that has to hold its output once. Returns the bytes copied.
std::size_t copyToFreshMemory(const Scene& scene, const Payload& payload);

/// The bytes by which resident memory peaks above its level at the start while `work` runs, in a child
/// process.
template<typename Work>
std::size_t peakMemoryOf(Work work);
std::size_t peakMemoryOfCall(void (*call)(void*), void* argument);

template<typename Work>
std::size_t peakMemoryOf(Work work) {
    return peakMemoryOfCall([](void* argument) { (*static_cast<Work*>(argument))(); }, &work);
}

} // namespace kel::bench
