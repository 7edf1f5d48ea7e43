// The standard output: whether people look at it, and what becomes of it when it cannot be written.
//
//   std::cout << row << '\n';
//   FlushOutput();
//
// One thread.
#pragma once

#include <cstddef>

namespace mgmtctl {

// Whoever read the output has gone away (| head): nothing is wrong and nothing more is to be printed. Only
// thrown when SIGPIPE is ignored.
struct ReaderGone {};

// Hands on everything that was printed. Throws ReaderGone, or OperationFailure when it cannot be written.
void FlushOutput();

// The columns of the terminal that the output goes to; 0 where it goes elsewhere.
std::size_t TerminalColumns();

}  // namespace mgmtctl
