#pragma once

#include <kel/src/Export.h>
#include <kel/src/SrcFile.h>
#include <kel/src/SrcWriterInput.h>

namespace kel::src {

/// Turns a file back into what writers take. Meshes keep their order, attributes the order in which they were
/// written, indices their width, metadata their JSON texts; an attribute that is stored without decoding
/// keeps its component type.
///
/// What writing it again gives, with the writer and mode that the file came from:
/// - container writer, preset "default", and public writer, uncompressed: the same bytes;
/// - container writer, preset "CMP1": the same codes and the same bytes of the data section. Values are the
///   decoded ones, moved by as little as needed (mostly one step of a float) to fall on the same code, since
///   the quantizer truncates. Bounds and surface area are those of the decoded positions, so they differ by
///   up to one code;
/// - public writer, position compressed: the same codes, in all but rare cases. That mode's range comes from
///   the very positions, of which the file does not hold the outermost exactly; they are chosen so that the
///   writer's arithmetic gives the same range again. Where rounding leaves no such choice, codes differ by
///   one (of 324 real models, in 2);
/// - public writer, position and normal compressed: positions the same way. Normals keep their direction; a
///   normal with two codes, on the seam where the octahedron is folded, may change to the other one.
///
/// Not restored, because files do not hold them: attributes and meshes that the writer left out; primitive
/// types other than triangles in files of the container writer, which calls all of them triangles (points and
/// lines are recognised by their statistics; strips and fans are not); metadata that are one text because
/// they were no JSON object; two materials of the same name in files of the public writer.
///
/// throws  SrcError with LIMIT_EXCEEDED when the copies would take more than limits.memoryBytes
KELSRC_EXPORT SrcWriterInput toInput(const SrcFile& file, const ReadLimits& limits = {});

} // namespace kel::src
