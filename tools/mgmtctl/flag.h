// A flag that is raised once and that poll can wait for.
//
//   pollfd waited{flag.descriptor(), POLLIN, 0};
//   poll(&waited, 1, -1);    // another thread: flag.Raise();
//
// Any thread.
#pragma once

#include "tools/mgmtctl/file_descriptor.h"

namespace mgmtctl {

class Flag {
 public:
    Flag();

    void Raise() noexcept;
    bool IsRaised() const noexcept;

    // Readable from when it was raised; only to be waited for.
    int descriptor() const noexcept { return counter_.get(); }

 private:
    const FileDescriptor counter_;
};

}  // namespace mgmtctl
