// A file descriptor that is closed with its owner.
//
//   const FileDescriptor counter(eventfd(0, EFD_CLOEXEC));
//   poll(...counter.get()...);
//
// Plain value; the descriptor's own calls say what threads may do.
#pragma once

#include <cerrno>
#include <system_error>

#include <unistd.h>

namespace mgmtctl {

class FileDescriptor {
 public:
    // Takes the descriptor over; throws std::system_error of errno for a negative one.
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {
        if (descriptor < 0) throw std::system_error(errno, std::generic_category());
    }
    ~FileDescriptor() { close(descriptor_); }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    int get() const noexcept { return descriptor_; }

 private:
    const int descriptor_;
};

}  // namespace mgmtctl
