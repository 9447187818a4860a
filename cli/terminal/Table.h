#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace kelsrc::cli {

/// Rows of text under a heading, in columns: the first column to the left, all others, which hold numbers, to
/// the right.
class Table {
public:
    explicit Table(std::vector<std::string> heading) { rows.push_back(std::move(heading)); }
    /// As many cells as the heading has.
    void add(std::vector<std::string> row) { rows.push_back(std::move(row)); }
    void print(std::ostream& out) const;

private:
    std::vector<std::vector<std::string>> rows;
};

} // namespace kelsrc::cli
