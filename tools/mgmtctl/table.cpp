#include "tools/mgmtctl/table.h"

#include <algorithm>
#include <ostream>

#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

constexpr std::size_t GAP = 2;
constexpr std::size_t NARROWEST_CELL = 16;

std::string Padding(std::size_t columns) {
    return std::string(columns, ' ');
}

}  // namespace

Table::Table(const std::vector<std::string>& headings)
    : widths_(headings.size()), is_right_aligned_(headings.size()) {
    Add(headings);
    std::vector<std::string> rule;
    rule.reserve(headings.size());
    for (const std::string& heading : headings)
        rule.emplace_back(DisplayWidth(heading), '-');
    Add(rule);
}

void Table::AlignRight(std::size_t column) {
    is_right_aligned_.at(column) = true;
}

void Table::CutToFit(std::size_t columns) {
    line_columns_ = columns;
    cell_columns_ = std::max(columns / 3, NARROWEST_CELL);
}

void Table::Add(const std::vector<std::string>& cells) {
    std::vector<std::string>& row = rows_.emplace_back();
    for (std::size_t column = 0; column < widths_.size(); ++column)
        row.push_back(Printable(cells.at(column)));
}

void Table::Print(std::ostream& out) {
    if (!is_settled_) Settle();
    for (const std::vector<std::string>& row : rows_)
        out << Line(row) << '\n';
    rows_.clear();
}

void Table::Settle() {
    for (const std::vector<std::string>& row : rows_) {
        for (std::size_t column = 0; column < widths_.size(); ++column)
            widths_[column] = std::max(widths_[column], DisplayWidth(row[column]));
    }
    if (cell_columns_ != 0) {
        for (std::size_t& width : widths_)
            width = std::min(width, cell_columns_);
    }
    is_settled_ = true;
}

std::string Table::Line(const std::vector<std::string>& row) const {
    std::string line;
    std::size_t used = 0;   // columns of the line
    std::size_t start = 0;  // of the cell
    for (std::size_t column = 0; column < row.size(); ++column) {
        const std::string cell = cell_columns_ == 0 ? row[column] : Cut(row[column], cell_columns_);
        const std::size_t width = DisplayWidth(cell);
        if (!cell.empty()) {
            const bool is_moved = is_right_aligned_[column] && width < widths_[column];
            std::size_t place = is_moved ? start + widths_[column] - width : start;
            if (used != 0) place = std::max(place, used + GAP);
            line += Padding(place - used) + cell;
            used = place + width;
        }
        start += widths_[column] + GAP;
    }
    return line_columns_ == 0 ? line : Cut(line, line_columns_);
}

}  // namespace mgmtctl
