// A table for people: columns as wide as what stands in them, the last one unpadded.
//
//   Table table({"Name", "Type", "Value"});
//   table.Add({"KeepDays", "uint32", "30"});
//   table.Print(std::cout);
//
// A table belongs to one thread.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace mgmtctl {

class Table {
 public:
    explicit Table(const std::vector<std::string>& headings);

    // One text a column; control characters in it are shown as escapes.
    void Add(const std::vector<std::string>& cells);
    void Print(std::ostream& out) const;

 private:
    std::vector<std::vector<std::string>> rows_;
    std::vector<std::size_t> widths_;
};

}  // namespace mgmtctl
