#pragma once

#include <kel/prepare/Export.h>
#include <kel/prepare/Target.h>
#include <kel/src/SrcWriterInput.h>

#include <cstddef>
#include <vector>

namespace kel::prepare {

/// What seamless did.
struct SeamlessReport {
    std::size_t meshes = 0;      ///< that were put onto lattices
    std::size_t pointClouds = 0; ///< that were left as they are
    std::size_t shared = 0;      ///< positions that several meshes have
    double smallestStep = 0.0;   ///< of the lattices; powers of two
    double largestStep = 0.0;
    /// By position in the input's list: how far a vertex was moved at most, and so how far what a reader
    /// decodes is from the input. Positions decode to exactly where they were moved.
    std::vector<double> errors;
};

/// The number of vertices that it adds to a mesh for the public writer. Its meshes have 65,535 at most, so
/// cut them with that many fewer before.
constexpr std::size_t SEAMLESS_VERTICES = 2;

/// A copy of the input in which a position that several meshes have is still one position, to the last bit,
/// after quantizing: no cracks show between meshes. For targets that store positions in 16 bits.
///
/// Every mesh gets a step h that is a power of two, and its vertices are moved to multiples of h: to a
/// lattice. Steps are powers of two so that lattices are nested, every multiple of a step being one of each
/// smaller step. A position of several meshes is moved to a multiple of the largest of their steps, which so
/// all of them have. "One position" means that all three floats are equal; the parts that one mesh was cut
/// into are meshes like others.
///
/// The public writer derives its codes from the box of the positions that it is given. So two vertices that
/// no primitive uses are appended to each mesh, which stretch the box to a cube with sides of 65535 * h whose
/// lower corner is that of the mesh's own box: all roundings of the writer are exact then, and each multiple
/// of h has a code of its own that decodes to it. Meshes without indices get some. Attributes other than
/// "position" repeat their last value in the added vertices.
///
/// A preset has one box for all meshes and codes of 1/65535 of it. So all meshes get one h there, and
/// fitToRange and roundToCodes are done as well: "fit" has one scale, 65535 * h, for the positions of all
/// meshes, and offsets that are odd multiples of h / 2. No vertices are added.
///
/// h is the smallest step with which the mesh fits, with room for what its neighbours' steps move. Floats
/// have to hold its multiples exactly, so a mesh whose coordinates are more than 2^22 times h takes a larger
/// step, up to the one that the scene would need if it were a single mesh. A scene farther away than that is
/// refused.
///
/// "bounds" in a mesh's metadata tells the box of its own vertices, as they are decoded. What moves a vertex
/// afterwards undoes all this, so do it last; roundToCodes leaves such meshes alone. Point clouds, whose
/// vertices are their points, are left as they are. In targets that store floats nothing is done: they show
/// no cracks.
///
/// Linear in the number of vertices.
///
/// throws  std::invalid_argument, naming the mesh, for positions that are not finite, that reach farther than codes
///         can be made for or lie too far from 0 for their size, that were fitted to a range already or are seamless
///         already; for meshes whose "origin" differ; for a preset whose positions are not of 16 bits
KEL_PREPARE_EXPORT kel::src::SrcWriterInput seamless(const kel::src::SrcWriterInput& input, Target target,
                                                     SeamlessReport* report = nullptr);

} // namespace kel::prepare
