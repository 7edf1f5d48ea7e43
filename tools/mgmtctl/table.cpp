#include "tools/mgmtctl/table.h"

#include <algorithm>
#include <ostream>

#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

constexpr std::size_t GAP = 2;

std::string Padding(std::size_t columns) {
    return std::string(columns, ' ');
}

}  // namespace

Table::Table(const std::vector<std::string>& headings) : widths_(headings.size()) {
    Add(headings);
    std::vector<std::string> rule;
    rule.reserve(headings.size());
    for (const std::string& heading : headings)
        rule.emplace_back(DisplayWidth(heading), '-');
    Add(rule);
}

void Table::Add(const std::vector<std::string>& cells) {
    std::vector<std::string>& row = rows_.emplace_back();
    for (std::size_t column = 0; column < widths_.size(); ++column) {
        row.push_back(Printable(cells.at(column)));
        widths_[column] = std::max(widths_[column], DisplayWidth(row.back()));
    }
}

void Table::Print(std::ostream& out) const {
    for (const std::vector<std::string>& row : rows_) {
        std::string line;
        std::size_t owed = 0;
        for (std::size_t column = 0; column < row.size(); ++column) {
            if (!row[column].empty()) {
                line += Padding(owed) + row[column];
                owed = 0;
            }
            owed += widths_[column] + GAP - DisplayWidth(row[column]);
        }
        out << line << '\n';
    }
}

}  // namespace mgmtctl
