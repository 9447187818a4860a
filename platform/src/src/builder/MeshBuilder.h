#pragma once

#include <src/Export.h>
#include <src/Types.h>

#include <memory>
#include <string>
#include <vector>

namespace src::builder {

/// Assembles one mesh. After build() the builder may go on: later changes make another mesh and leave the one
/// built alone.
class SRC_EXPORT MeshBuilder {
public:
    /// `name` is the mesh's ID in the file; `indexView` may be empty.
    static std::shared_ptr<MeshBuilder> create(const std::string& name, std::shared_ptr<IndexView> indexView,
                                               PrimitiveType primitiveType);

    MeshBuilder(const MeshBuilder&) = delete;
    MeshBuilder& operator=(const MeshBuilder&) = delete;
    ~MeshBuilder();

    /// Adds an attribute, or replaces the one of that name.
    ///
    /// throws  std::invalid_argument for an empty view
    void addAttribute(const std::string& name, std::shared_ptr<AttributeView> view);

    /// Records the bounds, three numbers each, in the units of the positions. The file holds their centre and
    /// size, computed in double. A box whose minimum lies above its maximum is handed on with a negative
    /// size.
    ///
    /// throws  std::invalid_argument for another number of values
    void setBoundingBoxMinMax(std::vector<double> min, std::vector<double> max);

    /// An empty pointer leaves the mesh without a material.
    void setMaterial(std::shared_ptr<Material> material);

    /// Attaches a JSON object as the mesh's metadata. Its blanks are dropped and its numbers written as all
    /// numbers of the header are; nothing else is changed. A text that is no JSON object, or that nests
    /// deeper than 64 levels, or that is not UTF-8, is kept as one JSON string, and a warning in the log
    /// names the mesh and the place in the text.
    void setMetaJsonString(const std::string& text);

    std::shared_ptr<Mesh> build();

private:
    explicit MeshBuilder(std::shared_ptr<Mesh> mesh);
    Mesh& change();

    std::shared_ptr<Mesh> mesh;
    bool handedOut = false;
};

} // namespace src::builder
