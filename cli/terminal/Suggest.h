#pragma once

#include <string>
#include <vector>

namespace kelsrc::cli {

/// The known word that `word` was most likely meant to be; empty when none is near. Near is: at most a third
/// of the letters (at least two) inserted, left out, changed or swapped with a neighbour, or a known word
/// that starts with it.
std::string nearestWord(const std::string& word, const std::vector<std::string>& known);

} // namespace kelsrc::cli
