#pragma once

#include <kel/src/SrcFile.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

namespace kel::src::detail {

/// Finds the position of an ID among the IDs of one section.
///
/// Writers number their IDs, "chunk0", "chunk1" and so on: those are looked up by their number, without a
/// comparison of texts, which costs a cache miss each. All others are sorted; a hash table would be no faster
/// for the few of them, and could be driven to quadratic time by a file made for it.
class IdTable {
public:
    static constexpr std::uint32_t NOT_FOUND = SRC_NONE;

    /// Bytes that a table of so many IDs takes at most.
    static std::uint64_t memoryFor(std::uint64_t count) { return count * 32 + 4096; }

    /// Calls `shadowed(position)` for every ID that stands again behind it; the last one is kept.
    template<typename Entries, typename Shadowed>
    void build(const Entries& entries, Shadowed&& shadowed) {
        numbered.clear();
        others.clear();
        prefix = entries.empty() ? std::string_view() : withoutNumber(entries[0].id);
        numbered.assign(entries.size() * 2 + 64, NOT_FOUND);
        for (std::size_t i = 0; i < entries.size(); ++i) {
            const auto position = static_cast<std::uint32_t>(i);
            const std::size_t number = numberOf(entries[i].id);
            if (number < numbered.size()) {
                if (numbered[number] != NOT_FOUND) shadowed(numbered[number]);
                numbered[number] = position;
            } else {
                others.emplace_back(entries[i].id, position);
            }
        }
        std::sort(others.begin(), others.end());
        std::size_t kept = 0;
        for (std::size_t i = 0; i < others.size(); ++i) {
            if (i + 1 < others.size() && others[i].first == others[i + 1].first) {
                shadowed(others[i].second);
            } else {
                others[kept++] = others[i];
            }
        }
        others.resize(kept);
    }

    std::uint32_t find(std::string_view id) const {
        const std::size_t number = numberOf(id);
        if (number < numbered.size()) return numbered[number];
        const auto found =
            std::lower_bound(others.begin(), others.end(), std::make_pair(id, std::uint32_t(0)));
        return found != others.end() && found->first == id ? found->second : NOT_FOUND;
    }

    /// Positions in the order of the IDs' numbers; empty when any ID has none.
    std::vector<std::uint32_t> byNumber() const {
        std::vector<std::uint32_t> positions;
        if (!others.empty()) return positions;
        for (const std::uint32_t position : numbered)
            if (position != NOT_FOUND) positions.push_back(position);
        return positions;
    }

    /// What stands before the digits at the end of an ID.
    static std::string_view withoutNumber(std::string_view id) {
        std::size_t last = id.size();
        while (last > 0 && id[last - 1] >= '0' && id[last - 1] <= '9')
            --last;
        return id.substr(0, last);
    }

private:
    /// The number behind the prefix, written without leading zeros; NOT_FOUND when the ID is not of that
    /// form.
    std::size_t numberOf(std::string_view id) const {
        if (id.size() <= prefix.size() || id.size() > prefix.size() + 9 ||
            id.substr(0, prefix.size()) != prefix)
            return NOT_FOUND;
        const std::string_view digits = id.substr(prefix.size());
        if (digits[0] == '0' && digits.size() > 1) return NOT_FOUND;
        std::size_t number = 0;
        for (const char digit : digits) {
            if (digit < '0' || digit > '9') return NOT_FOUND;
            number = number * 10 + static_cast<std::size_t>(digit - '0');
        }
        return number;
    }

    std::string_view prefix;
    std::vector<std::uint32_t> numbered;
    std::vector<std::pair<std::string_view, std::uint32_t>> others;
};

} // namespace kel::src::detail
