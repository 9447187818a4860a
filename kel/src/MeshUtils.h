#pragma once

#include <kel/mesh/Mesh.h>
#include <kel/src/Export.h>
#include <kel/src/MetaDataPtr.h>

#include <glm/vec3.hpp>

#include <memory>

namespace kel::src::detail {

/// True for a buffer of exactly three floats per element; false for an empty pointer.
KELSRC_EXPORT bool isAttributeVec3f(const std::shared_ptr<kel::mesh::AttributeBuffer>& buffer);

/// Bounds of a buffer of three floats per element. That it is one is the caller's duty: the buffer is asked for
/// its elements and their count, and for nothing else. Elements of up to 16 floats are read by their first three,
/// and those of fewer leave the missing axes 0.
///
/// Starts at the largest finite float and its negative; each element then replaces a bound unless the bound
/// is strictly better. So a NaN replaces a bound, the next number replaces the NaN again, and an empty buffer
/// leaves min above max.
KELSRC_EXPORT void computeBoundingBoxMinMax(std::shared_ptr<kel::mesh::AttributeBuffer> buffer,
                                            glm::vec3& min, glm::vec3& max);

/// Bounds as centre and size, in single precision throughout. No side is ever zero: each is at least 1e-8 of
/// the diagonal, and 1e-16 where the diagonal is not above 1e-8. An empty buffer gives the placeholder box
/// centred at -0.1 with sides of 0.1.
KELSRC_EXPORT void computeBoundingBoxCenterSize(std::shared_ptr<kel::mesh::AttributeBuffer> buffer,
                                                glm::vec3& center, glm::vec3& size);

/// Total area of the mesh's indexed triangles (lists, strips and fans), in square units of "position"; 0 with
/// a warning in the log when there are no three-float positions or no indices. Degenerate triangles and areas
/// that are not normal floats add nothing.
KELSRC_EXPORT float computeTriangleSurfaceArea(const kel::mesh::MeshPtr& mesh);

/// Adds the statistics of the mesh to `metaData`, which must not be empty: "numOriginalPoints",
/// "numOriginalLines" or "numOriginalTriangles" (lists and strips; fans, loops and line strips get a warning
/// in the log instead), "numOriginalVertices" and "surfaceArea". Existing values are replaced.
KELSRC_EXPORT void addStatisticsMetaData(kel::mesh::MeshPtr mesh, kel::src::MetaDataPtr metaData);

} // namespace kel::src::detail
