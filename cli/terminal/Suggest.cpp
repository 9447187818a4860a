#include "terminal/Messages.h"

#include <algorithm>
#include <cstddef>

namespace kelsrc::cli {

namespace {

/// Edits that lead from one word to the other; a swap of neighbours counts as one.
std::size_t editDistance(const std::string& a, const std::string& b) {
    std::vector<std::vector<std::size_t>> cost(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                cost[i][j] = i + j;
                continue;
            }
            const std::size_t change = cost[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1, change});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
        }
    }
    return cost[a.size()][b.size()];
}

} // namespace

std::string nearestWord(const std::string& word, const std::vector<std::string>& known) {
    // Longer words than any option are data that strayed here; comparing them would cost their square.
    if (word.size() > 64) return "";
    std::string best;
    std::size_t bestCost = std::max<std::size_t>(2, word.size() / 3) + 1;
    for (const std::string& candidate : known) {
        const bool isStart = word.size() >= 4 && candidate.compare(0, word.size(), word) == 0;
        // Two edits turn any two letters into any other two: one letter of a short option has to be right.
        const std::size_t cost = isStart ? 1 : editDistance(word, candidate);
        if (cost < bestCost && cost < std::max(word.size(), candidate.size()) - 1) {
            best = candidate;
            bestCost = cost;
        }
    }
    return best;
}

} // namespace kelsrc::cli
