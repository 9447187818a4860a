#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

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

/// A key that sorts numbers as their decimal texts sort: the digits from the left, and then how many they are.
inline std::pair<std::uint64_t, std::uint32_t> textOrderOf(std::uint32_t number) {
    constexpr std::uint64_t TEN_DIGITS_END = 10000000000;
    if (number == 0) return {0, 1};
    std::uint64_t digits = number;
    std::uint32_t length = 10;
    for (; 10 * digits < TEN_DIGITS_END; digits *= 10)
        --length;
    return {digits, length};
}

} // namespace kel::src::text
