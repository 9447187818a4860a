#pragma once

#include <kel/src/SrcReader.h>

#include <array>
#include <cstdint>
#include <iosfwd>
#include <limits>
#include <string>

namespace kelsrc::cli {

/// Opens an SRC file; "-" reads `in`.
///
/// throws  Failure with STATUS_INPUT, in the reader's words
kel::src::SrcFile openSrcFile(const std::string& path, std::istream& in);

/// True when the file begins as SRC files do, or its name says that it is one; else it may be a model.
bool looksLikeSrc(const std::string& path);

/// How a file is called in messages: "-" is standard input.
std::string nameOfInput(const std::string& path);

/// A box that holds what was added to it.
struct Bounds {
    std::array<double, 3> min{std::numeric_limits<double>::infinity(),
                              std::numeric_limits<double>::infinity(),
                              std::numeric_limits<double>::infinity()};
    std::array<double, 3> max{-std::numeric_limits<double>::infinity(),
                              -std::numeric_limits<double>::infinity(),
                              -std::numeric_limits<double>::infinity()};

    bool isEmpty() const { return !(min[0] <= max[0] && min[1] <= max[1] && min[2] <= max[2]); }
    void add(const std::array<double, 3>& point);
    void add(const Bounds& other);
    std::array<double, 3> size() const;
    double diagonal() const; ///< 0 when empty
};

/// Elements of the attribute that says where the vertices are; 0 when the mesh has none.
std::uint64_t vertexCount(const kel::src::SrcFile& file, const kel::src::SrcMesh& mesh);
/// Indices that the mesh draws, or its vertices where it has no indices.
std::uint64_t cornerCount(const kel::src::SrcFile& file, const kel::src::SrcMesh& mesh);
/// Primitives that so many indices form.
std::uint64_t primitiveCount(kel::mesh::PrimitiveType type, std::uint64_t corners);

/// What a mesh of that type consists of: "points", "lines" or "triangles".
const char* kindOf(kel::mesh::PrimitiveType type);

/// The entry "name" of a mesh's metadata; empty when there is none.
std::string nameOf(const kel::src::SrcMesh& mesh);

} // namespace kelsrc::cli
