#include "tools/mgmtctl/output.h"

#include <iostream>

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "tools/mgmtctl/failure.h"

namespace mgmtctl {
namespace {

// A pipe tells it so even when nothing is asked for.
bool IsReaderGone() {
    pollfd out{STDOUT_FILENO, 0, 0};
    return poll(&out, 1, 0) == 1 && (out.revents & (POLLERR | POLLHUP)) != 0;
}

}  // namespace

void FlushOutput() {
    if (std::cout.flush()) return;
    if (IsReaderGone()) throw ReaderGone();
    throw OperationFailure("the output cannot be written");
}

std::size_t TerminalColumns() {
    winsize size{};
    const bool is_terminal = isatty(STDOUT_FILENO) == 1 && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0;
    return is_terminal ? size.ws_col : 0;
}

}  // namespace mgmtctl
