#pragma once

#include <kel/mesh/AttributeBuffer.h>

#include <functional>
#include <memory>

namespace kel::mesh {

/// Calls `transform(source element i, target element i)` for every element i of `source`. The target is
/// resized to the source's element count first; both pointers of a call are packed elements.
KEL_MESH_EXPORT void transformAttributes(std::shared_ptr<AttributeBuffer> source,
                                         std::shared_ptr<AttributeBuffer> target,
                                         std::function<void(void*, void*)> transform);

/// The two-byte octahedral form of a normal: the transform reads three floats and writes two unsigned bytes.
///
/// Encoding: n is projected on the octahedron |x| + |y| + |z| = 1, the lower half is folded over the
/// diagonals, and of the four neighbouring codes the one that decodes nearest to n is taken (the "precise"
/// variant of Cigolle et al., "A Survey of Efficient Representations for Independent Unit Vectors", JCGT
/// 3(2), 2014).
///
/// Decoding, with the codes u and v from 0 to 254 (255 is never written and reads as 254):
///
///     x = (u - 127) / 127        y = (v - 127) / 127        z = 1 - |x| - |y|
///     if z < 0:  (x, y) = ((1 - |y|) * sign(x), (1 - |x|) * sign(y)), with sign(0) = 1
///     normal = (x, y, z) / length(x, y, z)
///
/// 127 is an exact zero, so the six axes decode exactly. Over the sphere the mean error is at most 0.32
/// degrees and the largest at most 0.64 degrees.
///
/// Length does not matter: any finite vector is encoded by its direction. A vector without a direction (zero,
/// or with a component that is NaN) is encoded as +z, (127, 127); an infinite component outweighs all finite
/// ones.
KEL_MESH_EXPORT std::function<void(void*, void*)> quantizeNormals();

/// The code pair of one normal, as described at quantizeNormals.
KEL_MESH_EXPORT void encodeOctahedralNormal(const float normal[3], unsigned char code[2]);

/// The unit normal of one code pair, as described at quantizeNormals.
KEL_MESH_EXPORT void decodeOctahedralNormal(const unsigned char code[2], float normal[3]);

} // namespace kel::mesh
