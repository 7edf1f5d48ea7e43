// The standard output: whether people look at it, and what becomes of it when it cannot be written.
//
//   std::cout << row << '\n';
//   FlushOutput();
//
// One thread; WriteOutput any, one at a time.
#pragma once

#include <cstddef>
#include <string_view>

#include "tools/mgmtctl/flag.h"

namespace mgmtctl {

// Whoever read the output has gone away (| head): nothing is wrong and nothing more is to be printed. Only
// thrown when SIGPIPE is ignored.
struct ReaderGone {};

// Hands on everything that was printed. Throws ReaderGone, or OperationFailure when it cannot be written.
void FlushOutput();

// Writes at once, past what std::cout holds, and throws the same. Where the reader does not read it waits,
// but no longer than until the flag is raised: the rest is then left.
void WriteOutput(std::string_view text, const Flag& stopped);

// The columns of the terminal that the output goes to; 0 where it goes elsewhere.
std::size_t TerminalColumns();

}  // namespace mgmtctl
