// A table for people: columns as wide as what stands in them, the last one unpadded.
//
//   Table table({"Name", "Type", "Value"});
//   table.Add({"KeepDays", "uint32", "30"});
//   table.Print(std::cout);
//
// Rows may be added and printed again and again: the first Print prints the headings and settles how wide the
// columns are; a later text that is wider moves what stands behind it. A table belongs to one thread.
#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

namespace mgmtctl {

class Table {
 public:
    explicit Table(const std::vector<std::string>& headings);

    // The column's texts end below one another, as numbers should.
    void AlignRight(std::size_t column);
    // Cuts what does not fit into this many columns of a terminal, and texts that would take most of them.
    void CutToFit(std::size_t columns);

    // One text a column; control characters in it are shown as escapes.
    void Add(const std::vector<std::string>& cells);
    // Prints what was added since the last time.
    void Print(std::ostream& out);

 private:
    void Settle();
    std::string Line(const std::vector<std::string>& row) const;

    std::vector<std::vector<std::string>> rows_;
    std::vector<std::size_t> widths_;
    std::vector<bool> is_right_aligned_;
    std::size_t line_columns_ = 0;  // 0 for no end
    std::size_t cell_columns_ = 0;  // the same
    bool is_settled_ = false;
};

}  // namespace mgmtctl
