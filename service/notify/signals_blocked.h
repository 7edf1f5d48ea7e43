// SignalsBlocked: threads that are started while one lives leave signals to the program's own threads.
//
//   const SignalsBlocked blocked;
//   std::thread thread(...);
#pragma once

#include <csignal>

namespace service {

class SignalsBlocked {
 public:
    SignalsBlocked() noexcept {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
    sigset_t before_;
};

}  // namespace service
