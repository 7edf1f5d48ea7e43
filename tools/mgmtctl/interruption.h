// Ctrl-C and what else asks the tool to end, as something that poll can wait for: a command that waits can
// end what it began.
//
//   const Interruption interruption;
//   pollfd waited{interruption.descriptor(), POLLIN, 0};
//
// While it lives these signals do nothing else, on the thread that made it and on those that this one starts
// meanwhile. A signal that the tool was started to ignore (nohup) stays ignored. One at a time.
#pragma once

#include <csignal>

#include "tools/mgmtctl/file_descriptor.h"

namespace mgmtctl {

class Interruption {
 public:
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    bool HasCome() const noexcept;

    // Readable when it has come; only to be waited for.
    int descriptor() const noexcept { return signals_.get(); }

 private:
    sigset_t before_{};
    FileDescriptor signals_;
};

}  // namespace mgmtctl
