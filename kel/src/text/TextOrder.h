#pragma once

#include <cstddef>

namespace kel::src::text {

/// Calls visit(i) for i = 0 .. count - 1 in the byte order of their decimal texts: 0, 1, 10, 100, ..., 11,
/// ..., 2.
template<typename Visit>
void inTextOrder(std::size_t count, Visit visit) {
    if (count == 0) return;
    visit(std::size_t(0));
    std::size_t n = 1;
    for (std::size_t visited = 1; visited < count; ++visited) {
        visit(n);
        if (n * 10 < count) {
            n *= 10;
        } else {
            if (n + 1 >= count) n /= 10;
            ++n;
            while (n % 10 == 0)
                n /= 10;
        }
    }
}

} // namespace kel::src::text
