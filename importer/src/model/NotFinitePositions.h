#pragma once

#include "../ModelSource.h"

#include <cstddef>
#include <string>
#include <vector>

namespace kel::importer::detail {

/// The positions that are not finite, over any number of meshes, for the error that refuses them.
class NotFinitePositions {
public:
    /// Counts those of one mesh.
    ///
    /// xyz      three numbers per vertex
    /// used     for each vertex, whether a primitive needs it
    /// corners  of all primitives. Where every corner has a vertex of its own, as most text formats arrive, equal
    ///          ones count once.
    template<typename Number>
    void add(const Number* xyz, const std::vector<char>& used, std::size_t corners, const std::string& place);

    bool any() const { return positions > 0; }
    /// throws  ImportError
    [[noreturn]] void refuse(const ModelSource& source) const;

private:
    std::size_t positions = 0;
    std::size_t meshes = 0;
    std::string first, last; // places
};

} // namespace kel::importer::detail
