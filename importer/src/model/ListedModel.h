#pragma once

#include "Model.h"

#include <algorithm>

namespace kel::importer::detail {

/// A model whose meshes stand ready.
class ListedModel : public Model {
public:
    /// returns  its place among the meshes
    std::size_t addMesh(ModelMesh mesh, std::vector<ModelPart> parts);

    ModelBox boxOf(std::size_t mesh) override;
    std::vector<ModelPart> takeMesh(std::size_t mesh) override;

private:
    std::vector<std::vector<ModelPart>> ready; ///< for each mesh
};

/// The numbers of these vertices; none of none.
///
/// width  numbers per vertex
template<typename Number>
std::vector<Number> gather(const std::vector<Number>& numbers, std::size_t width,
                           const std::vector<std::uint32_t>& vertices) {
    std::vector<Number> result(numbers.empty() ? 0 : width * vertices.size());
    for (std::size_t v = 0; width * v < result.size(); ++v)
        std::copy_n(&numbers[width * vertices[v]], width, &result[width * v]);
    return result;
}

/// The corners of points, lines and triangles that share vertices.
struct PrimitiveLists {
    std::vector<std::uint32_t> triangles, lines, points;
};

/// Makes a part of each list that is not empty: triangles, lines, points. Each takes the vertices that it
/// needs.
///
/// attributes  as in ModelPart, of all vertices
/// unused      counts up the vertices that no list needs, unless they stay in the only part: conversion counts
///             those
std::vector<ModelPart> partsOf(PrimitiveLists lists, std::vector<ModelAttribute> attributes,
                               std::size_t& unused);

} // namespace kel::importer::detail
