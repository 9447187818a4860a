#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace kelsrc::cli {

/// Rows of text under a heading, in columns: the first to the left, the others, of numbers, to the right.
class Table {
public:
    explicit Table(std::vector<std::string> heading) { rows.push_back(std::move(heading)); }
    /// As many cells as the heading has.
    void add(std::vector<std::string> row) { rows.push_back(std::move(row)); }
    void removeColumn(const std::string& heading);
    void print(std::ostream& out) const;

private:
    std::vector<std::vector<std::string>> rows;
};

} // namespace kelsrc::cli
