#include "MeasureWritten.h"

#include "MeshKinds.h"

#include <kel/mesh/AttributeNames.h>
#include <kel/src/encoding/EncodingPresets.h>

namespace kel::convert {

namespace {

using kel::prepare::Target;

std::uint64_t storedBytes(const kel::mesh::Mesh& mesh, Target target) {
    const bool isContainer = isContainerTarget(target);
    const auto indices = mesh.getIndexBuffer();
    const std::size_t indexSize = isContainer && indices && indices->getElementSizeInBytes() > 2 ? 4 : 2;
    std::uint64_t bytes = indices ? indices->getElementCount() * indexSize : 0;

    const auto normals = mesh.getAttributeBuffer(kel::mesh::DEFAULT_NORMALS_NAME);
    const auto positions = mesh.getAttributeBuffer(kel::mesh::DEFAULT_POSITIONS_NAME);
    if (target == Target::POSITION_NORMAL_COMPRESSED && positions && normals && normals->isVec3f())
        return bytes + positions->getElementCount() * 8;

    const auto& precision =
        kel::src::detail::getSRCEncodingPreset(isContainer ? targetName(target) : "default").precision;
    for (std::size_t i = 0; i < mesh.getNumAttributeBuffers(); ++i) {
        const auto buffer = mesh.getAttributeBuffer(i);
        const std::string name = buffer->getAttributeName();
        std::uint64_t elementSize = buffer->getElementSizeInBytes();
        if (isContainer) {
            elementSize = buffer->getComponentCountPerElement() * ((precision.at(name) + 7) / 8);
        } else if (target != Target::UNCOMPRESSED && name == kel::mesh::DEFAULT_POSITIONS_NAME) {
            elementSize = 6;
        }
        bytes += buffer->getElementCount() * elementSize;
    }
    return bytes;
}

} // namespace

WrittenMesh measureWritten(const kel::mesh::Mesh& mesh, Target target) {
    WrittenMesh written;
    written.counts.meshes = 1;
    primitivesIn(written.counts, mesh.getPrimitiveType()) = mesh.getNumPrimitives();
    const auto positions = mesh.getAttributeBuffer(kel::mesh::DEFAULT_POSITIONS_NAME);
    written.counts.vertices = positions ? positions->getElementCount() : 0;
    written.bytes = storedBytes(mesh, target);
    return written;
}

} // namespace kel::convert
