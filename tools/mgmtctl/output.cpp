#include "tools/mgmtctl/output.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <iostream>

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "tools/mgmtctl/failure.h"

namespace mgmtctl {
namespace {

// A pipe that poll says can be written takes this much without waiting.
constexpr std::size_t AT_ONCE = PIPE_BUF;

[[noreturn]] void ThrowWriteFault() {
    pollfd out{STDOUT_FILENO, 0, 0};
    if (poll(&out, 1, 0) == 1 && (out.revents & (POLLERR | POLLHUP)) != 0) throw ReaderGone();
    throw OperationFailure("the output cannot be written");
}

// False when the flag is raised.
bool WaitForRoom(const Flag& stopped) {
    pollfd waited[] = {{STDOUT_FILENO, POLLOUT, 0}, {stopped.descriptor(), POLLIN, 0}};
    while (poll(waited, 2, -1) < 0) {
        if (errno != EINTR) ThrowWriteFault();
    }
    return waited[1].revents == 0;
}

}  // namespace

void FlushOutput() {
    if (!std::cout.flush()) ThrowWriteFault();
}

void WriteOutput(std::string_view text, const Flag& stopped) {
    while (!text.empty() && WaitForRoom(stopped)) {
        const ssize_t written = write(STDOUT_FILENO, text.data(), std::min(text.size(), AT_ONCE));
        if (written < 0 && errno != EINTR && errno != EAGAIN) ThrowWriteFault();
        text.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
    }
}

std::size_t TerminalColumns() {
    winsize size{};
    const bool is_terminal = isatty(STDOUT_FILENO) == 1 && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0;
    return is_terminal ? size.ws_col : 0;
}

}  // namespace mgmtctl
