#pragma once

#include <kel/src/SrcFile.h>

#include <cstdint>

namespace kel::src::detail {

/// Tells which attributes a mesh names though their elements are an earlier mesh's: the container writer's
/// map of attributes is never cleared. A mesh that shares its positions too is a different case, and keeps
/// them all.
class ForeignAttributes {
public:
    /// The mesh is one of file.meshes().
    ForeignAttributes(const SrcFile& file, const SrcMesh& mesh);

    bool contain(const SrcAttribute& attribute) const { return ownsPositions && isOthers(attribute); }

private:
    bool isOthers(const SrcAttribute& attribute) const {
        return file.attributeViews()[attribute.view].owner != position;
    }

    const SrcFile& file;
    std::uint32_t position;
    bool ownsPositions = false;
};

/// The position codes of a combined view as a view of their own.
SrcAttributeView positionPart(const SrcAttributeView& combined);

} // namespace kel::src::detail
