// FileDescriptor owns an open file. For the files of this folder only.
//
//   FileDescriptor file(open(path, O_RDWR | O_CLOEXEC));
//   if (!file) return SystemError(errno);
//
// One thread at a time.
#pragma once

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace mgmt_platform {

class FileDescriptor {
 public:
    // None.
    FileDescriptor() noexcept = default;
    // Takes over the descriptor; below 0 is none. One that a program takes for its standard input or output
    // is exchanged for another: what is printed must not get into the file. None, with errno, if it cannot
    // be.
    explicit FileDescriptor(int descriptor) noexcept : descriptor_(descriptor) {
        if (descriptor < 0 || descriptor > STDERR_FILENO) return;
        descriptor_ = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        const int error = errno;
        close(descriptor);
        errno = error;
    }
    FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, NONE)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~FileDescriptor() { Close(); }

    explicit operator bool() const noexcept { return descriptor_ >= 0; }
    int get() const noexcept { return descriptor_; }
    void Close() noexcept {
        if (descriptor_ >= 0) close(std::exchange(descriptor_, NONE));
    }

 private:
    static constexpr int NONE = -1;

    int descriptor_ = NONE;
};

}  // namespace mgmt_platform
