#include "terminal/Table.h"

#include <algorithm>
#include <ostream>

namespace kelsrc::cli {

namespace {

/// Columns on a terminal, taking each character as one wide.
std::size_t widthOf(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0u) != 0x80; }));
}

} // namespace

void Table::removeColumn(const std::string& heading) {
    const auto column = std::find(rows.front().begin(), rows.front().end(), heading) - rows.front().begin();
    for (auto& row : rows)
        row.erase(row.begin() + column);
}

void Table::print(std::ostream& out) const {
    std::vector<std::size_t> widths(rows.front().size());
    for (const auto& row : rows) {
        for (std::size_t c = 0; c < row.size(); ++c)
            widths[c] = std::max(widths[c], widthOf(row[c]));
    }
    for (const auto& row : rows) {
        for (std::size_t c = 0; c < row.size(); ++c) {
            const std::string padding(widths[c] - widthOf(row[c]), ' ');
            out << (c == 0 ? row[c] + padding : "  " + padding + row[c]);
        }
        out << '\n';
    }
}

} // namespace kelsrc::cli
