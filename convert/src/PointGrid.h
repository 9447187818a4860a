#pragma once

#include <kel/convert/ComparableScene.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace kel::convert {

/// Numbered points that are found again by place: all within a reach along each axis, a few cells per
/// question.
/// A reach of 0 finds points that are equal in all bits, but for the sign of zeros.
class PointGrid {
public:
    /// reach  finite, not negative; a question's reach is the same
    PointGrid(double reach, std::size_t expected) : reach(reach), cell(reach * 4.0) {
        std::size_t size = 16;
        while (size < expected)
            size *= 2;
        heads.assign(size, NONE);
        entries.reserve(expected);
    }

    void add(const Point& point, std::uint32_t number) {
        const std::size_t bucket = bucketOf(cellOf(point[0]), cellOf(point[1]), cellOf(point[2]));
        entries.push_back({number, heads[bucket]});
        heads[bucket] = static_cast<std::uint32_t>(entries.size() - 1);
    }

    /// What becomes of a number that was visited.
    enum Answer : std::uint8_t { GO_ON, STOP, REMOVE_AND_STOP };

    /// Calls answer(number) for every number near the point, and for some that are farther away or come
    /// twice; the caller checks.
    template<typename Visit>
    void visit(const Point& point, const Visit& answer) {
        double first[3], last[3];
        for (std::size_t c = 0; c < 3; ++c) {
            first[c] = cellOf(point[c] - reach);
            last[c] = cellOf(point[c] + reach);
        }
        for (const double x : {first[0], last[0]}) {
            for (const double y : {first[1], last[1]}) {
                for (const double z : {first[2], last[2]}) {
                    if (!visitBucket(bucketOf(x, y, z), answer)) return;
                    if (last[2] == first[2]) break;
                }
                if (last[1] == first[1]) break;
            }
            if (last[0] == first[0]) break;
        }
    }

private:
    static constexpr std::uint32_t NONE = 0xffffffffu;
    struct Entry {
        std::uint32_t number, next;
    };

    double cellOf(double coordinate) const {
        return (cell > 0.0 ? std::floor(coordinate / cell) : coordinate) + 0.0; // + 0 makes -0 a 0
    }
    std::size_t bucketOf(double x, double y, double z) const {
        std::uint64_t hash = 0;
        for (const double coordinate : {x, y, z}) {
            std::uint64_t bits;
            std::memcpy(&bits, &coordinate, sizeof bits);
            hash = (hash ^ bits) * 0x9e3779b97f4a7c15u;
            hash ^= hash >> 32;
        }
        return static_cast<std::size_t>(hash) & (heads.size() - 1);
    }
    template<typename Visit>
    bool visitBucket(std::size_t bucket, const Visit& answer) {
        std::uint32_t* link = &heads[bucket];
        while (*link != NONE) {
            Entry& entry = entries[*link];
            const Answer given = answer(entry.number);
            if (given == REMOVE_AND_STOP) *link = entry.next;
            if (given != GO_ON) return false;
            link = &entry.next;
        }
        return true;
    }

    double reach, cell;
    std::vector<std::uint32_t> heads;
    std::vector<Entry> entries;
};

} // namespace kel::convert
