#include "tools/mgmtctl/interruption.h"

#include <poll.h>
#include <sys/signalfd.h>

namespace mgmtctl {
namespace {

bool IsIgnored(int signal) {
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

sigset_t SignalsThatEnd() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        if (!IsIgnored(signal)) sigaddset(&signals, signal);
    }
    return signals;
}

int Open(sigset_t& before) {
    const sigset_t signals = SignalsThatEnd();
    pthread_sigmask(SIG_BLOCK, &signals, &before);
    return signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

}  // namespace

Interruption::Interruption() : signals_(Open(before_)) {}

// A signal that is left would end the process before it says what came of the command.
Interruption::~Interruption() {
    signalfd_siginfo taken{};
    while (read(signals_.get(), &taken, sizeof taken) > 0) {
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

bool Interruption::HasCome() const noexcept {
    pollfd signals{signals_.get(), POLLIN, 0};
    return poll(&signals, 1, 0) == 1;
}

}  // namespace mgmtctl
