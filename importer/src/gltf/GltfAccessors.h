#pragma once

#include "GltfData.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kel::importer::detail {

/// How numbers lie in memory: `width` of them in each element, elements `step` bytes apart.
struct GltfNumbers {
    const unsigned char* from = nullptr;
    std::size_t step = 0;
    kel::mesh::ComponentType type = kel::mesh::FLOAT;
    bool normalized = false; ///< whole numbers stand for 0 to 1 or -1 to 1
};

/// The first `take` numbers of each of `count` elements, one element behind another. All of them are there.
template<typename Number>
std::vector<Number> decodeNumbers(const GltfNumbers& numbers, std::size_t count, std::size_t take);

/// The same of an accessor, from number `first` of each element on, with its sparse values in place.
///
/// Number  float or double
/// throws  ImportError when a sparse index is out of range, or compressed bytes are damaged
template<typename Number>
std::vector<Number> readNumbers(const ModelSource& source, const GltfData& data, std::size_t accessor,
                                std::size_t take, std::size_t first = 0);

/// Indices of vertices; the accessor holds unsigned scalars.
///
/// place   of the primitive, for messages
/// throws  ImportError when one is not below `vertices`
std::vector<std::uint32_t> readIndices(const ModelSource& source, const GltfData& data, std::size_t accessor,
                                       std::size_t vertices, const GltfPlace& place);

} // namespace kel::importer::detail
