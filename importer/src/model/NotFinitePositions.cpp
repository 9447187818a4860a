#include "NotFinitePositions.h"

#include "../VertexJoiner.h"

#include <cmath>
#include <cstring>

namespace kel::importer::detail {

template<typename Number>
void NotFinitePositions::add(const Number* xyz, const std::vector<char>& used, std::size_t corners,
                             const std::string& place) {
    constexpr std::size_t FLOATS = 3 * sizeof(Number) / sizeof(float);
    VertexJoiner joiner({FLOATS});
    std::size_t count = 0;
    for (std::size_t v = 0; v < used.size(); ++v) {
        const Number* p = xyz + 3 * v;
        if (!used[v] || (std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]))) continue;
        ++count;
        float bits[FLOATS];
        std::memcpy(bits, p, sizeof bits);
        joiner.add(bits);
    }
    if (count == 0) return;
    positions += corners == used.size() ? joiner.size() : count;
    if (meshes == 0) first = place;
    if (meshes == 0 || place != last) ++meshes;
    last = place;
}

template void NotFinitePositions::add(const float*, const std::vector<char>&, std::size_t,
                                      const std::string&);
template void NotFinitePositions::add(const double*, const std::vector<char>&, std::size_t,
                                      const std::string&);

void NotFinitePositions::refuse(const ModelSource& source) const {
    source.refuse(ImportCode::NON_FINITE_POSITIONS,
                  std::to_string(positions) +
                      (positions == 1 ? " vertex position is" : " vertex positions are") +
                      " not finite, in " + std::to_string(meshes) + (meshes == 1 ? " mesh" : " meshes"),
                  "first in " + first);
}

} // namespace kel::importer::detail
