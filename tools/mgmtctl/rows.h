// The rows of a listing, printed as they come.
//
//   const std::unique_ptr<Rows> rows = MakeTableRows(columns, Length::SHORT);
//   rows->Add(*object);
//   rows->Print();      // what was added since the last time
//
// One thread.
#pragma once

#include <memory>
#include <vector>

#include "tools/mgmtctl/columns.h"
#include "tools/mgmtctl/rendering.h"

namespace mgmtctl {

class Rows {
 public:
    Rows() = default;
    virtual ~Rows() = default;
    Rows(const Rows&) = delete;
    Rows& operator=(const Rows&) = delete;

    virtual void Add(IWbemClassObject& object) = 0;
    // To the standard output, which is flushed. Throws what FlushOutput does.
    virtual void Print() = 0;
};

// A table. The first Print settles how wide the columns are. On a terminal, short rows are cut to its width.
std::unique_ptr<Rows> MakeTableRows(const std::vector<Column>& columns, Length length);

// One JSON object a line, with the columns, or where there are none with all properties of the object.
std::unique_ptr<Rows> MakeJsonRows(const std::vector<Column>& columns);

}  // namespace mgmtctl
