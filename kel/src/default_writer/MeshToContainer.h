#pragma once

#include <kel/mesh/Mesh.h>
#include <kel/src/Export.h>
#include <kel/src/MetaDataPtr.h>
#include <kel/src/SrcWriterInput.h>
#include <kel/src/container/ShapeResourceContainer.h>
#include <kel/src/encoding/EncodingPresets.h>

#include <glm/vec3.hpp>

#include <iosfwd>
#include <map>
#include <string>

namespace kel::src::detail {

/// What writeMeshSrcDefault does, with any encoding: `useCompressedPreset` is not read.
KELSRC_EXPORT void writeMeshSrcEncoded(const SrcWriterInput& input, SRCEncodingConfig config,
                                       std::ostream& out);

/// Adds one mesh to the container: an index view, an attribute view per usable attribute, the mesh entry with
/// the bounds of "position", and the mesh's metadata with statistics.
///
/// attributeIds  attribute name to attribute view ID; the whole map becomes the mesh's attributes. Callers keep one
///               map for a whole export, so a mesh without, say, "texcoord" refers to the view of an earlier one.
/// meshIndex     its decimal text is the mesh's ID
/// metaData      texts that are read as JSON; what is no JSON becomes null. Statistics are added in place. May be
///               empty.
/// returns       the mesh's ID, or "" when the mesh was skipped
///
/// Indices are stored in 16 bits when the index elements are at most 2 bytes wide, else in 32. Attributes are
/// read as floats whatever their component type says (other types of four bytes pass bit for bit) and
/// quantized against the fixed range -0.5 to 0.5, into which callers bring their data. The entry says triangles
/// whatever the mesh's primitive type.
///
/// Reported, and then carried on:
/// - no index buffer: a line on standard error; nothing is added, returns "".
/// - no "position": a line on standard error; the views made so far stay unreferenced, returns "".
/// - an attribute with 0 or more than 3 components, one whose elements are not 4 bytes per component, or one whose
///   name the configuration does not know: a line on standard output; the attribute is left out.
KELSRC_EXPORT std::string addMeshToSrc(ShapeResourceContainer& container,
                                       std::map<std::string, std::string>& attributeIds,
                                       unsigned long meshIndex, kel::mesh::MeshPtr mesh, MetaDataPtr metaData,
                                       SRCEncodingConfig& config);

/// Adds one attribute of N floats per element (N = 1, 2 or 3) as the configuration's precision for `name`
/// says, and puts its view ID into `attributeIds`. An unknown name is reported on standard output and adds
/// nothing.
///
/// data                   count packed elements
/// bboxCenter, bboxSize   the range for quantization
///
/// A precision of 0 chooses 8, 16 or 32 bits from the largest of the first N sides, and says so on standard
/// error. A choice of 32 goes through the quantizer with 32 bits; only a configured 32 stores floats. A
/// precision above 32 is reported by the quantizer and leaves a view of no bytes.
template<unsigned int N>
KELSRC_EXPORT void createAttributeView(const std::string& name,
                                       std::map<std::string, std::string>& attributeIds,
                                       const unsigned char* data, unsigned long count,
                                       const glm::tvec3<float>& bboxCenter, const glm::tvec3<float>& bboxSize,
                                       ShapeResourceContainer& container, const SRCEncodingConfig& config);

} // namespace kel::src::detail
