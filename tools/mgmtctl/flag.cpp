#include "tools/mgmtctl/flag.h"

#include <poll.h>
#include <sys/eventfd.h>

namespace mgmtctl {

Flag::Flag() : counter_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

void Flag::Raise() noexcept {
    eventfd_write(counter_.get(), 1);
}

bool Flag::IsRaised() const noexcept {
    pollfd counter{counter_.get(), POLLIN, 0};
    return poll(&counter, 1, 0) == 1;
}

}  // namespace mgmtctl
